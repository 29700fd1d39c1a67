// Python's own equality on host values: the inputs are converted as the
// arguments of a call (a cell of positional values, a struct of keyword
// pairs) and compared by the bridge.
#pragma once

#include "base/py_handler_base.h"

namespace pylnk {

// operator.eq, answered with the object result of what it gives.
VX_DECLARE_HANDLER(pyIsEqualHandler);
// numpy.array_equal, answered with a bare truth value.
VX_DECLARE_HANDLER(pyIsNumpyArrayEqualHandler);

}  // namespace pylnk
