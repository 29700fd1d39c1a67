// Describing a class to the host: its metadata, an object's own attributes,
// and one inspect predicate.
#pragma once

#include "base/py_handler_base.h"

namespace pylnk {

VX_DECLARE_HANDLER(pyGetClassMetaDataHandler);
VX_DECLARE_HANDLER(pyGetClassPropertiesHandler);
VX_DECLARE_HANDLER(pyInspectFastHandler);

}  // namespace pylnk
