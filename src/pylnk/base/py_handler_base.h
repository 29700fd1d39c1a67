// The common shape of every command handler.
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

}  // namespace pylnk

// Declares the handler class of one command: `<command>Handler`.
#define VX_DECLARE_HANDLER(ClassName)                                                      \
    class ClassName final : public ::pylnk::PyHandlerBase {                                \
      public:                                                                              \
        void execute(const std::string& name, size_t nlhs, ::pylnk::ReplyPromise* promise, \
                     size_t nrhs, foundation::veltradata::Array* prhs) override;           \
    }
