// Arrays that many metadata entries hold with the same content. Host arrays
// are values with shared storage: one instance serves every entry, and a
// holder that writes to it gets its own copy first.
#pragma once

#include "contracts/host_array.h"

namespace pylnk {

const foundation::veltradata::Array& sharedLogical(bool value);
// 1 by 1 UINT64 zero.
const foundation::veltradata::Array& sharedZeroCount();
// An empty char array (1 by 0).
const foundation::veltradata::Array& sharedEmptyText();
// A 1 by 0 cell array.
const foundation::veltradata::Array& sharedEmptyCells();
// A 1 by 1 string array with its element missing: the names of a callable
// nothing is known of.
const foundation::veltradata::Array& sharedUnknownNames();

}  // namespace pylnk
