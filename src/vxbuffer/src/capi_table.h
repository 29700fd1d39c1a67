// The static table behind the capsule libvxbuffer._capi.
#pragma once

#include <vxbuffer/capi.h>

namespace vxbuffer {

CApi* capiTable();

}  // namespace vxbuffer
