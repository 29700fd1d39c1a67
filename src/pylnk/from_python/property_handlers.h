// Attribute reads that answer with an object result in one round trip.
#pragma once

#include "base/py_handler_base.h"

namespace pylnk {

VX_DECLARE_HANDLER(pyGetPropertyValueFastHandler);
// The command pyGetPropertyStruct.
VX_DECLARE_HANDLER(pyGetPropertyValueStructHandler);

}  // namespace pylnk
