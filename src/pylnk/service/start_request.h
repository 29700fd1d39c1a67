// The six fields of a start request.
#pragma once

#include <string>

#include "contracts/host_array.h"

namespace pylnk {

struct StartRequest {
    std::u16string executable;
    std::u16string library;
    std::u16string home;
    std::u16string path;
    std::u16string version;
    std::u16string location;  // the library's module folder
};

// Reads element 0 of the struct in prhs[0], field by field in the order
// above. A missing argument, a missing field or a field that is not a char
// array throws std::invalid_argument naming it.
StartRequest readStartRequest(const foundation::veltradata::Array* prhs);

}  // namespace pylnk
