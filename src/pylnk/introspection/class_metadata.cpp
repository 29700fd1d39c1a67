#include "introspection/class_metadata.h"

#include <fl/i18n.h>

#include <array>
#include <map>

#include "base/object_registry.h"
#include "base/shared_arrays.h"
#include "buffer/buffer_bridge.h"
#include "introspection/member_lookup.h"
#include "introspection/signature.h"

namespace pylnk {

namespace vd = foundation::veltradata;
using pylnk_core::InternalPyException;

namespace {

constexpr std::array<const char*, 5> kCollections = {"Callable", "Sequence", "MutableSequence",
                                                     "Mapping", "MutableMapping"};
constexpr std::array<const char*, 7> kBuiltinTypeWords = {"str", "unicode", "float", "bool",
                                                          "int", "long",    "bytes"};

// Python method name -> host operator name, walked in key order.
const std::map<std::string, std::string>& operatorTable() {
    static const auto* table = new std::map<std::string, std::string>{
        {"__add__", "plus"},  {"__eq__", "eq"},
        {"__ge__", "ge"},     {"__gt__", "gt"},
        {"__le__", "le"},     {"__lt__", "lt"},
        {"__mod__", "mod"},   {"__mul__", "mtimes"},
        {"__ne__", "ne"},     {"__neg__", "uminus"},
        {"__pos__", "uplus"}, {"__pow__", "mpower"},
        {"__sub__", "minus"}, {"__truediv__", "mrdivide"},
    };
    return *table;
}

const std::vector<std::string>& bareClassMetadataFields() {
    static const auto* fields = new std::vector<std::string>{
        "objectAddress", "name",        "moduleName", "docstring", "collections",
        "arrayType",     "builtintype", "properties", "methods",   "operators"};
    return *fields;
}

vd::Array addressOf(H object) {
    return vd::standalone::ArrayFactory().createScalar(objectRegistryRetain(std::move(object)));
}

vd::Array logicalRow(const std::vector<bool>& values) {
    vd::TypedArray<bool> row = vd::standalone::ArrayFactory().createArray<bool>({1, values.size()});
    for (size_t k = 0; k < values.size(); ++k) {
        row[k] = static_cast<bool>(values[k]);
    }
    return row;
}

vd::Array stringRow(const std::vector<std::string>& values) {
    vd::TypedArray<vd::VELTRAString> row =
        vd::standalone::ArrayFactory().createArray<vd::VELTRAString>({1, values.size()});
    for (size_t k = 0; k < values.size(); ++k) {
        row[k] = values[k];
    }
    return row;
}

// Name, module and the class facts that need no member walk: what the full
// and the reduced forms share.
void fillClassFacts(vd::StructArray& metadata, H name, H cls, bool withDocAndBases) {
    vd::standalone::ArrayFactory factory;
    metadata[0]["objectAddress"] = addressOf(cls);
    metadata[0]["name"] = factory.createCharArray(textOfObject(name.get()));
    metadata[0]["moduleName"] = factory.createCharArray(attributeText(cls.get(), "__module__"));
    metadata[0]["docstring"] = factory.createCharArray(
        withDocAndBases ? attributeText(cls.get(), "__doc__") : std::u16string());
    if (withDocAndBases) {
        metadata[0]["bases"] = buildBaseNames(cls);
    }
    std::vector<bool> collections;
    for (const char* collection : kCollections) {
        collections.push_back(type::pyTypeImplementsCollection(cls.get(), collection));
    }
    metadata[0]["collections"] = logicalRow(collections);
    metadata[0]["arrayType"] =
        logicalRow({type::pyTypeIsNumericArray(cls.get()),
                    typeSupportsBufferInterface(cls.get(), object::pyGetChars(name.get()))});
    std::vector<std::string> words;
    for (const char* word : kBuiltinTypeWords) {
        if (type::pyTypeIsBuiltin(cls.get(), word)) {
            words.emplace_back(word);
        }
    }
    metadata[0]["builtintype"] = stringRow(words);
}

// A method entry written into element `index` of the methods row: the
// bound member (or the raw one when the read fails) gives address,
// docstring and signature.
void writeMethodEntry(vd::StructArray& row, size_t index, H cls, H raw, H nameItem) {
    vd::standalone::ArrayFactory factory;
    const std::u16string name16 = textOfObject(nameItem.get());
    const std::string name = fl::i18n::converter<fl::i18n::codecvt_ustring_to_string>(
                                 fl::i18n::codecvt_ustring_to_string("", true))
                                 .convert(name16);
    H bound;
    try {
        bound = object::pyGetMember(cls.get(), name.c_str());
    } catch (const InternalPyException&) {
        exception::pyErrorClear();
        bound = raw;
    }
    const bool isStatic = isStaticMember(raw, bound);
    row[index]["name"] = factory.createCharArray(name16);
    row[index]["objectAddress"] = addressOf(bound);
    row[index]["docstring"] = textArray(attributeText(bound.get(), "__doc__"));
    buildSignature(bound, row, index, isStatic);
}

struct ClassifiedMember {
    H raw;
    H name;
};

}  // namespace

std::u16string attributeText(python::pyArray* owner, const char* attribute) {
    try {
        H value = object::pyGetMember(owner, attribute);
        return object::pyIsNone(value.get()) ? std::u16string() : textOfObject(value.get());
    } catch (...) {
        exception::pyErrorClear();
        return {};
    }
}

vd::Array textArray(const std::u16string& text) {
    return text.empty() ? sharedEmptyText() : vd::standalone::ArrayFactory().createCharArray(text);
}

const std::vector<std::string>& classMetadataFields() {
    static const auto* fields = new std::vector<std::string>{
        "objectAddress", "name",        "moduleName", "docstring", "bases",    "collections",
        "arrayType",     "builtintype", "properties", "methods",   "operators"};
    return *fields;
}

const std::vector<std::string>& methodEntryFields() {
    static const auto* fields = new std::vector<std::string>{
        "objectAddress",    "name",    "docstring", "static",   "argNames", "numArgsDefault",
        "numArgsNoDefault", "varargs", "kwargs",    "operator", "argTypes"};
    return *fields;
}

const std::vector<std::string>& propertyEntryFields() {
    static const auto* fields = new std::vector<std::string>{"name", "getAccess", "setAccess"};
    return *fields;
}

vd::StructArray structRow(const std::vector<std::string>& fields,
                          const std::vector<vd::StructArray>& entries) {
    vd::StructArray row =
        vd::standalone::ArrayFactory().createStructArray({1, entries.size()}, fields);
    for (size_t i = 0; i < entries.size(); ++i) {
        for (const std::string& field : fields) {
            // A field nobody assigned holds what a fresh field holds in
            // either array, so copying it changes nothing.
            row[i][field] = vd::Array(entries[i][0][field]);
        }
    }
    return row;
}

vd::Array buildBaseNames(H cls) {
    H bases = object::pyGetMember(cls.get(), "__bases__");
    const unsigned long long count = sequence::pySequenceLength(bases.get());
    std::vector<std::string> names;
    for (unsigned long long i = 0; i < count; ++i) {
        names.push_back(type::pyTypeVXName(sequence::pyGetItem(bases.get(), i).get()));
    }
    return stringRow(names);
}

void buildOperators(H cls, const std::vector<std::string>& fields,
                    std::vector<vd::StructArray>& list) {
    H operatorModule;
    try {
        operatorModule = module::pyCreateModule(u"operator");
    } catch (...) {
        exception::pyErrorClear();
        return;  // no module: no operators
    }
    vd::standalone::ArrayFactory factory;
    for (const auto& [pythonName, hostName] : operatorTable()) {
        if (!object::pyHasMember(operatorModule.get(), pythonName.c_str()) ||
            !object::pyHasMember(cls.get(), pythonName.c_str())) {
            continue;
        }
        // The operator module's function, not the class's method: the host
        // applies it to its operands and Python dispatches.
        H member;
        try {
            member = object::pyGetMember(operatorModule.get(), pythonName.c_str());
        } catch (...) {
            exception::pyErrorClear();
            continue;
        }
        vd::StructArray entry = factory.createStructArray({1, 1}, fields);
        entry[0]["name"] = factory.createCharArray(hostName);
        entry[0]["objectAddress"] = addressOf(member);
        entry[0]["docstring"] = factory.createCharArray(attributeText(member.get(), "__doc__"));
        buildSignature(member, entry, false);
        list.push_back(entry);
    }
}

vd::StructArray buildClassMetadata(H name, H cls) {
    vd::standalone::ArrayFactory factory;
    vd::StructArray metadata = factory.createStructArray({1, 1}, classMetadataFields());
    fillClassFacts(metadata, name, cls, true);

    H members = object::pyDir(cls.get());
    const unsigned long long count = sequence::pySequenceLength(members.get());
    std::vector<vd::StructArray> operators;
    buildOperators(cls, methodEntryFields(), operators);

    // Classified first, so that each list is made once at its size and the
    // entries are written in place.
    std::vector<ClassifiedMember> properties;
    std::vector<ClassifiedMember> methods;
    for (unsigned long long index = 0; index < count; ++index) {
        H nameItem = sequence::pyGetItem(members.get(), index);
        H raw;
        try {
            raw = lookupClassMember(cls.get(), nameItem.get());
        } catch (...) {
            continue;  // a name dir lists but nothing holds: skipped
        }
        switch (classifyMember(raw)) {
            case MemberKind::Neither:
                break;
            case MemberKind::Property:
                properties.push_back({raw, nameItem});
                break;
            case MemberKind::Method:
                methods.push_back({raw, nameItem});
                break;
        }
    }
    vd::StructArray methodRow = factory.createStructArray({1, methods.size()}, methodEntryFields());
    for (size_t i = 0; i < methods.size(); ++i) {
        writeMethodEntry(methodRow, i, cls, methods[i].raw, methods[i].name);
    }
    vd::StructArray propertyRow =
        factory.createStructArray({1, properties.size()}, propertyEntryFields());
    for (size_t i = 0; i < properties.size(); ++i) {
        writePropertyEntry(propertyRow, i, properties[i].raw, properties[i].name);
    }
    metadata[0]["methods"] = methodRow;
    metadata[0]["operators"] = structRow(methodEntryFields(), operators);
    metadata[0]["properties"] = propertyRow;
    return metadata;
}

vd::StructArray buildBareClassMetadata(H name, H cls) {
    vd::standalone::ArrayFactory factory;
    vd::StructArray metadata = factory.createStructArray({1, 1}, bareClassMetadataFields());
    fillClassFacts(metadata, name, cls, false);
    metadata[0]["properties"] = structRow(propertyEntryFields(), {});
    metadata[0]["methods"] = structRow(methodEntryFields(), {});
    metadata[0]["operators"] = structRow(methodEntryFields(), {});
    return metadata;
}

vd::StructArray buildClassProperties(python::pyArray* object) {
    vd::standalone::ArrayFactory factory;
    if (!object::pyHasMember(object, "__dict__")) {
        // Most results are numbers and builtins without attributes of their own.
        static const auto* none =
            new vd::StructArray(factory.createStructArray({1, 0}, propertyEntryFields()));
        return *none;
    }
    H items = mapping::pyMappingGetItems(object::pyGetMember(object, "__dict__").get());
    const unsigned long long count = sequence::pySequenceLength(items.get());
    vd::StructArray row = factory.createStructArray({1, count}, propertyEntryFields());
    for (unsigned long long i = 0; i < count; ++i) {
        H pair = sequence::pyGetItem(items.get(), i);
        // The pair stands in for the member: it is no property, so every
        // instance attribute is readable and writable.
        writePropertyEntry(row, i, pair, sequence::pyGetItem(pair.get(), 0));
    }
    return row;
}

}  // namespace pylnk
