#include "introspection/metadata_caches.h"

namespace pylnk {

MetadataCache& classMetadataCache() {
    static MetadataCache cache;
    return cache;
}

MetadataCache& moduleMetadataCache() {
    static MetadataCache cache;
    return cache;
}

}  // namespace pylnk
