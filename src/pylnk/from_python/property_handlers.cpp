
#include <algorithm>

#include "base/handler_support.h"
#include "from_python/object_result.h"

namespace pylnk {

namespace vd = foundation::veltradata;

// An empty name stands for the object itself.
VX_COMMAND(pyGetPropertyValueFastHandler, "pyGetPropertyValueFast", 2) {
    python::pyArray* target = addressArg(prhs, 0);
    const vd::CharArray attribute(prhs[1]);
    H value = attribute.isEmpty() ? holderOf(target)
                                  : object::pyGetMember(target, attribute.toAscii().c_str());
    reply(promise, buildObjectResult(value, classMetadataCache()));
}

// The struct's values name the attributes; attributes the object lacks are
// skipped. A name given twice is answered once: a struct cannot hold a field
// twice, so the first wins.
VX_COMMAND(pyGetPropertyValueStructHandler, "pyGetPropertyStruct", 2) {
    python::pyArray* target = addressArg(prhs, 0);
    const vd::StructArray request(prhs[1]);
    std::vector<std::string> names;
    for (const auto& field : request.getFieldNames()) {
        const std::string attribute =
            vd::CharArray(vd::Array(request[0][std::string(field)])).toAscii();
        if (object::pyHasMember(target, attribute.c_str()) &&
            std::find(names.begin(), names.end(), attribute) == names.end()) {
            names.push_back(attribute);
        }
    }
    vd::StructArray result = vd::ArrayFactory().createStructArray({1, 1}, names);
    for (const std::string& attribute : names) {
        result[0][attribute] = buildPropertyResult(object::pyGetMember(target, attribute.c_str()));
    }
    reply(promise, result);
}

}  // namespace pylnk
