// Python through a vxpy::Session, command by command, as a host would drive it.
#pragma once

#include <vxpy/client.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <functional>
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
inline const vxpy::Interpreter& systemPython() {
    static const vxpy::Interpreter python = vxpy::Interpreter::find("/usr/bin/python3");
    return python;
}

// pyenv's builds of 3.8 to 3.13 that the machine has, one per version:
// {"3.11", ".../bin/python3"}. Absent versions are left out.
inline std::vector<std::pair<std::string, std::string>> pyenvInterpreters() {
    namespace fs = std::filesystem;
    const fs::path versions =
        fs::path(std::getenv("HOME") ? std::getenv("HOME") : "/root") / ".pyenv" / "versions";
    std::vector<std::pair<std::string, std::string>> found;
    for (const std::string version : {"3.8", "3.9", "3.10", "3.11", "3.12", "3.13"}) {
        std::error_code ignored;
        for (const auto& entry : fs::directory_iterator(versions, ignored)) {
            const fs::path executable = entry.path() / "bin" / "python3";
            if (entry.path().filename().string().rfind(version + ".", 0) == 0 &&
                fs::exists(executable)) {
                found.emplace_back(version, executable.string());
                break;
            }
        }
    }
    return found;
}

class Python {
  public:
    explicit Python(vxpy::Session& session) : session_(session) {}

    vd::Array one(const std::string& command, const std::vector<vd::Array>& args = {}) {
        return session_.call(command, args).at(0);
    }
    vd::Array unicode(const std::string& text) {
        return one("pyCreateUnicode", {vd::ArrayFactory().createCharArray(text)});
    }
    vd::Array builtin(const std::string& name) {
        return one("pyGetMember",
                   {one("pyCreateBuiltinModule"), vd::ArrayFactory().createCharArray(name)});
    }
    vd::Array invoke(const vd::Array& callable, const std::vector<vd::Array>& args) {
        vd::ArrayFactory f;
        const vd::Array tuple = one("pyCreateTuple", {f.createScalar(std::uint64_t{args.size()})});
        for (std::size_t i = 0; i < args.size(); ++i) {
            one("pyTupleSet", {tuple, f.createScalar(std::uint64_t{i}), args[i]});
        }
        // The tuple goes once the call has run, so that it keeps no argument
        // alive (after a failure it stays: the session may be gone).
        vd::Array result = one("pyInvoke", {callable, tuple});
        session_.call("Release", {tuple});
        return result;
    }
    // Statements / an expression in one namespace per Python object.
    void exec(const std::string& statements) {
        invoke(builtin("exec"), {unicode(statements), globals()});
    }
    vd::Array eval(const std::string& expression) {
        return invoke(builtin("eval"), {unicode(expression), globals()});
    }
    // str() of the object.
    std::string str(const vd::Array& object) {
        return vd::CharArray(one("pyUnicodeGetData", {one("pyStr", {object})})).toAscii();
    }

  private:
    vd::Array globals() {
        if (globals_.isEmpty()) {
            globals_ = one("pyCreateDict");
        }
        return globals_;
    }
    vxpy::Session& session_;
    vd::Array globals_;
};

// A console that keeps what it is given.
class Console {
  public:
    std::function<void(std::string_view)> sink() {
        return [this](std::string_view text) {
            {
                std::lock_guard<std::mutex> lock(mutex_);
                text_ += text;
            }
            changed_.notify_all();
        };
    }
    std::string text() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return text_;
    }
    // True once the text contains needle (false after the timeout).
    bool waitFor(const std::string& needle,
                 std::chrono::milliseconds timeout = std::chrono::seconds(30)) const {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, timeout,
                                 [&] { return text_.find(needle) != std::string::npos; });
    }

  private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::string text_;
};

}  // namespace vxtest
