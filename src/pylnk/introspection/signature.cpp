#include "introspection/signature.h"

#include <fl/i18n.h>

#include <sstream>
#include <vector>

#include "base/shared_arrays.h"
#include "introspection/member_lookup.h"

namespace pylnk {

namespace vd = foundation::veltradata;
using pylnk_core::InternalPyException;

namespace {

// What inspect says of a callable. Only plain Python functions have a spec:
// a bound method, a builtin, a class or a callable instance has none.
struct SpecReading {
    bool hasFull = false;
    H spec;  // empty: nothing is known of the callable
};

SpecReading readSpec(H object) {
    SpecReading reading;
    H inspect = module::pyCreateModule(u"inspect");
    const std::vector<H> args{object};
    const std::vector<std::pair<H, H>> noKeywords;
    reading.hasFull = object::pyHasMember(inspect.get(), "getfullargspec");
    const bool isFunction = primitive::pyBoolGetData(
        object::pyInvoke(object::pyGetMember(inspect.get(), "isfunction").get(), args, noKeywords)
            .get());
    try {
        if (!reading.hasFull) {
            reading.spec = object::pyInvoke(object::pyGetMember(inspect.get(), "getargspec").get(),
                                            args, noKeywords);
        } else if (isFunction) {
            reading.spec = object::pyInvoke(
                object::pyGetMember(inspect.get(), "getfullargspec").get(), args, noKeywords);
        }
    } catch (...) {
        exception::pyErrorClear();
        reading.spec.reset();
    }
    return reading;
}

std::vector<std::u16string> argumentNames(const SpecReading& reading) {
    std::vector<std::u16string> names;
    if (reading.spec) {
        H args = object::pyGetMember(reading.spec.get(), "args");
        const unsigned long long count = sequence::pySequenceLength(args.get());
        for (unsigned long long i = 0; i < count; ++i) {
            names.push_back(textOfObject(sequence::pyGetItem(args.get(), i).get()));
        }
    }
    return names;
}

// The type names one annotation gives. A broken annotation costs only its
// own names: whatever was found before the failure stays.
std::set<std::string> annotationTypes(python::pyArray* get, const std::u16string& name) {
    std::set<std::string> types;
    try {
        H annotation = object::pyInvoke(get, {primitive::pyCreateString(name)}, {});
        if (object::pyIsNone(annotation.get())) {
            return types;
        }
        if (primitive::pyIsString(annotation.get())) {
            types = splitAnnotationText(utf8TextOfObject(annotation.get()));
        } else if (object::pyHasMember(annotation.get(), "__name__")) {
            types.insert(utf8TextOfObject(object::pyGetMember(annotation.get(), "__name__").get()));
        } else if (type::pyTypeVXName(object::pyGetType(annotation.get()).get()) ==
                   "py.types.UnionType") {
            H typing = module::pyCreateModule(u"typing");
            H members = object::pyInvoke(object::pyGetMember(typing.get(), "get_args").get(),
                                         {annotation}, {});
            const unsigned long long count = sequence::pySequenceLength(members.get());
            for (unsigned long long i = 0; i < count; ++i) {
                H member = sequence::pyGetItem(members.get(), i);
                types.insert(utf8TextOfObject(object::pyGetMember(member.get(), "__name__").get()));
            }
        }
    } catch (...) {
        exception::pyErrorClear();
    }
    return types;
}

// One cell per name, each a 1 by M string array of sorted type names.
vd::Array argumentTypes(const SpecReading& reading, const std::vector<std::u16string>& names) {
    if (!reading.spec) {
        return sharedEmptyCells();
    }
    vd::standalone::ArrayFactory factory;
    std::vector<vd::Array> cells;
    H annotations = object::pyGetMember(reading.spec.get(), "annotations");
    H get = object::pyGetMember(annotations.get(), "get");
    for (const std::u16string& name : names) {
        const std::set<std::string> types = annotationTypes(get.get(), name);
        vd::TypedArray<vd::VELTRAString> list =
            factory.createArray<vd::VELTRAString>({1, types.size()});
        size_t k = 0;
        for (const std::string& typeName : types) {
            list[k++] = typeName;
        }
        cells.push_back(list);
    }
    return factory.createCellArray({1, cells.size()}, cells);
}

std::uint64_t lengthOf(python::pyArray* sequenceObject) {
    return sequence::pySequenceLength(sequenceObject);
}

}  // namespace

void buildSignature(H object, vd::StructArray& target, bool isStatic) {
    buildSignature(std::move(object), target, 0, isStatic);
}

void buildArgTypes(H object, vd::StructArray& target) {
    buildArgTypes(std::move(object), target, 0);
}

void buildSignature(H object, vd::StructArray& target, size_t index, bool isStatic) {
    vd::standalone::ArrayFactory factory;
    const SpecReading reading = readSpec(object);
    python::pyArray* spec = reading.spec.get();
    if (spec == nullptr) {
        // Nothing is known: the host may call it with anything.
        target[index]["argNames"] = sharedUnknownNames();
        target[index]["numArgsDefault"] = sharedZeroCount();
        target[index]["numArgsNoDefault"] = sharedZeroCount();
        target[index]["static"] = sharedLogical(isStatic);
        target[index]["varargs"] = sharedLogical(true);
        target[index]["kwargs"] = sharedLogical(false);
        target[index]["argTypes"] = sharedEmptyCells();
        return;
    }

    const bool varargs = isStatic || !object::pyIsNone(object::pyGetMember(spec, "varargs").get());
    H defaults = object::pyGetMember(spec, "defaults");
    const std::uint64_t withDefault =
        object::pyIsNone(defaults.get()) ? 0 : lengthOf(defaults.get());
    const std::uint64_t withoutDefault =
        lengthOf(object::pyGetMember(spec, "args").get()) - withDefault;

    const std::vector<std::u16string> names = argumentNames(reading);
    const vd::Array types = argumentTypes(reading, names);

    bool kwargs = false;
    if (reading.hasFull) {
        kwargs = !object::pyIsNone(object::pyGetMember(spec, "varkw").get()) ||
                 lengthOf(object::pyGetMember(spec, "kwonlyargs").get()) > 0;
    } else {
        kwargs = !object::pyIsNone(object::pyGetMember(spec, "keywords").get());
    }

    // With no names the list is 1 by 1 with its element left missing.
    vd::TypedArray<vd::VELTRAString> argNames =
        factory.createArray<vd::VELTRAString>({1, names.empty() ? 1 : names.size()});
    for (size_t k = 0; k < names.size(); ++k) {
        argNames[k] = names[k];
    }
    target[index]["argNames"] = argNames;
    target[index]["numArgsDefault"] = factory.createScalar(withDefault);
    target[index]["numArgsNoDefault"] = factory.createScalar(withoutDefault);
    target[index]["static"] = sharedLogical(isStatic);
    target[index]["varargs"] = sharedLogical(varargs);
    target[index]["kwargs"] = sharedLogical(kwargs);
    target[index]["argTypes"] = types;
}

void buildArgTypes(H object, vd::StructArray& target, size_t index) {
    const SpecReading reading = readSpec(object);
    target[index]["argTypes"] = argumentTypes(reading, argumentNames(reading));
}

std::set<std::string> splitAnnotationText(const std::string& text) {
    std::set<std::string> pieces;
    std::istringstream stream(text);
    std::string piece;
    while (std::getline(stream, piece, '|')) {
        std::erase(piece, ' ');
        pieces.insert(piece);
    }
    return pieces;
}

}  // namespace pylnk
