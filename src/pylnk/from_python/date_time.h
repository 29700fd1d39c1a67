// Dates and durations to the host: each shape Python has for them (a
// datetime or timedelta, a NumPy scalar, a NumPy array, a list or tuple)
// becomes a structure of components whose field names tell the shape.
// Everything here runs on the Python thread.
#pragma once

#include "base/py_handler_base.h"
#include "contracts/host_array.h"
#include "contracts/python_bridge.h"

namespace pylnk {

// datetime.datetime: "VELTRAPyHost_pyDatetimeData" (year to second, then
// microsecond / 1000) and "VELTRAPyHost_pyDatetimeTzData" (the zone text,
// empty when naive). A zone without text gives the report
// "VELTRAPyHost::UnsupportedDatetimeTimezoneType" instead.
foundation::veltradata::Array buildDatetimeData(python::pyArray* datetime);
// datetime.timedelta: "VELTRAPyHost_pyTimeDeltaData", days * 24, 0, seconds,
// microseconds / 1000.
foundation::veltradata::Array buildTimedeltaData(python::pyArray* timedelta);
// A NumPy array of datetime64 or timedelta64: flat 1 by n components in
// column-major order, with "ndims" and "dims" to rebuild the shape. Another
// dtype gives the report "VELTRAPyHost::NumPyTypeNotSuitableForConversion"
// with "datetime" or "duration".
foundation::veltradata::Array buildDatetime64Array(python::pyArray* array);
foundation::veltradata::Array buildTimedelta64Array(python::pyArray* array);

// These answer the request themselves.
void answerDatetime64Scalar(python::pyArray* value, ReplyPromise* promise);
void answerTimedelta64Scalar(python::pyArray* value, ReplyPromise* promise);
// A list or tuple: whether every element is a datetime (else the place of
// the first that is not, from 0) and, if so, the components and the zone.
// A failure while reading the elements is answered with its report.
void answerDatetimeList(python::pyArray* list, ReplyPromise* promise);
void answerTimedeltaList(python::pyArray* list, ReplyPromise* promise);

// The commands: any of the shapes above, chosen by the first class of the
// object's __mro__ that has a row, so that subclasses (pandas.Timestamp, a
// subclass of list) take their base's. Any other object is a stored
// std::invalid_argument that names its type.

}  // namespace pylnk
