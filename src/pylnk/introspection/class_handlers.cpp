#include "introspection/class_handlers.h"

#include "introspection/class_metadata.h"
#include "introspection/metadata_caches.h"
#include "base/handler_support.h"

namespace pylnk {

namespace vd = foundation::veltradata;

// Always builds, and replaces what the cache held for the class's name.
VX_EXECUTE(pyGetClassMetaDataHandler) {
    H cls = object::pyGetClass(addressArg(prhs, 0));
    H className = object::pyGetMember(cls.get(), "__name__");
    vd::StructArray metadata = buildClassMetadata(className, cls);
    const std::string key = vd::CharArray(vd::Array(metadata[0]["name"])).toAscii();
    classMetadataCache()[key] = metadata;
    reply(promise, metadata);
}

VX_EXECUTE(pyGetClassPropertiesHandler) {
    reply(promise, buildClassProperties(addressArg(prhs, 0)));
}

// The predicate's name is the host's: one inspect lacks fails as the call does.
VX_EXECUTE(pyInspectFastHandler) {
    H object = holderOf(addressArg(prhs, 0));
    reply(promise, truthValue(object::pyInspect(object, asciiArg(prhs, 1).c_str())));
}

}  // namespace pylnk
