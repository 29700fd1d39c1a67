// The host array library as the commands use it.
#pragma once

#include <foundation/veltradata.h>
