// The decomposition itself is Python (support_dates.cpp): one call answers
// with whole arrays, which this side copies out of their buffers.
#include "pylnk_core/date_components.h"

#include <cstring>
#include <limits>

#include "pylnk_core/object.h"
#include "runtime.h"

namespace pylnk_core::api::primitive {

using namespace detail;

namespace {

Ref itemAt(PyObject* sequence, Py_ssize_t index) {
    return checked(py().PySequence_GetItem(sequence, index));
}

// The tuple a support function answered with (borrowed), read item by item.
class Parts {
  public:
    explicit Parts(PyObject* tuple) : tuple_(tuple) {}

    Ref item(Py_ssize_t index) const { return itemAt(tuple_, index); }

    // The items of a contiguous buffer (a NumPy array, an array.array).
    template <class T>
    std::vector<T> items(Py_ssize_t index) const {
        const capi::Table& t = py();
        Ref exporter = item(index);
        capi::Py_buffer view{};
        checked(t.PyObject_GetBuffer(exporter.get(), &view, capi::PyBUF_ANY_CONTIGUOUS));
        std::vector<T> values;
        const bool fits = view.itemsize == static_cast<Py_ssize_t>(sizeof(T));
        if (fits && view.len > 0) {
            values.resize(static_cast<std::size_t>(view.len) / sizeof(T));
            std::memcpy(values.data(), view.buf, values.size() * sizeof(T));
        }
        t.PyBuffer_Release(&view);
        if (!fits) {
            raise(*t.ExcTypeError, "date components of an unexpected item size");
        }
        return values;
    }

    std::vector<bool> flags(Py_ssize_t index) const {
        const std::vector<std::uint8_t> bytes = items<std::uint8_t>(index);
        return std::vector<bool>(bytes.begin(), bytes.end());
    }

    std::vector<std::size_t> extents(Py_ssize_t index) const {
        const capi::Table& t = py();
        Ref shape = item(index);
        const Py_ssize_t count = t.PyObject_Size(shape.get());
        if (count < 0) {
            throwPending();
        }
        std::vector<std::size_t> dims;
        for (Py_ssize_t k = 0; k < count; ++k) {
            Ref extent = itemAt(shape.get(), k);
            const long long value = t.PyLong_AsLongLong(extent.get());
            if (value == -1 && t.PyErr_Occurred() != nullptr) {
                throwPending();
            }
            dims.push_back(static_cast<std::size_t>(value));
        }
        return dims;
    }

    bool truth(Py_ssize_t index) const {
        Ref value = item(index);
        return checked(py().PyObject_IsTrue(value.get())) == 1;
    }

    std::u16string text(Py_ssize_t index) const { return object::get_ustring(item(index).get()); }

    bool isNone() const { return tuple_ == none(); }

  private:
    PyObject* tuple_;
};

std::int32_t narrowYear(std::int64_t year) {
    if (year < std::numeric_limits<std::int32_t>::min() ||
        year > std::numeric_limits<std::int32_t>::max()) {
        raise(*py().ExcOverflowError,
              "the year " + std::to_string(year) + " of a datetime64 leaves 32 bits");
    }
    return static_cast<std::int32_t>(year);
}

}  // namespace

void DateComponentRows::readRows(python::pyArray* buffers, std::size_t first) {
    const Parts parts(buffers);
    const auto at = static_cast<Py_ssize_t>(first);
    years_ = parts.items<std::int64_t>(at);
    months_ = parts.items<std::int64_t>(at + 1);
    days_ = parts.items<std::int64_t>(at + 2);
    hours_ = parts.items<std::int64_t>(at + 3);
    minutes_ = parts.items<std::int64_t>(at + 4);
    seconds_ = parts.items<double>(at + 5);
    milliseconds_ = parts.items<double>(at + 6);
}

bool ArrayComponentsLayout::readLayout(python::pyArray* answer) {
    const Parts parts(answer);
    if (parts.isNone()) {
        return false;
    }
    valid_ = true;
    dims_ = parts.extents(0);
    nat_ = parts.flags(1);
    return true;
}

Datetime64ArrayComponents::Datetime64ArrayComponents(python::pyArray* array) {
    Ref answer = callSupport("split_datetime64", {need(array)});
    if (readLayout(answer.get())) {
        readRows(answer.get(), 2);
    }
}

Timedelta64ArrayComponents::Timedelta64ArrayComponents(python::pyArray* array) {
    Ref answer = callSupport("split_timedelta64", {need(array)});
    if (!readLayout(answer.get())) {
        return;
    }
    const Parts parts(answer.get());
    hours_ = parts.items<std::int64_t>(2);
    minutes_ = parts.items<std::int64_t>(3);
    seconds_ = parts.items<std::int64_t>(4);
    msInt_ = parts.truth(6);
    if (msInt_) {
        millisecondsInt_ = parts.items<std::int64_t>(5);
    } else {
        milliseconds_ = parts.items<double>(5);
    }
}

// A scalar is an array of one element to the support code.
Datetime64Component::Datetime64Component(python::pyArray* value) {
    const Datetime64ArrayComponents parts(value);
    if (!parts.isValid() || parts.numel() != 1) {
        raise(*py().ExcTypeError, "expected a numpy.datetime64");
    }
    year = narrowYear(parts.years()[0]);
    month = static_cast<std::int32_t>(parts.months()[0]);
    day = static_cast<std::int32_t>(parts.days()[0]);
    hour = static_cast<std::int32_t>(parts.hours()[0]);
    minute = static_cast<std::int32_t>(parts.minutes()[0]);
    second = parts.seconds()[0];
    millisecond = parts.milliseconds()[0];
    isNaT = parts.natIndices()[0];
}

Timedelta64Component::Timedelta64Component(python::pyArray* value) {
    const Timedelta64ArrayComponents parts(value);
    if (!parts.isValid() || parts.numel() != 1) {
        raise(*py().ExcTypeError, "expected a numpy.timedelta64");
    }
    hours = parts.hours()[0];
    minutes = parts.minutes()[0];
    seconds = parts.seconds()[0];
    msInt_ = parts.isMsInt();
    if (msInt_) {
        milliseconds_int = parts.milliseconds_int()[0];
    } else {
        milliseconds = parts.milliseconds()[0];
    }
    isNaT = parts.natIndices()[0];
}

DatetimeListComponent::DatetimeListComponent(python::pyArray* list) {
    Ref answer = callSupport("split_datetime_list", {need(list)});
    const Parts parts(answer.get());
    readRows(answer.get(), 0);
    timezone_ = parts.text(7);
    sameZone_ = parts.truth(8);
}

TimedeltaListComponent::TimedeltaListComponent(python::pyArray* list) {
    Ref answer = callSupport("split_timedelta_list", {need(list)});
    const Parts parts(answer.get());
    hours_ = parts.items<std::int64_t>(0);
    seconds_ = parts.items<std::int64_t>(1);
    milliseconds_ = parts.items<double>(2);
}

}  // namespace pylnk_core::api::primitive
