// The common shape of every command handler, and the one spot where a
// command is defined: VX_COMMAND writes its handler class and its row.
#pragma once

#include <cstddef>
#include <future>
#include <string>
#include <vector>

#include "contracts/host_array.h"
#include "contracts/python_bridge.h"

namespace pylnk {

using Reply = std::vector<foundation::veltradata::Array>;
using ReplyPromise = std::promise<Reply>;

// One object per command, built once on the Python thread and kept to the
// end of the process. Handlers hold no state between calls and answer
// through the promise exactly once (or throw, and the dispatcher answers).
class PyHandlerBase {
  public:
    PyHandlerBase();
    virtual ~PyHandlerBase();
    virtual void execute(const std::string& name, size_t nlhs, ReplyPromise* promise, size_t nrhs,
                         foundation::veltradata::Array* prhs) = 0;

  protected:
    python::IPythonAPI* api;
};

// What the dispatcher needs to know of a command besides its handler.
struct CommandRow {
    enum class PendingError {
        SetAside,  // an error left by an earlier command waits while this one runs
        Used,      // the command works on that error itself
    };

    const char* name;
    size_t arguments;  // the handler reads at least these; fewer are refused
    PendingError pendingError;
    PyHandlerBase* (*makeHandler)();
    const CommandRow* next = nullptr;

    // Every row joins the list of commands as the library is loaded; the
    // handlers themselves are made later, once the interpreter stands.
    CommandRow(const char* name, size_t arguments, PendingError pendingError,
               PyHandlerBase* (*makeHandler)());
};

// The rows of every command of the library, in no particular order.
const CommandRow* firstCommandRow();

}  // namespace pylnk

// Defines the command `command` (a string) with its handler class, the number
// of arguments it reads and how it treats a pending Python error, and opens
// the body of its execute. Every argument of execute may go unused.
#define VX_COMMAND_WITH(HandlerClass, command, argumentCount, pending)                       \
    class HandlerClass final : public ::pylnk::PyHandlerBase {                               \
      public:                                                                                \
        void execute(const std::string& name, size_t nlhs, ::pylnk::ReplyPromise* promise,   \
                     size_t nrhs, foundation::veltradata::Array* prhs) override;             \
    };                                                                                       \
    [[maybe_unused]] static const ::pylnk::CommandRow HandlerClass##Row(                     \
        command, argumentCount, ::pylnk::CommandRow::PendingError::pending,                  \
        []() -> ::pylnk::PyHandlerBase* { return new HandlerClass(); });                     \
    void HandlerClass::execute([[maybe_unused]] const std::string& name,                     \
                               [[maybe_unused]] size_t nlhs, ::pylnk::ReplyPromise* promise, \
                               [[maybe_unused]] size_t nrhs,                                 \
                               [[maybe_unused]] foundation::veltradata::Array* prhs)

// Most commands leave an earlier pending error alone.
#define VX_COMMAND(HandlerClass, command, argumentCount) \
    VX_COMMAND_WITH(HandlerClass, command, argumentCount, SetAside)
