// The two metadata caches: bare class or module name -> metadata array.
// Python thread only.
#pragma once

#include <string>
#include <unordered_map>

#include "contracts/host_array.h"

namespace pylnk {

using MetadataCache = std::unordered_map<std::string, foundation::veltradata::Array>;

MetadataCache& classMetadataCache();
MetadataCache& moduleMetadataCache();

}  // namespace pylnk
