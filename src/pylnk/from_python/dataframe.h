// pandas DataFrames and Series to the host, read in one request: the column
// labels as text, and each column, by its dtype, as numbers, date or
// duration components, strings, or one element result per cell. The host
// assembles its table or timetable from the reply. Python thread only.
#pragma once

#include <string>

#include "contracts/host_array.h"
#include "contracts/python_bridge.h"
#include "introspection/metadata_caches.h"

namespace pylnk {

// Lowers the name in place (the caller's string stays lowered) and tells
// whether it is one of NumPy's integer, float or complex dtype names.
bool isNumericDtypeName(std::string& name);

// A 1 by n string array of the text of each value (str of a non-string, the
// category's value for a category); a missing value is a missing element.
foundation::veltradata::Array buildStringColumn(python::pyArray* values);

// One cell of an object column: struct "ScalarData", "PythonDataType",
// "DataArray". An int, a float, a complex, a bool or a str is copied into
// "ScalarData" (an int beyond 64 bits as its failed read left it, with the
// Python error set); a list or tuple ("SequenceType", a cell of
// object results), a dict ("Dictionary"), a datetime.datetime
// ("DatetimeScalar") or a datetime.timedelta ("DurationScalar") goes one
// level down; anything else, missing values included, is "UnknownType" with
// its object result.
foundation::veltradata::Array buildElementResult(H object, MetadataCache& cache);

// One column of a frame: struct "DataType" (pandas' dtype name),
// "SubDataType" and "DataArray", by the road its dtype takes.
foundation::veltradata::Array buildColumnData(H series, MetadataCache& cache);

// The columns ("0", "1", ... by position, the reset index first) and the
// text of their labels.
// The same with the first date or duration column taken out as row times:
// field "0" of the columns, its label apart.

}  // namespace pylnk
