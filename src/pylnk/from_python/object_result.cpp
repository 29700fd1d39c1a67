#include "from_python/object_result.h"

#include <complex>
#include <optional>
#include <string_view>
#include <unordered_map>

#include "base/handler_support.h"
#include "base/object_registry.h"
#include "base/shared_arrays.h"
#include "introspection/class_metadata.h"

namespace pylnk {

namespace vd = foundation::veltradata;
using pylnk_core::InternalPyException;

namespace {

// The dotted name of a class, with the texts it was made of, found by the
// class's address. The texts are compared on each use: a class of Python code
// may be renamed or moved, and a new class may take the address of one that
// died (which is why no reference is needed to keep the class alive).
struct DottedName {
    std::string name;
    std::optional<std::string> module;  // none: __module__ was None
    vd::Array text;
};

// Python thread only. Bounded, since classes may be made without end.
std::unordered_map<python::pyArray*, DottedName>& dottedNames() {
    static auto* names = new std::unordered_map<python::pyArray*, DottedName>;
    return *names;
}
constexpr size_t kDottedNamesKept = 1024;

// The UTF-8 text of a str, none for anything else, with no error left set.
std::optional<std::string_view> utf8Of(python::pyArray* text) {
    try {
        return object::pyGetChars(text);
    } catch (const InternalPyException&) {
        exception::pyErrorClear();
        return std::nullopt;
    }
}

bool madeOf(const DottedName& dotted, const std::string& name, python::pyArray* module) {
    if (dotted.name != name) {
        return false;
    }
    if (object::pyIsNone(module)) {
        return !dotted.module;
    }
    return dotted.module && utf8Of(module) == std::string_view(*dotted.module);
}

// "module.Class" for a class the host already has whole; the bare name for a
// builtin class or one whose __module__ is None. Empty when the names cannot
// be read, with no Python error left set. `className` is the text of `name`.
vd::Array dottedClassName(python::pyArray* cls, python::pyArray* name,
                          const std::string& className) {
    try {
        const pylnk_core::api::PyOwned moduleObject = object::pyGetMemberOwned(cls, "__module__");
        auto& known = dottedNames();
        if (auto found = known.find(cls);
            found != known.end() && madeOf(found->second, className, moduleObject.get())) {
            return found->second.text;
        }
        const bool noModule = object::pyIsNone(moduleObject.get());
        std::u16string moduleText = noModule ? u"" : object::get_ustring(moduleObject.get());
        const std::u16string nameText = object::get_ustring(name);
        if (moduleText == module::pyGetBuiltinsName()) {
            moduleText.clear();
        } else if (!moduleText.empty()) {
            moduleText += u".";
        }
        vd::Array text = vd::ArrayFactory().createCharArray(moduleText + nameText);
        const std::optional<std::string_view> moduleUtf8 =
            noModule ? std::optional<std::string_view>() : utf8Of(moduleObject.get());
        if (noModule || moduleUtf8) {
            if (known.size() >= kDottedNamesKept) {
                known.clear();
            }
            known[cls] = {className,
                          moduleUtf8 ? std::optional<std::string>(*moduleUtf8) : std::nullopt,
                          text};
        }
        return text;
    } catch (const InternalPyException&) {
        exception::pyErrorClear();
        return sharedEmptyText();
    }
}

// Every object result is a copy of this one: its field list is made once.
const vd::Array& emptyObjectResult() {
    static const auto* result = new vd::Array(vd::ArrayFactory().createStructArray(
        {1, 1}, {"object", "classProperties", "classMetadata", "scalarData"}));
    return *result;
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
    return buildObjectResult(object.get(), cache);
}

vd::Array buildObjectResult(python::pyArray* object, MetadataCache& cache) {
    vd::StructArray result(emptyObjectResult());
    result[0]["object"] = uint64Value(objectRegistryRetain(object));
    pylnk_core::api::PyOwned cls = object::pyGetClassOwned(object);
    if (object::pyHasMember(cls.get(), "__name__")) {
        pylnk_core::api::PyOwned name = object::pyGetMemberOwned(cls.get(), "__name__");
        const std::string className = object::pyGetChars(name.get());
        result[0]["classProperties"] = buildClassProperties(object);
        if (!className.empty() && cache.contains(className)) {
            result[0]["classMetadata"] = dottedClassName(cls.get(), name.get(), className);
        } else {
            vd::Array metadata = buildClassMetadata(H(std::move(name)), H(std::move(cls)));
            cache[className] = metadata;
            result[0]["classMetadata"] = std::move(metadata);
        }
    }
    result[0]["scalarData"] = scalarDataOf(object);
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
