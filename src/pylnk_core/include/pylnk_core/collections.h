// Sequences, tuples and mappings.
#pragma once

#include <utility>
#include <vector>

#include "pylnk_core/types.h"

namespace pylnk_core::api::sequence {

// The sequence protocol test (list, tuple, str, array, ndarray; not dict).
bool pyIsSequence(python::pyArray* object);
// len(object); works on any sized object.
unsigned long long pySequenceLength(python::pyArray* object);
// object[index] through the sequence protocol; past the end raises IndexError.
PyHolder pyGetItem(python::pyArray* object, unsigned long long index);
// isinstance(object, tuple)
bool pyTupleCheck(python::pyArray* object);
// A tuple of these objects; the tuple takes its own references.
PyHolder pyTupleCreate(const std::vector<PyHolder>& items);
// A tuple of `size` items, each None until set with pyTupleSetValue, so that
// a partly filled tuple is always safe to read and to release.
PyHolder pyTupleCreateSize(unsigned long long size);
// Sets an item of a tuple that pyTupleCreateSize made. The tuple takes a
// reference of its own; the caller's reference to value is untouched. A tuple
// is immutable once shared, so this raises SystemError when anything but the
// caller holds the tuple.
void pyTupleSetValue(python::pyArray* tuple, unsigned long long index, python::pyArray* value);
// list.pop(index)
PyHolder pyPopItemFromList(python::pyArray* list, long index);

}  // namespace pylnk_core::api::sequence

namespace pylnk_core::api::mapping {

// isinstance(object, dict)
bool pyIsDict(python::pyArray* object);
// True for instances of collections.abc.Mapping (dict, mappingproxy,
// OrderedDict, ...) and for other objects that offer item access by key
// without being sequences.
bool pyIsMapping(python::pyArray* object);
PyHolder pyCreateDict();
// A dict of the (key, value) pairs, later pairs winning on equal keys.
PyHolder pyCreateDict(const std::vector<std::pair<PyHolder, PyHolder>>& items);
// mapping[key]; raises KeyError for a missing key.
PyHolder pyMappingGetItem(python::pyArray* mapping, python::pyArray* key);
// list(mapping.items()): (key, value) tuples in the mapping's own order. Works
// on read-only mapping views such as a class's __dict__.
PyHolder pyMappingGetItems(python::pyArray* mapping);
// mapping[key] = value
void pyMappingSetKey(python::pyArray* mapping, python::pyArray* key, python::pyArray* value);

}  // namespace pylnk_core::api::mapping
