// The message of an exception a test expects, for checks on its text. Shared
// by every test folder.
#pragma once

#include <exception>
#include <string>

namespace vxtest {

// The message of the E that the action throws; "no failure" when it returns.
template <class E = std::exception, class F>
std::string failureOf(F&& action) {
    try {
        action();
    } catch (const E& failure) {
        return failure.what();
    }
    return "no failure";
}

}  // namespace vxtest
