#include "vxpy/client.h"

namespace vxpy {

namespace {

// The worker's C++ type for a failure in Python.
constexpr const char* kPythonFailure = "pylnk_core::InternalPyException";

}  // namespace

PythonError::PythonError(std::string pythonType, std::string message, std::string traceback)
    : CommandError(kPythonFailure, message.empty() ? pythonType : pythonType + ": " + message),
      pythonType_(std::move(pythonType)),
      message_(std::move(message)),
      traceback_(std::move(traceback)) {}

std::string PythonError::pythonType() const {
    return pythonType_;
}

std::string PythonError::message() const {
    return message_;
}

std::string PythonError::traceback() const {
    return traceback_;
}

}  // namespace vxpy
