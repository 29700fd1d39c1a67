// Command name -> handler object, built once on the Python thread.
#pragma once

#include <string>
#include <unordered_map>

namespace pylnk {

class PyHandlerBase;

using HandlerTable = std::unordered_map<std::string, PyHandlerBase*>;

// Allocates one handler per command of the table and inserts it. The
// handlers live to the end of the process.
void buildHandlerTable(HandlerTable& table);

}  // namespace pylnk
