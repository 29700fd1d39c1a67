// The description of a Python module: its own classes, its callables, its
// plain values, and the classes it shows under another name or from another
// module. Kept by module name in moduleMetadataCache.
#pragma once

#include "contracts/host_array.h"
#include "contracts/python_bridge.h"

namespace pylnk {

// Walks the module's __dict__ in its order. On failure nothing that the walk
// registered stays registered.
foundation::veltradata::StructArray buildModuleMetadata(H module);
// Builds the metadata and keeps it in moduleMetadataCache under its "name".
// An object without a __name__ entry gets an empty name and is not kept.
foundation::veltradata::StructArray cacheModuleMetadata(H module);

}  // namespace pylnk
