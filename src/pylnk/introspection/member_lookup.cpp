#include "introspection/member_lookup.h"

#include <fl/i18n.h>

#include <array>
#include <utility>

#include "base/handler_support.h"

namespace pylnk {

namespace vd = foundation::veltradata;
using pylnk_core::InternalPyException;

std::u16string textOfObject(python::pyArray* object) {
    std::u16string text;
    try {
        text = object::get_ustring(object);
    } catch (...) {
        exception::pyErrorClear();
    }
    return text;
}

std::string utf8TextOfObject(python::pyArray* object) {
    return fl::i18n::to_string(textOfObject(object));
}

namespace {

// The raw member the class's own __dict__ holds, or nothing (and no Python
// error set). Misses are the common case of a walk along the __mro__, so
// they are told by a containment test rather than by a raised KeyError.
H findInClassDict(python::pyArray* cls, const H& name) {
    try {
        H dict = object::pyGetMember(cls, "__dict__");
        H contains = object::pyGetMember(dict.get(), "__contains__");
        if (!primitive::pyBoolGetData(object::pyInvoke(contains.get(), {name}, {}).get())) {
            return {};
        }
        return mapping::pyMappingGetItem(dict.get(), name.get());
    } catch (const InternalPyException&) {
        exception::pyErrorClear();
        return {};
    }
}

}  // namespace

H lookupInClassDict(python::pyArray* cls, python::pyArray* name) {
    H member = findInClassDict(cls, holderOf(name));
    if (!member) {
        throw InternalPyException("Cannot get member from __dict__ of Python class.");
    }
    return member;
}

H lookupInMro(python::pyArray* cls, python::pyArray* name) {
    try {
        const H nameHolder = holderOf(name);
        H mro = object::pyGetMember(cls, "__mro__");
        // The length is read anew each time, as the walk may run Python code.
        for (unsigned long long index = 0; index < sequence::pySequenceLength(mro.get()); ++index) {
            H item = sequence::pyGetItem(mro.get(), index);
            if (H member = findInClassDict(item.get(), nameHolder)) {
                return member;  // the first class in the order wins
            }
        }
        throw InternalPyException("Cannot find member in the __mro__.");
    } catch (...) {
        exception::pyErrorClear();
        throw InternalPyException("Cannot get member from the __mro__.");
    }
}

H lookupClassMember(python::pyArray* cls, python::pyArray* name) {
    try {
        return lookupInMro(cls, name);
    } catch (...) {
    }
    try {
        return lookupInClassDict(cls, name);
    } catch (...) {
    }
    try {
        return object::pyGetMember(cls, name);
    } catch (...) {
        exception::pyErrorClear();
        throw InternalPyException("Cannot get member from the class.");
    }
}

MemberKind classifyMember(H raw) {
    static constexpr std::array<std::pair<const char*, MemberKind>, 8> kTests = {{
        {"isclass", MemberKind::Neither},
        {"isfunction", MemberKind::Method},
        {"ismethod", MemberKind::Method},
        {"isbuiltin", MemberKind::Method},
        {"ismethoddescriptor", MemberKind::Method},
        {"isdatadescriptor", MemberKind::Property},
        {"isgetsetdescriptor", MemberKind::Property},
        {"ismemberdescriptor", MemberKind::Property},
    }};
    for (const auto& [predicate, kind] : kTests) {
        if (object::pyInspect(raw, predicate)) {
            return kind;
        }
    }
    return MemberKind::Neither;
}

bool isStaticMember(H raw, H bound) {
    if (object::pyIsBuiltin(raw.get(), "staticmethod") ||
        object::pyIsBuiltin(raw.get(), "classmethod")) {
        return true;
    }
    if (!object::pyInspect(bound, "ismethoddescriptor") && !object::pyInspect(bound, "isbuiltin")) {
        return false;
    }
    // A builtin or method descriptor counts as static when it is bound to
    // something (a class method of a builtin type is bound to the class).
    try {
        const char* attribute =
            object::pyHasMember(bound.get(), "__self__") ? "__self__" : "im_self";
        // A plain method descriptor (str.join) has neither: not static. Told
        // by the test, as the read would fail the same way at a higher cost.
        if (!object::pyHasMember(bound.get(), attribute)) {
            return false;
        }
        return !object::pyIsNone(object::pyGetMember(bound.get(), attribute).get());
    } catch (const InternalPyException&) {
        exception::pyErrorClear();
        return false;
    }
}

vd::StructArray buildPropertyEntry(H member, H name) {
    vd::StructArray entry = vd::standalone::ArrayFactory().createStructArray(
        {1, 1}, {"name", "getAccess", "setAccess"});
    writePropertyEntry(entry, 0, std::move(member), std::move(name));
    return entry;
}

void writePropertyEntry(vd::StructArray& row, size_t index, H member, H name) {
    vd::standalone::ArrayFactory factory;
    row[index]["name"] = factory.createCharArray(textOfObject(name.get()));
    bool getAccess = true;
    bool setAccess = true;
    H cls = object::pyGetClass(member.get());
    if (type::pyTypeIsBuiltin(cls.get(), "property")) {
        try {
            getAccess = !object::pyIsNone(object::pyGetMember(member.get(), "fget").get());
            setAccess = !object::pyIsNone(object::pyGetMember(member.get(), "fset").get());
        } catch (const InternalPyException&) {
            exception::pyErrorClear();
        }
    }
    row[index]["getAccess"] = factory.createScalar(getAccess);
    row[index]["setAccess"] = factory.createScalar(setAccess);
}

}  // namespace pylnk
