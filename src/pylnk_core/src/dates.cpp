// Dates and durations made from the host's components. The conversions
// themselves are Python (support_module.cpp); this side checks and packs the
// arguments.
#include <array>
#include <limits>

#include "pylnk_core/primitive.h"
#include "runtime.h"

namespace pylnk_core::api::primitive {

using namespace detail;

namespace {

Ref newFloat(double value) {
    return checked(py().PyFloat_FromDouble(value));
}

// The array's shape as a tuple; no dimensions means a flat array of numel.
Ref shapeOf(std::size_t numel, std::size_t ndims, const std::size_t* dims) {
    const capi::Table& t = py();
    if (ndims > 0 && dims == nullptr) {
        raise(*t.ExcValueError,
              "a shape of " + std::to_string(ndims) + " dimensions without extents");
    }
    const std::size_t count = ndims > 0 ? ndims : 1;
    Ref shape = checked(t.PyTuple_New(static_cast<Py_ssize_t>(count)));
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t extent = ndims > 0 ? dims[i] : numel;
        PyObject* item = t.PyLong_FromUnsignedLongLong(extent);
        checked(item == nullptr ? -1
                                : t.PyTuple_SetItem(shape.get(), static_cast<Py_ssize_t>(i), item));
    }
    return shape;
}

}  // namespace

PyHolder pyCreateDatetime(std::vector<double>& components, bool utc) {
    const capi::Table& t = py();
    constexpr std::size_t kComponents = 7;
    if (components.size() != kComponents) {
        raise(*t.ExcValueError,
              "a date needs 7 components, got " + std::to_string(components.size()));
    }
    std::array<Ref, kComponents> values;
    for (std::size_t i = 0; i < kComponents; ++i) {
        values[i] = newFloat(components[i]);
    }
    Ref flag = checked(t.PyBool_FromLong(utc ? 1 : 0));
    return hold(callSupport("make_datetime",
                            {values[0].get(), values[1].get(), values[2].get(), values[3].get(),
                             values[4].get(), values[5].get(), values[6].get(), flag.get()}));
}

PyHolder pyCreateDatetime64(std::vector<std::string>& values, std::size_t numel, std::size_t ndims,
                            const std::size_t* dims) {
    const capi::Table& t = py();
    if (values.size() < numel) {
        raise(*t.ExcValueError, "pyCreateDatetime64 was given " + std::to_string(values.size()) +
                                    " texts for " + std::to_string(numel) + " elements");
    }
    Ref texts = checked(t.PyList_New(0));
    for (std::size_t i = 0; i < numel; ++i) {
        Ref text = newString(values[i]);
        checked(t.PyList_Append(texts.get(), text.get()));
    }
    Ref shape = shapeOf(numel, ndims, dims);
    return hold(callSupport("make_datetime64", {texts.get(), shape.get()}));
}

PyHolder pyCreateTimedelta(double milliseconds) {
    Ref value = newFloat(milliseconds);
    return hold(callSupport("make_timedelta", {value.get()}));
}

PyHolder pyCreateTimedelta64(double* values, std::size_t numel, std::size_t ndims,
                             const std::size_t* dims) {
    const capi::Table& t = py();
    if (values == nullptr && numel > 0) {
        raise(*t.ExcValueError, "pyCreateTimedelta64 was given no values");
    }
    if (numel > static_cast<std::size_t>(std::numeric_limits<Py_ssize_t>::max()) / sizeof(double)) {
        raise(*t.ExcValueError, "pyCreateTimedelta64 was given too many values");
    }
    Ref raw = checked(t.PyBytes_FromStringAndSize(reinterpret_cast<const char*>(values),
                                                  static_cast<Py_ssize_t>(numel * sizeof(double))));
    Ref shape = shapeOf(numel, ndims, dims);
    return hold(callSupport("make_timedelta64", {raw.get(), shape.get()}));
}

}  // namespace pylnk_core::api::primitive
