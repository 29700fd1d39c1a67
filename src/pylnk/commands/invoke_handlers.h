// Calls on objects the host has built already.
#pragma once

#include "base/py_handler_base.h"

namespace pylnk {

VX_DECLARE_HANDLER(pyInvokeHandler);
VX_DECLARE_HANDLER(pyInvokeIntHandler);
VX_DECLARE_HANDLER(pyInvokeUIntHandler);
// pyInvoke answering with the whole object result of the returned value.
VX_DECLARE_HANDLER(pyInvokeFastHandler);
// pyInvokeFast with host arrays as arguments: a cell of positional arguments
// and a struct of keyword arguments, converted here.
VX_DECLARE_HANDLER(pyInvokeFastInputHandler);

}  // namespace pylnk
