#include <limits>

#include "pylnk_core/collections.h"
#include "runtime.h"

namespace pylnk_core::api::sequence {

using namespace detail;

namespace {

Py_ssize_t toIndex(unsigned long long index) {
    if (index > static_cast<unsigned long long>(std::numeric_limits<Py_ssize_t>::max())) {
        raise(*py().ExcIndexError, "index out of range");
    }
    return static_cast<Py_ssize_t>(index);
}

}  // namespace

bool pyIsSequence(python::pyArray* object) {
    return quietly([&] { return object != nullptr && py().PySequence_Check(object) == 1; });
}

unsigned long long pySequenceLength(python::pyArray* object) {
    Py_ssize_t size = py().PyObject_Size(need(object));
    if (size < 0) {
        throwPending();
    }
    return static_cast<unsigned long long>(size);
}

PyHolder pyGetItem(python::pyArray* object, unsigned long long index) {
    need(object);
    return hold(checked(py().PySequence_GetItem(object, toIndex(index))));
}

bool pyTupleCheck(python::pyArray* object) {
    return quietly([&] { return isInstanceQuiet(object, py().TupleType); });
}

PyHolder pyTupleCreate(const std::vector<PyHolder>& items) {
    return hold(tupleFromHolders(items));
}

PyHolder pyTupleCreateSize(unsigned long long size) {
    const capi::Table& t = py();
    const Py_ssize_t count = toIndex(size);
    Ref tuple = checked(t.PyTuple_New(count));
    for (Py_ssize_t i = 0; i < count; ++i) {
        t.Py_IncRef(t.None);
        checked(t.PyTuple_SetItem(tuple.get(), i, t.None));
    }
    return hold(std::move(tuple));
}

void pyTupleSetValue(python::pyArray* tuple, unsigned long long index, python::pyArray* value) {
    const capi::Table& t = py();
    requireInstance(tuple, t.TupleType, "a tuple");
    need(value);
    const Py_ssize_t place = toIndex(index);
    // The tuple steals a reference and drops the one of the item it replaces.
    t.Py_IncRef(value);
    checked(t.PyTuple_SetItem(tuple, place, value));
}

PyHolder pyPopItemFromList(python::pyArray* list, long index) {
    Ref pop = getAttr(list, "pop");
    Ref place = checked(py().PyLong_FromLong(index));
    return hold(call(pop.get(), {place.get()}));
}

}  // namespace pylnk_core::api::sequence
