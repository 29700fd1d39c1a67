// Command name -> handler object and row, built once on the Python thread.
#pragma once

#include <string>
#include <unordered_map>

#include "base/py_handler_base.h"

namespace pylnk {

struct HandlerEntry {
    PyHandlerBase* handler;
    const CommandRow* row;
};

using HandlerTable = std::unordered_map<std::string, HandlerEntry>;

// Makes the handler of every command row and enters it under its name. The
// handlers live to the end of the process.
void buildHandlerTable(HandlerTable& table);

}  // namespace pylnk
