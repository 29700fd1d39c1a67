// Command name -> handler object, built once on the Python thread.
#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>

namespace pylnk {

class PyHandlerBase;

using HandlerTable = std::unordered_map<std::string, PyHandlerBase*>;

// Allocates one handler per command of the table and inserts it. The
// handlers live to the end of the process.
void buildHandlerTable(HandlerTable& table);

// How many arguments the handler of a command reads (at least): a request
// with fewer is refused before the handler reads past them.
size_t argumentsOf(const std::string& command);

}  // namespace pylnk
