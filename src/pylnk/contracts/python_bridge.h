// The Python bridge as the commands use it.
#pragma once

#include <pylnk_core/pylnk_core.h>

namespace pyapi = pylnk_core::api;
