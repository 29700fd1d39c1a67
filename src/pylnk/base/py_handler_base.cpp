#include "base/py_handler_base.h"

#include <utility>

namespace pylnk {

namespace {

// Constant-initialised, so rows that register while the library is loaded
// find it ready whatever the order of their files.
const CommandRow* commandRows = nullptr;

}  // namespace

PyHandlerBase::PyHandlerBase() : api(pylnk_core::loader::getAPI()) {}
PyHandlerBase::~PyHandlerBase() = default;

CommandRow::CommandRow(const char* name, size_t arguments, PendingError pendingError,
                       PyHandlerBase* (*makeHandler)())
    : name(name),
      arguments(arguments),
      pendingError(pendingError),
      makeHandler(makeHandler),
      next(std::exchange(commandRows, this)) {}

const CommandRow* firstCommandRow() {
    return commandRows;
}

}  // namespace pylnk
