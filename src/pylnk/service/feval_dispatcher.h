// The library's only door: the worker's command server calls this with a
// command name and host arrays, on threads of its own.
#pragma once

#include <cstddef>
#include <string>

#include "contracts/host_array.h"

#define VX_EXPORT __attribute__((visibility("default")))

namespace interprocess::pylnk::server::libpylnk {

// Hands the command to the Python thread and blocks until it is answered.
// The reply is moved into plhs[0], plhs[1], ... (as many arrays as the reply
// holds; nothing is written through a null plhs). A failure is rethrown here.
VX_EXPORT void feval_dispatcher(const std::string& name, size_t nlhs,
                                foundation::veltradata::Array* plhs, size_t nrhs,
                                foundation::veltradata::Array* prhs);

}  // namespace interprocess::pylnk::server::libpylnk
