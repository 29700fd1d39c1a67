// The result of the fast path: one reply carries an object's address, its
// class description and, for a plain number or truth value, the value.
#pragma once

#include "contracts/host_array.h"
#include "contracts/python_bridge.h"
#include "introspection/metadata_caches.h"

namespace pylnk {

// Struct "object", "classProperties", "classMetadata", "scalarData". The
// object is retained for the host. The first object of a class carries the
// full class metadata (and the cache remembers the class by its bare name);
// later ones carry only "module.Class" (or the bare name of a builtin).
foundation::veltradata::Array buildObjectResult(H object, MetadataCache& cache);
// The same for an object that the caller keeps alive through the call.
foundation::veltradata::Array buildObjectResult(python::pyArray* object, MetadataCache& cache);

// Struct "object", "classMetadata" (the reduced form, built every time,
// no cache), "scalarData".
foundation::veltradata::Array buildPropertyResult(H object);

// The value of a bool, float or complex as a 1 by 1 LOGICAL, DOUBLE or
// COMPLEX_DOUBLE; an empty char array for anything else (a Python int
// included: it stays an object address).
foundation::veltradata::Array scalarDataOf(python::pyArray* object);

// A Python complex as a 1 by 1 COMPLEX_DOUBLE.
foundation::veltradata::Array complexScalarOf(python::pyArray* object);

}  // namespace pylnk
