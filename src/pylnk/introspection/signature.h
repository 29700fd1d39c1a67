// A callable's signature as the host's structure, derived through inspect.
#pragma once

#include <set>
#include <string>

#include "contracts/host_array.h"
#include "contracts/python_bridge.h"

namespace pylnk {

// Writes element 0's "argNames", "numArgsDefault", "numArgsNoDefault",
// "static", "varargs", "kwargs", "argTypes" of target, which has them.
// Only plain Python functions have a spec; anything else gets the answer
// that lets the host call it with anything.
void buildSignature(H object, foundation::veltradata::StructArray& target, bool isStatic);
// Writes only "argTypes": one string array of type names per named argument.
void buildArgTypes(H object, foundation::veltradata::StructArray& target);
// The same into element `index` of a row of entries.
void buildSignature(H object, foundation::veltradata::StructArray& target, size_t index,
                    bool isStatic);
void buildArgTypes(H object, foundation::veltradata::StructArray& target, size_t index);
// "int | None" -> {"None", "int"}: pieces between '|' with blanks removed.
std::set<std::string> splitAnnotationText(const std::string& text);

}  // namespace pylnk
