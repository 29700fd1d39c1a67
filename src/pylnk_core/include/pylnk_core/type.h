// Tests and names of classes. Every test answers false, with no error set,
// when its argument is not a class.
#pragma once

#include <cstddef>
#include <string>

#include "pylnk_core/types.h"

namespace pylnk_core::api::type {

// "py." + module + "." + __name__, or "py." + __name__ for a class of the
// builtins module: "py.list", "py.datetime.datetime", "py.numpy.ndarray".
std::string pyTypeVXName(python::pyArray* type);
// type is builtins.<name> itself (subclasses do not count). A name that the
// builtins module does not hold ("unicode", "long") answers false.
bool pyTypeIsBuiltin(python::pyArray* type, const char* name);
// issubclass(type, collections.abc.<name>); an unknown name answers false.
bool pyTypeImplementsCollection(python::pyArray* type, const char* name);
// type is array.array, the class of pyCreateNumericArray's objects.
bool pyTypeIsNumericArray(python::pyArray* type);
// type is pandas.Series. Never imports pandas: without pandas loaded no
// object can be a Series.
bool pyTypeIsPandasSeries(python::pyArray* type);
// issubclass(type, base)
bool pyTypeIsSubclass(python::pyArray* type, python::pyArray* base);
// Classes that stay out of the buffer path, by bare class name: "bytes" and
// "bytearray", which reach the host as bytes or text, not as uint8 arrays.
bool pyIsExcludedTypeForBuffer(const char* typeName);
// Every item of the sequence is a datetime.datetime (subclasses count). On
// false, place is the 0-based index of the first item that is not; on true
// it is left as it was. An empty sequence answers true. Raises for an object
// that cannot be iterated.
bool pyEachObjTypeOfListIsDatetime(python::pyArray* list, std::size_t& place);
// The same for datetime.timedelta.
bool pyEachObjTypeOfListIsTimeDelta(python::pyArray* list, std::size_t& place);

}  // namespace pylnk_core::api::type
