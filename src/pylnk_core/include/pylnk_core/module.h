// Modules.
#pragma once

#include <string>

#include "pylnk_core/types.h"

namespace pylnk_core::api::module {

// Imports the module of that dotted name and returns it (the submodule itself
// for a dotted name). Raises as the import raises.
PyHolder pyCreateModule(const std::u16string& name);
// The builtins module.
PyHolder pyCreateBuiltinsModule();
// u"builtins": what a builtin class's __module__ holds.
std::u16string pyGetBuiltinsName();
// int(object)
PyHolder pyInvokeInt(python::pyArray* object);
// isinstance(object, types.ModuleType)
bool pyIsModule(python::pyArray* object);

}  // namespace pylnk_core::api::module
