// Scalars, text, numeric arrays, dates and durations.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "pylnk_core/types.h"

namespace pylnk_core::api::primitive {

PyHolder pyCreateNone();
PyHolder pyCreateBool(bool value);
// Python ints; each takes the whole range of its argument.
PyHolder pyCreateInt(long value);
PyHolder pyCreateLong(long long value);
PyHolder pyCreateULong(unsigned long long value);
PyHolder pyCreateFloat(double value);
PyHolder pyCreateComplex(double re, double im);
// A str from UTF-8 (raises for malformed UTF-8) or from UTF-16 (unpaired
// surrogates are kept as they are, so the text comes back unchanged).
PyHolder pyCreateString(const std::string& text);
PyHolder pyCreateString(const std::u16string& text);

// isinstance(object, bool)
bool pyIsBool(python::pyArray* object);
// isinstance(object, float); subclasses such as numpy.float64 count.
bool pyIsFloat(python::pyArray* object);
// isinstance(object, complex)
bool pyIsComplex(python::pyArray* object);
// isinstance(object, str)
bool pyIsString(python::pyArray* object);
// A Python int, bool excluded.
bool pyIsLong(python::pyArray* object);
// Always false. Python 3 has a single integer type, which pyIsLong tests;
// callers take their narrow-integer path only when pyIsInt is true and
// pyIsLong false, and that path never applies.
bool pyIsInt(python::pyArray* object);

// The next five reads report a failure by leaving the Python error set and
// returning, never by throwing: callers ask pyErrorOccurred afterwards.
// Out-parameters are left untouched on failure.

// Truth of the object (bool(object)); false on failure.
bool pyBoolGetData(python::pyArray* object);
// A float, an int or anything with __float__/__index__; NaN on failure.
double pyFloatGetData(python::pyArray* object);
// A complex, or a number with __complex__, __float__ or __index__.
void pyComplexGetData(python::pyArray* object, double* re, double* im);
// An int or anything with __index__, within 64 bits; out of range fails.
void pyLongGetData(python::pyArray* object, long long* value);
void pyLongGetDataU(python::pyArray* object, unsigned long long* value);

// An int or anything with __index__, within the range of long (64 bits
// here). Follows the default rule: raises on failure.
long pyIntGetData(python::pyArray* object);
// UTF-8 text of a str, as object::pyGetChars.
const char* pyStringGetData(python::pyArray* object);

// array.array(typeCode) holding a copy of byteCount bytes at data. The data
// stays the caller's. Raises for an unknown type code or a byte count that is
// not a whole number of items.
PyHolder pyCreateNumericArray(std::size_t byteCount, char typeCode, void* data);
// The data of any object with a contiguous buffer (array.array, bytes, a
// contiguous NumPy array): its size in bytes, item size, item format
// character (byte-order prefix dropped) and address. The address stays valid
// while the object lives and is not resized. Raises for an object without a
// contiguous buffer and for items in the other byte order; out-parameters are
// then untouched.
void pyNumericArrayGetData(python::pyArray* object, std::size_t* byteLength, long* itemSize,
                           char* typeCode, void** data);

// datetime.datetime from seven components: year, month, day, hour, minute
// (whole numbers), second (may carry a fraction) and milliseconds (may carry
// a fraction, kept to the microsecond). The flag makes the result aware in
// UTC; without it the result is naive. Raises for anything but seven finite
// components that make a valid date.
PyHolder pyCreateDatetime(std::vector<double>& components, bool utc);
// A numpy.datetime64 array from date texts as NumPy parses them
// ("2024-02-29T10:30:00.125", "NaT"), with the shape dims[0..ndims) filled in
// column-major order. The unit is the finest the texts need, milliseconds
// when they give none (all NaT or empty).
PyHolder pyCreateDatetime64(std::vector<std::string>& values, std::size_t numel, std::size_t ndims,
                            const std::size_t* dims);
// datetime.timedelta of a number of milliseconds.
PyHolder pyCreateTimedelta(double milliseconds);
// A numpy.timedelta64 array from numel durations in milliseconds, with the
// shape dims[0..ndims) filled in column-major order. The unit is ms when every
// value is whole, otherwise us (rounded). NaN and infinities become NaT.
PyHolder pyCreateTimedelta64(double* values, std::size_t numel, std::size_t ndims,
                             const std::size_t* dims);

}  // namespace pylnk_core::api::primitive
