// Object references: the registry's commands, look-up by name, type, text,
// directory, comparison, hash, type tests and modules.
#pragma once

#include "base/py_handler_base.h"

namespace pylnk {

VX_DECLARE_HANDLER(AddRefHandler);
VX_DECLARE_HANDLER(ReleaseHandler);
VX_DECLARE_HANDLER(pyFetchHandler);
VX_DECLARE_HANDLER(pyGetTypeHandler);
VX_DECLARE_HANDLER(pyStrHandler);
VX_DECLARE_HANDLER(pyDirHandler);
VX_DECLARE_HANDLER(pyEqHandler);
VX_DECLARE_HANDLER(pyGetHashHandler);
VX_DECLARE_HANDLER(pyIsInstanceHandler);
VX_DECLARE_HANDLER(pyIsSubclassHandler);
VX_DECLARE_HANDLER(pyIsCallableHandler);
VX_DECLARE_HANDLER(pyIsTypeHandler);
VX_DECLARE_HANDLER(pyIsModuleHandler);
VX_DECLARE_HANDLER(pyCreateModuleHandler);
VX_DECLARE_HANDLER(pyCreateModuleExceptionHandler);
VX_DECLARE_HANDLER(pyCreateBuiltinModuleHandler);
VX_DECLARE_HANDLER(pyGetBuiltinsNameHandler);

}  // namespace pylnk
