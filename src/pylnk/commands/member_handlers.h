// Attributes and mapping items; the name is text or the address of a
// Python object.
#pragma once

#include "base/py_handler_base.h"

namespace pylnk {

VX_DECLARE_HANDLER(pyHasMemberHandler);
VX_DECLARE_HANDLER(pyGetMemberHandler);
VX_DECLARE_HANDLER(pySetMemberHandler);
VX_DECLARE_HANDLER(pyGetKeyHandler);
VX_DECLARE_HANDLER(pySetKeyHandler);

}  // namespace pylnk
