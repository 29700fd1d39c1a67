#include "introspection/metadata_caches.h"

namespace pylnk {

// Never destroyed: the Python thread may run a command while the process
// runs its exit handlers.
MetadataCache& classMetadataCache() {
    static auto* cache = new MetadataCache;
    return *cache;
}

MetadataCache& moduleMetadataCache() {
    static auto* cache = new MetadataCache;
    return *cache;
}

}  // namespace pylnk
