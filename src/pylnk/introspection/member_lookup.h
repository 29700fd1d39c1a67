// Finding and classifying the members of a class without running them.
#pragma once

#include <string>

#include "contracts/host_array.h"
#include "contracts/python_bridge.h"

namespace pylnk {

// Text of a Python str; empty for anything else. Never throws and never
// leaves a Python error set.
std::u16string textOfObject(python::pyArray* object);
// The same, narrowed to UTF-8 (type and member names outside ASCII survive).
std::string utf8TextOfObject(python::pyArray* object);

// The raw member (as a class __dict__ stores it, no descriptor run) of name,
// a Python str. Each throws InternalPyException with a fixed text, and with
// no Python error set, when the member cannot be found.
H lookupInClassDict(python::pyArray* cls, python::pyArray* name);
H lookupInMro(python::pyArray* cls, python::pyArray* name);
// The __mro__, then the class's own __dict__, then a plain attribute read.
H lookupClassMember(python::pyArray* cls, python::pyArray* name);

enum class MemberKind { Neither, Method, Property };
// The first inspect predicate that holds decides: isclass (neither),
// isfunction, ismethod, isbuiltin, ismethoddescriptor (method),
// isdatadescriptor, isgetsetdescriptor, ismemberdescriptor (property).
MemberKind classifyMember(H raw);

// A staticmethod or classmethod object, or a builtin / method descriptor
// bound to something (dict.fromkeys through its __self__).
bool isStaticMember(H raw, H bound);

// 1 by 1 struct "name", "getAccess", "setAccess". Only a property object
// can deny access (no getter, no setter).
foundation::veltradata::StructArray buildPropertyEntry(H member, H name);
// The same into element `index` of a row with those fields.
void writePropertyEntry(foundation::veltradata::StructArray& row, size_t index, H member, H name);

}  // namespace pylnk
