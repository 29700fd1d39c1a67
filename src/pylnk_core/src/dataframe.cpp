// The pandas operations are plain Python (support_dataframe.cpp); this side
// checks the arguments and hands the results over as holders.
#include "pylnk_core/dataframe.h"
#include "runtime.h"

namespace pylnk_core::api::dataframe {

using namespace detail;

namespace {

PyHolder support(const char* function, std::initializer_list<PyObject*> args) {
    for (PyObject* arg : args) {
        need(arg);
    }
    return hold(callSupport(function, args));
}

}  // namespace

PyHolder pyCreateDataFrame(PyHolder columns) {
    return support("df_frame", {columns.get()});
}

PyHolder pyCreatePandasSeriesForDataFrameColumn(PyHolder column) {
    return support("df_series", {column.get()});
}

PyHolder pyCreatePandasSeriesOfDTypeString(PyHolder items) {
    return support("df_string_series", {items.get()});
}

PyHolder pyCreatePandasCategoricalArray(PyHolder items) {
    return support("df_categorical", {items.get()});
}

PyHolder pyCreateNumpyAsArray(PyHolder value) {
    return support("df_asarray", {value.get()});
}

PyHolder pyFlattenNumpyData(python::pyArray* data) {
    return support("df_flatten", {data});
}

PyHolder pyConvertNumPyDataToList(python::pyArray* data) {
    return support("df_to_list", {data});
}

PyHolder pyConvertPandasSeriesToPandasDataFrame(python::pyArray* series) {
    return support("df_to_frame", {series});
}

PyHolder pyResetIndexOfDataFrame(python::pyArray* frame) {
    return support("df_reset_index", {frame});
}

PyHolder pySetDataFrameIndex(python::pyArray* frame, PyHolder label) {
    return support("df_set_index", {frame, label.get()});
}

PyHolder pySetDataFrameColumnLabel(python::pyArray* frame, PyHolder labels) {
    return support("df_relabel", {frame, labels.get()});
}

PyHolder pyGetDataFrameColumnsAsList(python::pyArray* frame) {
    return support("df_labels", {frame});
}

PyHolder pyGetColumnDataAsPandasSeries(python::pyArray* container, PyHolder label) {
    return support("df_item", {container, label.get()});
}

PyHolder pyPopColumnFromDataFrame(python::pyArray* frame, PyHolder label) {
    return support("df_pop", {frame, label.get()});
}

PyHolder pyCheckNullValues(python::pyArray* data) {
    return support("df_isna", {data});
}

PyHolder pyGetPlainNumericData(python::pyArray* values) {
    return support("df_plain_numbers", {values});
}

bool pyIsPandasSeriesAStringDtype(PyHolder values) {
    return quietly([&] {
        Ref answer = callSupport("df_holds_strings", {need(values.get())});
        return checked(py().PyObject_IsTrue(answer.get())) == 1;
    });
}

}  // namespace pylnk_core::api::dataframe
