// The description of a Python class from which the host builds a class of
// its own: name, module, bases, collections, properties, methods, operators.
#pragma once

#include <string>
#include <vector>

#include "contracts/host_array.h"
#include "contracts/python_bridge.h"

namespace pylnk {

// The full class metadata; name is the Python str the caller names the
// class by (its __name__, or the key a module holds it under).
foundation::veltradata::StructArray buildClassMetadata(H name, H cls);
// The reduced form: no bases, no docstring, no member walk.
foundation::veltradata::StructArray buildBareClassMetadata(H name, H cls);
// The attributes of the object's own __dict__, in insertion order.
foundation::veltradata::StructArray buildClassProperties(python::pyArray* object);
// pyTypeVXName of each of the class's __bases__.
foundation::veltradata::Array buildBaseNames(H cls);
// The host operators the class supports, as functions of the operator module.
void buildOperators(H cls, const std::vector<std::string>& fields,
                    std::vector<foundation::veltradata::StructArray>& list);

// Text of an attribute such as __module__ or __doc__: empty for None and on
// any failure, which leaves no Python error set.
std::u16string attributeText(python::pyArray* owner, const char* attribute);
// A char array of the text; every empty text is one shared array.
foundation::veltradata::Array textArray(const std::u16string& text);

// Field lists shared with the module metadata.
const std::vector<std::string>& classMetadataFields();
const std::vector<std::string>& methodEntryFields();
const std::vector<std::string>& propertyEntryFields();

// Copies one-element entries into one 1 by n struct array with these fields.
foundation::veltradata::StructArray structRow(
    const std::vector<std::string>& fields,
    const std::vector<foundation::veltradata::StructArray>& entries);

}  // namespace pylnk
