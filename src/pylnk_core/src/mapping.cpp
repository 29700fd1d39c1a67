#include "pylnk_core/collections.h"
#include "runtime.h"

namespace pylnk_core::api::mapping {

using namespace detail;

bool pyIsDict(python::pyArray* object) {
    return quietly([&] { return isInstanceQuiet(object, py().DictType); });
}

bool pyIsMapping(python::pyArray* object) {
    return quietly([&] {
        const capi::Table& t = py();
        need(object);
        Ref answer = callSupport("is_mapping", {object});
        if (checked(t.PyObject_IsTrue(answer.get())) == 1) {
            return true;
        }
        return t.PyMapping_Check(object) == 1 && t.PySequence_Check(object) == 0;
    });
}

PyHolder pyCreateDict() {
    return hold(checked(py().PyDict_New()));
}

PyHolder pyCreateDict(const std::vector<std::pair<PyHolder, PyHolder>>& items) {
    return hold(dictFromPairs(items));
}

PyHolder pyMappingGetItem(python::pyArray* mapping, python::pyArray* key) {
    return hold(checked(py().PyObject_GetItem(need(mapping), need(key))));
}

PyHolder pyMappingGetItems(python::pyArray* mapping) {
    return hold(checked(py().PyMapping_Items(need(mapping))));
}

void pyMappingSetKey(python::pyArray* mapping, python::pyArray* key, python::pyArray* value) {
    checked(py().PyObject_SetItem(need(mapping), need(key), need(value)));
}

}  // namespace pylnk_core::api::mapping
