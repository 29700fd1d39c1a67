// pandas and NumPy objects: the columns, frames and string data of tables.
//
// Every operation imports what it needs when it runs (a lookup once the
// module is loaded); an import that fails raises like any other failure:
// InternalPyException with the Python error left set.
#pragma once

#include "pylnk_core/types.h"

namespace pylnk_core::api::dataframe {

// pandas.DataFrame(columns), columns a dict of label to Series; an empty dict
// gives an empty frame.
PyHolder pyCreateDataFrame(PyHolder columns);
// pandas.Series(column): a one-dimensional array, a Series (kept as it is),
// a Categorical, a tuple of objects.
PyHolder pyCreatePandasSeriesForDataFrameColumn(PyHolder column);
// A Series of the "string" dtype from a tuple of str and None; None becomes
// pandas.NA, a missing value (isna() is true there).
PyHolder pyCreatePandasSeriesOfDTypeString(PyHolder items);
// pandas.Categorical of a tuple of str and None; None becomes a missing value
// (code -1), never a category.
PyHolder pyCreatePandasCategoricalArray(PyHolder items);
// numpy.asarray(value): a Python scalar gives a 0-d array; an object with a
// buffer (array.array, a buffer object) an array over the same memory.
PyHolder pyCreateNumpyAsArray(PyHolder value);
// The data as a one-dimensional NumPy array in column-major order, the
// host's element order: a view, not a copy, when the data is column-major
// already.
PyHolder pyFlattenNumpyData(python::pyArray* data);
// data.tolist() of an array, a Series or an extension array (list(data)
// when it has no tolist), with Python's own scalars: a Series or an
// extension array goes through an object array first (pandas.NA and other
// missing values stay as they are).
PyHolder pyConvertNumPyDataToList(python::pyArray* data);
// series.to_frame()
PyHolder pyConvertPandasSeriesToPandasDataFrame(python::pyArray* series);
// frame.reset_index() of a shallow copy: a new frame, the index as its
// first column(s), over the same column data (nothing is copied, and the
// given frame keeps its index). Raises TypeError for anything but a
// DataFrame.
PyHolder pyResetIndexOfDataFrame(python::pyArray* frame);
// frame.set_index(label): a new frame indexed by the column of that label.
PyHolder pySetDataFrameIndex(python::pyArray* frame, PyHolder label);
// A new frame over the same data whose column labels are the items of the
// tuple, by position; the given frame keeps its labels. A tuple of another
// length than the frame has columns raises ValueError. Labels are taken as
// they are: a tuple among them is one label, not a level of a MultiIndex.
PyHolder pySetDataFrameColumnLabel(python::pyArray* frame, PyHolder labels);
// frame.columns.tolist()
PyHolder pyGetDataFrameColumnsAsList(python::pyArray* frame);
// container[label]: a column of a frame, or an item of a Series (the dtype
// object of a frame's dtypes).
PyHolder pyGetColumnDataAsPandasSeries(python::pyArray* container, PyHolder label);
// frame.pop(label): the column as a Series, removed from the given frame.
PyHolder pyPopColumnFromDataFrame(python::pyArray* frame, PyHolder label);
// pandas.isna(data): per element, true where a value is missing (None, NaN,
// NaT, pandas.NA).
PyHolder pyCheckNullValues(python::pyArray* data);
// The numbers of a column's values as a NumPy array of a host type: a NumPy
// array as it is; float16 widened to float32 and the other byte order made
// native (no value changes); a masked array of a nullable dtype (Int64,
// UInt8, Float32, boolean, ...) as an array of its plain dtype, with NaN at
// the missing values of a float. None when missing integers or truth values
// have no place in a plain array.
PyHolder pyGetPlainNumericData(python::pyArray* values);
// The values hold text: every element that is not missing is a str, and at
// least one is (pandas' inference "string" with missing values skipped). A
// predicate: false, with no error set, for anything else.
bool pyIsPandasSeriesAStringDtype(PyHolder values);

}  // namespace pylnk_core::api::dataframe
