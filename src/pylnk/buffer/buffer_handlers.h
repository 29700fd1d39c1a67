// Commands over the buffer layer.
#pragma once

#include "base/py_handler_base.h"

namespace pylnk {

VX_DECLARE_HANDLER(pyCreateBufferHandler);
VX_DECLARE_HANDLER(pyIsColumnMajorHandler);
VX_DECLARE_HANDLER(pyCreateMemoryViewHandler);
VX_DECLARE_HANDLER(pyTypeSupportsBufferInterfaceHandler);
VX_DECLARE_HANDLER(pyCheckBufferHandler);
VX_DECLARE_HANDLER(pyBufferGetDataHandler);
VX_DECLARE_HANDLER(pyBufferGetFormatHandler);
VX_DECLARE_HANDLER(pyGetBufferDataInQLOrderHandler);

}  // namespace pylnk
