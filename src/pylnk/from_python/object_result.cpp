#include "from_python/object_result.h"

#include <complex>

#include "base/object_registry.h"
#include "base/shared_arrays.h"
#include "introspection/class_metadata.h"

namespace pylnk {

namespace vd = foundation::veltradata;
using pylnk_core::InternalPyException;

namespace {

// "module.Class" for a class the host already has whole; the bare name for a
// builtin class or one whose __module__ is None. Empty when the names cannot
// be read, with no Python error left set.
vd::Array dottedClassName(python::pyArray* cls, python::pyArray* name) {
    vd::ArrayFactory factory;
    try {
        H moduleObject = object::pyGetMember(cls, "__module__");
        std::u16string moduleText =
            object::pyIsNone(moduleObject.get()) ? u"" : object::get_ustring(moduleObject.get());
        const std::u16string nameText = object::get_ustring(name);
        if (moduleText == module::pyGetBuiltinsName()) {
            moduleText.clear();
        } else if (!moduleText.empty()) {
            moduleText += u".";
        }
        return factory.createCharArray(moduleText + nameText);
    } catch (const InternalPyException&) {
        exception::pyErrorClear();
        return sharedEmptyText();
    }
}

}  // namespace

vd::Array scalarDataOf(python::pyArray* object) {
    vd::ArrayFactory factory;
    // The order matters: a bool is also a number.
    if (primitive::pyIsBool(object)) {
        return factory.createScalar(primitive::pyBoolGetData(object));
    }
    if (primitive::pyIsInt(object) && !primitive::pyIsLong(object)) {
        return factory.createScalar(static_cast<std::int64_t>(primitive::pyIntGetData(object)));
    }
    if (primitive::pyIsFloat(object)) {
        return factory.createScalar(primitive::pyFloatGetData(object));
    }
    if (primitive::pyIsComplex(object)) {
        return complexScalarOf(object);
    }
    return sharedEmptyText();
}

vd::Array complexScalarOf(python::pyArray* object) {
    double re = 0;
    double im = 0;
    primitive::pyComplexGetData(object, &re, &im);
    return vd::ArrayFactory().createScalar(std::complex<double>(re, im));
}

vd::Array buildObjectResult(H object, MetadataCache& cache) {
    vd::ArrayFactory factory;
    vd::StructArray result = factory.createStructArray(
        {1, 1}, {"object", "classProperties", "classMetadata", "scalarData"});
    result[0]["object"] = factory.createScalar(objectRegistryRetain(object));
    vd::Array metadata = sharedEmptyText();
    H cls = object::pyGetClass(object.get());
    if (object::pyHasMember(cls.get(), "__name__")) {
        H name = object::pyGetMember(cls.get(), "__name__");
        const std::string className = object::pyGetChars(name.get());
        result[0]["classProperties"] = buildClassProperties(object.get());
        if (!className.empty() && cache.contains(className)) {
            metadata = dottedClassName(cls.get(), name.get());
        } else {
            metadata = buildClassMetadata(name, cls);
            cache[className] = metadata;
        }
        result[0]["classMetadata"] = metadata;
    }
    result[0]["scalarData"] = scalarDataOf(object.get());
    return result;
}

vd::Array buildPropertyResult(H object) {
    vd::ArrayFactory factory;
    vd::StructArray result =
        factory.createStructArray({1, 1}, {"object", "classMetadata", "scalarData"});
    result[0]["object"] = factory.createScalar(objectRegistryRetain(object));
    H cls = object::pyGetClass(object.get());
    if (object::pyHasMember(cls.get(), "__name__")) {
        H name = object::pyGetMember(cls.get(), "__name__");
        result[0]["classMetadata"] = buildBareClassMetadata(name, cls);
    }
    result[0]["scalarData"] = scalarDataOf(object.get());
    return result;
}

}  // namespace pylnk
