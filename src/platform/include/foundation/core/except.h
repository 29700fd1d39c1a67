// Exception bases of the worker's platform.
//
// IException is the root interface of every platform exception; it carries
// boost::exception so that callers may attach error information.
// Exception<I, Std> joins an interface with a standard exception class and
// stores its message by value, so an exception can be copied and read on any
// thread without touching whatever produced it.
#pragma once

#include <boost/exception/exception.hpp>
#include <exception>
#include <string>
#include <utility>

namespace foundation::core::except {

class IException : public virtual boost::exception {
public:
    virtual ~IException() = default;
    virtual const char* message() const noexcept = 0;
};

// Marks failures inside a component, as opposed to failures caused by a user.
class IInternalException : public virtual IException {
public:
    ~IInternalException() override = default;
};

template <class I, class Std = std::exception>
class Exception : public virtual I, public Std {
public:
    explicit Exception(const char* text) : text_(text ? text : "") {}
    explicit Exception(std::string text) : text_(std::move(text)) {}
    Exception(const Exception&) = default;
    Exception& operator=(const Exception&) = default;
    ~Exception() override = default;

    const char* what() const noexcept override { return text_.c_str(); }
    const char* message() const noexcept override { return text_.c_str(); }

private:
    std::string text_;
};

}  // namespace foundation::core::except
