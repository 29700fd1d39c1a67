#include "introspection/member_lookup.h"

#include <fl/i18n.h>

#include <array>
#include <utility>

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

H lookupInClassDict(python::pyArray* cls, python::pyArray* name) {
    try {
        H dict = object::pyGetMember(cls, "__dict__");
        return mapping::pyMappingGetItem(dict.get(), name);
    } catch (const InternalPyException&) {
        exception::pyErrorClear();
        throw InternalPyException("Cannot get member from __dict__ of Python class.");
    }
}

H lookupInMro(python::pyArray* cls, python::pyArray* name) {
    try {
        H mro = object::pyGetMember(cls, "__mro__");
        for (unsigned long long index = 0;; ++index) {
            // Read anew each time, as the walk may run Python code.
            if (index >= sequence::pySequenceLength(mro.get())) {
                throw InternalPyException("Cannot find member in the __mro__.");
            }
            H item = sequence::pyGetItem(mro.get(), index);
            try {
                return lookupInClassDict(item.get(), name);
            } catch (const InternalPyException&) {
                // Not in this class: the next one in the order may hold it.
            }
        }
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
        return !object::pyIsNone(object::pyGetMember(bound.get(), attribute).get());
    } catch (const InternalPyException&) {
        exception::pyErrorClear();
        return false;
    }
}

vd::StructArray buildPropertyEntry(H member, H name) {
    vd::standalone::ArrayFactory factory;
    vd::StructArray entry = factory.createStructArray({1, 1}, {"name", "getAccess", "setAccess"});
    entry[0]["name"] = factory.createCharArray(textOfObject(name.get()));
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
    entry[0]["getAccess"] = factory.createScalar(getAccess);
    entry[0]["setAccess"] = factory.createScalar(setAccess);
    return entry;
}

}  // namespace pylnk
