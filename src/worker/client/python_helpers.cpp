#include "python_helpers.h"

namespace vxpy::detail {

// Python 3.8 and later. Each helper is called through pyInvokeFastInput,
// whose reply carries a float, a bool or a complex by value: that is why
// to_int64 answers with the two 32-bit halves of the integer as a complex
// (both exact in a double) and why refusals are an exception class of their
// own, which the client turns into a plain Error.
const char* const kHelperSource = R"PY(
import array, builtins, operator, signal, sys, threading, traceback

# interrupt() sends SIGINT to this thread (the interpreter's main thread),
# which the interpreter was started without handling.
signal.signal(signal.SIGINT, signal.default_int_handler)


class VxpyCannotConvert(TypeError):
    pass


def type_name(o):
    t = type(o)
    return t.__module__ + "." + t.__qualname__


def to_float(o):
    t = type(o)
    if isinstance(o, complex) or not (hasattr(t, "__float__") or hasattr(t, "__index__")):
        raise VxpyCannotConvert("toDouble needs a real number (__float__ or __index__), not a "
                                + type_name(o))
    return float(o)


def to_int64(o):
    try:
        n = operator.index(o)
    except TypeError:
        raise VxpyCannotConvert("toInt needs an integer (__index__), not a " + type_name(o)) from None
    if not -(1 << 63) <= n < (1 << 63):
        raise VxpyCannotConvert("toInt needs an integer of 64 bits, not a " + type_name(o) + " of "
                                + str(n.bit_length() + 1) + " bits")
    return complex(n >> 32, n & 0xFFFFFFFF)


def array_source(o):
    # What pyBufferGetData reads in the host's order: a list becomes a 1 by n
    # row. None stands for an empty list (a view cannot have a 0 in its shape).
    if isinstance(o, (list, tuple)):
        try:
            values = array.array("d", o)
        except (TypeError, OverflowError) as e:
            raise VxpyCannotConvert("toArray takes a list or tuple of real numbers; this "
                                    + type_name(o) + " holds another element (" + str(e) + ")") from None
        return memoryview(values).cast("B").cast("d", (1, len(values))) if values else None
    try:
        memoryview(o).release()
    except (TypeError, ValueError, BufferError):
        raise VxpyCannotConvert("toArray needs an object with the buffer interface, or a list or "
                                "tuple of real numbers, not a " + type_name(o)) from None
    return o


def list_source(o):
    if isinstance(o, (list, tuple)):
        return o
    raise VxpyCannotConvert("toList needs a list or tuple, not a " + type_name(o))


def describe_error(error):
    kind, value, tb = error
    if kind is None:
        return ("", "", "")
    name = getattr(kind, "__name__", "") or "<unknown>"
    try:
        message = "" if value is None else str(value)
    except BaseException:
        message = "<exception str() failed>"
    try:
        text = "".join(traceback.format_exception(kind, value, tb))
    except BaseException:
        text = name + (": " + message if message else "") + "\n"
    return (name, message, text)


def noop():
    # A loop: its back edge is where a pending KeyboardInterrupt is raised,
    # in every version.
    for _ in (0, 1):
        pass


main = sys.modules["__main__"]
exports = [main, main.__dict__, None, True, False, builtins.eval, builtins.exec, builtins.repr,
           builtins.bool, builtins.setattr, operator.getitem, operator.setitem, type_name,
           to_float, to_int64, array_source, list_source, describe_error, noop,
           float(threading.get_native_id())]
)PY";

}  // namespace vxpy::detail
