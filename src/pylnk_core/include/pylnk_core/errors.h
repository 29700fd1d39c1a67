// Exceptions of the bridge.
#pragma once

#include <foundation/core/except.h>

#include <exception>
#include <string>

namespace pylnk_core {

// Thrown when a Python call fails. Unless an operation documents otherwise,
// the Python error stays set, so that a caller may fetch or clear it.
//
// The message is built when the exception is thrown, as "<ExceptionClass>:
// <text>" read from the pending error; it is a copy, so the exception can be
// copied and read on any thread without touching the interpreter.
class InternalPyException
    : public foundation::core::except::Exception<foundation::core::except::IInternalException,
                                                 std::exception> {
  public:
    explicit InternalPyException(const char* message);
    explicit InternalPyException(const std::string& message);
    InternalPyException(const InternalPyException&) = default;
    InternalPyException& operator=(const InternalPyException&) = default;
    ~InternalPyException() override;
};

namespace fetch {

// The name given to fetch() is not a dotted path of identifiers.
class BadPythonName
    : public foundation::core::except::Exception<foundation::core::except::IException,
                                                 std::exception> {
  public:
    explicit BadPythonName(const std::string& message);
    BadPythonName(const BadPythonName&) = default;
    ~BadPythonName() override;
};

// The name given to fetch() is well formed but names nothing that can be found.
class SearchFailure
    : public foundation::core::except::Exception<foundation::core::except::IException,
                                                 std::exception> {
  public:
    explicit SearchFailure(const std::string& message);
    SearchFailure(const SearchFailure&) = default;
    ~SearchFailure() override;
};

}  // namespace fetch
}  // namespace pylnk_core
