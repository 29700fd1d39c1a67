// Python through a vxpy::Session, command by command, as a host would drive it.
#pragma once

#include <vxpy/client.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "failure_of.h"

namespace vxtest {

namespace vd = foundation::veltradata;

// How a call of the client fails: "WorkerEnded: <what>" or "Error: <what>",
// so that a test tells the worker's end from a refusal; "no failure" when it
// returns.
template <class F>
std::string clientFailureOf(F&& action) {
    try {
        action();
    } catch (const vxpy::WorkerEnded& ended) {
        return std::string("WorkerEnded: ") + ended.what();
    } catch (const vxpy::Error& error) {
        return std::string("Error: ") + error.what();
    }
    return "no failure";
}

// Debian's interpreter (NumPy and pandas), as the client finds it.
const vxpy::Interpreter& systemPython();

class Python {
  public:
    explicit Python(vxpy::Session& session) : session_(session) {}

    vd::Array one(const std::string& command, const std::vector<vd::Array>& args = {});
    vd::Array unicode(const std::string& text);
    vd::Array tuple(const std::vector<vd::Array>& items);
    vd::Array builtin(const std::string& name);
    vd::Array invoke(const vd::Array& callable, const std::vector<vd::Array>& args);
    // Statements / an expression in one namespace per Python object.
    void exec(const std::string& statements);
    vd::Array eval(const std::string& expression);
    // str() of the object.
    std::string str(const vd::Array& object);

  private:
    vd::Array globals();
    vxpy::Session& session_;
    vd::Array globals_;
};

// A console that keeps what it is given.
class Console {
  public:
    std::function<void(std::string_view)> sink();
    std::string text() const;
    // True once the text contains needle (false after the timeout).
    bool waitFor(const std::string& needle,
                 std::chrono::milliseconds timeout = std::chrono::seconds(30)) const;

  private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::string text_;
};

}  // namespace vxtest
