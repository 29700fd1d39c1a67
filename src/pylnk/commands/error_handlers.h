// The host's means of dealing with a Python error left set.
#pragma once

#include "base/py_handler_base.h"

namespace pylnk {

VX_DECLARE_HANDLER(pyErrorClearHandler);
VX_DECLARE_HANDLER(pyErrorOccurredHandler);
VX_DECLARE_HANDLER(pyErrorFetchHandler);

}  // namespace pylnk
