
#include "base/handler_support.h"
#include "introspection/class_metadata.h"
#include "introspection/metadata_caches.h"

namespace pylnk {

namespace vd = foundation::veltradata;

// Always builds, and replaces what the cache held for the class's name.
VX_COMMAND(pyGetClassMetaDataHandler, "pyGetClassMetaData", 1) {
    H cls = object::pyGetClass(addressArg(prhs, 0));
    H className = object::pyGetMember(cls.get(), "__name__");
    vd::StructArray metadata = buildClassMetadata(className, cls);
    const std::string key = vd::CharArray(vd::Array(metadata[0]["name"])).toAscii();
    classMetadataCache()[key] = metadata;
    reply(promise, metadata);
}

VX_COMMAND(pyGetClassPropertiesHandler, "pyGetClassProperties", 1) {
    reply(promise, buildClassProperties(addressArg(prhs, 0)));
}

// The predicate's name is the host's: one inspect lacks fails as the call does.
VX_COMMAND(pyInspectFastHandler, "pyInspectFast", 2) {
    H object = holderOf(addressArg(prhs, 0));
    reply(promise, truthValue(object::pyInspect(object, asciiArg(prhs, 1).c_str())));
}

}  // namespace pylnk
