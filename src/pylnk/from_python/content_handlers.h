// The content of a sequence, a mapping, a string or a buffer the host holds
// by address, one level deep: elements become object results, numbers or
// text, never a further walk.
#pragma once

#include "base/py_handler_base.h"

namespace pylnk {

// A 1 by n cell of object results.
VX_DECLARE_HANDLER(pyConvertSequenceToCellHandler);
// Struct "complexity", "values", "exceptionPosition": the numbers of a
// sequence, or the place of the first element that could not be read.
VX_DECLARE_HANDLER(pyConvertSequenceToNumericArrayHandler);
// str of each element of a list or tuple (1 by n), of anything else (1 by 1).
VX_DECLARE_HANDLER(pyConvertToStringHandler);
// A field per str key up to the first key that is not a str.
VX_DECLARE_HANDLER(pyConvertMappingToStructHandler);
VX_DECLARE_HANDLER(pyConvertMappingToDictionaryHandler);
// The same reply as pyConvertMappingToDictionary.
VX_DECLARE_HANDLER(pyDictGetDataHandler);
// A copy of an object's contiguous numeric data as a 1 by n array.
VX_DECLARE_HANDLER(pyNumericConversionHandler);
VX_DECLARE_HANDLER(pyStringGetStringHandler);
// The text of many strings, one struct field each, in one request.
VX_DECLARE_HANDLER(pyStringGetStringArrayHandler);
VX_DECLARE_HANDLER(pyGetBytesHandler);

}  // namespace pylnk
