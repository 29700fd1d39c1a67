// The content of Python strings and mappings as the host reads it: the text
// of any object, the result of a string key or value, and a mapping's keys
// and values one level deep.
#pragma once

#include <string>

#include "contracts/host_array.h"
#include "contracts/python_bridge.h"
#include "introspection/metadata_caches.h"

namespace pylnk {

// The text of a str, or str(object) of anything else.
std::u16string objectToText(python::pyArray* object);

// A 1 by n string array of objectToText of each item of a sequence.
foundation::veltradata::Array buildTextRow(python::pyArray* sequence);

// A 1 by n cell of the object result of each item of a sequence.
foundation::veltradata::Array buildObjectResultRow(python::pyArray* sequence, MetadataCache& cache);

// The four fields of an object result for a str that the host gets by value:
// "object" 0 (nothing is retained), empty "classProperties" and
// "classMetadata", and the text as a 1 by 1 string in "scalarData".
foundation::veltradata::Array buildStringResult(python::pyArray* object);

// Struct "VELTRAPyHost_pyKeyData", "VELTRAPyHost_pyValueData": two 1 by n
// cells in the mapping's item order, each entry the string result of a str
// and the object result of anything else.
foundation::veltradata::Array buildDictionaryData(python::pyArray* mapping, MetadataCache& cache);

}  // namespace pylnk
