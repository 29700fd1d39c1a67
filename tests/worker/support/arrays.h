// Host arrays for the worker's tests: one of every kind, and a deep comparison.
#pragma once

#include <foundation/veltradata.h>

#include <vector>

namespace vxtest {

// Every array type the host array library makes, with awkward shapes:
// element 0 is a cell nesting structs, cells, missing strings and empties.
std::vector<foundation::veltradata::Array> everyKindOfArray();

// A cell holding a cell ... `depth` levels in all, with a number at the bottom.
foundation::veltradata::Array nestedCells(unsigned depth);

// Same type, dimensions and elements, to any depth.
bool sameArray(const foundation::veltradata::Array& a, const foundation::veltradata::Array& b);

}  // namespace vxtest
