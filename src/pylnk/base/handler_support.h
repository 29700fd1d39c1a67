// Shared pieces of every command: reading arguments and building the reply
// forms, so that a handler is its name, its argument reads and its bridge call.
#pragma once

#include <cstdint>
#include <exception>
#include <string>

#include "base/py_handler_base.h"

namespace pylnk {

// --- arguments -------------------------------------------------------------

// The object address in element 0 of a UINT64 array, used without any check.
python::pyArray* addressArg(foundation::veltradata::Array* prhs, size_t index);
// Element 0 of a numeric or logical argument of exactly type T.
template <class T>
T scalarArg(foundation::veltradata::Array* prhs, size_t index) {
    foundation::veltradata::TypedArray<T> values(prhs[index]);
    return values[0];
}
// Text of a char array argument: narrow (names, paths) or UTF-16.
std::string asciiArg(foundation::veltradata::Array* prhs, size_t index);
std::u16string textArg(foundation::veltradata::Array* prhs, size_t index);
// A holder with its own reference for an object the host passed by address.
boost::shared_ptr<python::pyArray> holderOf(python::pyArray* object);

// --- reply forms -----------------------------------------------------------

foundation::veltradata::Array objectAddress(boost::shared_ptr<python::pyArray> object);
foundation::veltradata::Array truthValue(bool value);
foundation::veltradata::Array uint64Value(std::uint64_t value);
foundation::veltradata::Array int64Value(std::int64_t value);
foundation::veltradata::Array number(double value);
foundation::veltradata::Array text(const std::u16string& value);
foundation::veltradata::Array text(const std::string& value);
foundation::veltradata::Array successString();
foundation::veltradata::Array successCharArray();

// Answers the request with a reply of exactly one array.
void reply(ReplyPromise* promise, foundation::veltradata::Array value);
// Runs body; what it throws is returned (null when it returns normally), to
// be handed to the caller's thread.
template <class Body>
std::exception_ptr failureOf(Body&& body) {
    std::exception_ptr failure;
    try {
        body();
    } catch (...) {
        failure = std::current_exception();
    }
    return failure;
}

// Answers the request with a failure from failureOf.
void replyWithFailure(ReplyPromise* promise, std::exception_ptr failure);

}  // namespace pylnk
