#include "from_python/dataframe.h"

#include <algorithm>
#include <cctype>
#include <complex>
#include <cstdint>
#include <optional>
#include <unordered_set>
#include <vector>

#include "base/handler_support.h"
#include "base/shared_arrays.h"
#include "buffer/buffer_bridge.h"
#include "from_python/content.h"
#include "from_python/date_time.h"
#include "from_python/object_result.h"

namespace pylnk {

namespace vd = foundation::veltradata;
using pylnk_core::InternalPyException;

namespace {

constexpr const char* kColumnData = "VELTRAPyHost_pyDataFrameColumnDataAsStruct";
constexpr const char* kVariableNames = "VELTRAPyHost_pyDataFrameOrgVariableNames";
constexpr const char* kConvertible = "VELTRAPyHost_pyDataFrameConvertibleToTimetable";
constexpr const char* kRowTimesName = "VELTRAPyHost_pyDataFrameRowTimesVarName";

void lower(std::string& text) {
    std::ranges::transform(text, text.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
}

bool holds(const std::string& text, const char* word) {
    return text.find(word) != std::string::npos;
}

std::string dtypeName(python::pyArray* dtype) {
    return object::pyGetChars(object::pyGetMember(dtype, "name").get());
}

// Numbers and truth values: one copy through the buffer path, straight into
// an n by 1 host array.
vd::Array numbersOf(python::pyArray* numbers, const std::string& dtype) {
    H buffer = createBufferFromObject(numbers);
    vd::Array data = bufferGetData(buffer.get());
    if (exception::pyErrorOccurred()) {
        // getData answers a format without a host type (complex256) with an
        // empty array and a TypeError, which stays set.
        throw InternalPyException("A column of dtype " + dtype + " has no host numeric type.");
    }
    return data;
}

// The first Python error a cell's read leaves set is kept aside while the
// rest of the frame is read (later cells call into Python, which must not
// find an error pending), and is put back when the command ends, so that
// the host finds it set.
class CellErrorScope {
  public:
    CellErrorScope() : outer_(current()) { current() = this; }
    ~CellErrorScope() { current() = outer_; }
    CellErrorScope(const CellErrorScope&) = delete;
    CellErrorScope& operator=(const CellErrorScope&) = delete;

    static void keepPendingError() {
        if (CellErrorScope* scope = current(); scope && !scope->kept_) {
            scope->kept_.emplace();
        }
    }

  private:
    static CellErrorScope*& current() {
        static CellErrorScope* innermost = nullptr;
        return innermost;
    }
    CellErrorScope* outer_;
    std::optional<exception::PendingErrorAside> kept_;
};

// How a cell's failed 64-bit integer read travels. In an object column the
// value goes out as the read left it and the error stays set for the host
// to find; the cells of a nullable integer column must all arrive exact, so
// there such a cell goes as its object instead.
enum class FailedRead { ValueGoesOut, CellIsAnObject };

// The value of an int, float, complex or bool, in this order (a bool is no
// int here), or nothing.
std::optional<vd::Array> copiedNumber(python::pyArray* item, FailedRead failedRead) {
    vd::ArrayFactory factory;
    if (primitive::pyIsLong(item)) {
        long long number = 0;
        primitive::pyLongGetData(item, &number);
        if (exception::pyErrorOccurred()) {
            if (failedRead == FailedRead::CellIsAnObject) {
                exception::pyErrorClear();
                return std::nullopt;
            }
            CellErrorScope::keepPendingError();
        }
        return factory.createScalar(static_cast<std::int64_t>(number));
    }
    if (primitive::pyIsFloat(item)) {
        return factory.createScalar(primitive::pyFloatGetData(item));
    }
    if (primitive::pyIsComplex(item)) {
        return complexScalarOf(item);
    }
    if (primitive::pyIsBool(item)) {
        return factory.createScalar(primitive::pyBoolGetData(item));
    }
    return std::nullopt;
}

vd::Array elementResult(H object, MetadataCache& cache, FailedRead failedRead);

// A 1 by n cell with the element result of each value.
vd::Array elementResults(python::pyArray* values, MetadataCache& cache, FailedRead failedRead) {
    H items = dataframe::pyConvertNumPyDataToList(values);
    const size_t count = sequence::pySequenceLength(items.get());
    std::vector<vd::Array> cells;
    cells.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        cells.push_back(elementResult(sequence::pyGetItem(items.get(), i), cache, failedRead));
    }
    return vd::ArrayFactory().createCellArray({1, count}, cells);
}

// The frame to read and its labels as pandas has them: a Series becomes a
// one-column frame, and the index becomes the leading column or columns. It
// is a new frame over the same data; the host's object stays as it was.
struct Frame {
    H frame;
    H labels;
};

Frame resetFrame(python::pyArray* object) {
    H frame = holderOf(object);
    if (type::pyTypeIsPandasSeries(object::pyGetType(frame.get()).get())) {
        frame = dataframe::pyConvertPandasSeriesToPandasDataFrame(frame.get());
    }
    frame = dataframe::pyResetIndexOfDataFrame(frame.get());
    H labels = dataframe::pyGetDataFrameColumnsAsList(frame.get());
    return {frame, labels};
}

// The same frame with its columns labelled "0", "1", ... by position, the
// labels that address them from here on: duplicates and labels of any type
// cannot get in the way. `names` are the field names of the reply.
struct Positions {
    H frame;
    H labels;
    std::vector<std::string> names;
};

Positions relabelByPosition(const Frame& reset) {
    const size_t count = sequence::pySequenceLength(reset.labels.get());
    std::vector<std::string> names;
    std::vector<H> strings;
    names.reserve(count);
    strings.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        names.push_back(std::to_string(i));
        strings.push_back(primitive::pyCreateString(names.back()));
    }
    H frame =
        dataframe::pySetDataFrameColumnLabel(reset.frame.get(), sequence::pyTupleCreate(strings));
    H labels = dataframe::pyGetDataFrameColumnsAsList(frame.get());
    return {frame, labels, std::move(names)};
}

H columnAt(const Positions& columns, size_t index) {
    return dataframe::pyGetColumnDataAsPandasSeries(
        columns.frame.get(), sequence::pyGetItem(columns.labels.get(), index));
}

vd::Array structOfColumns(const std::vector<std::string>& names,
                          const std::vector<vd::Array>& columns) {
    vd::StructArray result = vd::ArrayFactory().createStructArray({1, 1}, names);
    for (size_t i = 0; i < names.size(); ++i) {
        result[0][names[i]] = columns[i];
    }
    return result;
}

// The first column, in column order, whose dtype names dates or durations.
std::optional<size_t> rowTimesColumn(const Positions& columns) {
    H dtypes = object::pyGetMember(columns.frame.get(), "dtypes");
    for (size_t i = 0; i < columns.names.size(); ++i) {
        H dtype = dataframe::pyGetColumnDataAsPandasSeries(
            dtypes.get(), sequence::pyGetItem(columns.labels.get(), i));
        std::string name = dtypeName(dtype.get());
        lower(name);
        if (holds(name, "timedelta64") || holds(name, "datetime64")) {
            return i;
        }
    }
    return std::nullopt;
}

}  // namespace

bool isNumericDtypeName(std::string& name) {
    static const std::unordered_set<std::string> kNumeric = {
        "int8",   "int16",   "int32",   "int64",   "uint8",     "uint16",     "uint32",
        "uint64", "float16", "float32", "float64", "complex64", "complex128", "complex256"};
    lower(name);
    return kNumeric.contains(name);
}

vd::Array buildStringColumn(python::pyArray* values) {
    H missing = dataframe::pyConvertNumPyDataToList(dataframe::pyCheckNullValues(values).get());
    H items = dataframe::pyConvertNumPyDataToList(values);
    const size_t count = sequence::pySequenceLength(items.get());
    vd::TypedArray<vd::VELTRAString> texts =
        vd::ArrayFactory().createArray<vd::VELTRAString>({1, count});
    for (size_t i = 0; i < count; ++i) {
        if (!primitive::pyBoolGetData(sequence::pyGetItem(missing.get(), i).get())) {
            texts[i] = objectToText(sequence::pyGetItem(items.get(), i).get());
        }
    }
    return texts;
}

namespace {

vd::Array elementResult(H object, MetadataCache& cache, FailedRead failedRead) {
    vd::StructArray result =
        vd::ArrayFactory().createStructArray({1, 1}, {"ScalarData", "PythonDataType", "DataArray"});
    result[0]["ScalarData"] = sharedEmptyText();
    result[0]["PythonDataType"] = sharedEmptyText();
    python::pyArray* item = object.get();
    if (std::optional<vd::Array> number = copiedNumber(item, failedRead)) {
        result[0]["ScalarData"] = *number;
        return result;
    }
    if (primitive::pyIsString(item)) {
        result[0]["ScalarData"] = vd::ArrayFactory().createScalar(objectToText(item));
        return result;
    }
    auto tagged = [&](const char* tag, vd::Array data) {
        result[0]["PythonDataType"] = text(std::string(tag));
        result[0]["DataArray"] = std::move(data);
        return result;
    };
    if (object::pyIsBuiltin(item, "list") || object::pyIsBuiltin(item, "tuple")) {
        return tagged("SequenceType", buildObjectResultRow(item, cache));
    }
    if (mapping::pyIsDict(item)) {
        return tagged("Dictionary", buildDictionaryData(item, cache));
    }
    // The exact classes: pandas.NaT is a datetime too, with no components.
    const std::string typeName = object::pyGetVXClassName(item);
    if (typeName == "py.datetime.datetime") {
        return tagged("DatetimeScalar", buildDatetimeData(item));
    }
    if (typeName == "py.datetime.timedelta") {
        return tagged("DurationScalar", buildTimedeltaData(item));
    }
    return tagged("UnknownType", buildObjectResult(std::move(object), cache));
}

}  // namespace

vd::Array buildElementResult(H object, MetadataCache& cache) {
    return elementResult(std::move(object), cache, FailedRead::ValueGoesOut);
}

vd::Array buildColumnData(H series, MetadataCache& cache) {
    vd::StructArray result =
        vd::ArrayFactory().createStructArray({1, 1}, {"DataType", "SubDataType", "DataArray"});
    const std::string ownName = dtypeName(object::pyGetMember(series.get(), "dtype").get());
    result[0]["DataType"] = text(ownName);
    H values = object::pyGetMember(series.get(), "values");
    auto assign = [&](vd::Array data, const char* subType) {
        result[0]["DataArray"] = std::move(data);
        result[0]["SubDataType"] =
            *subType == '\0' ? sharedEmptyText() : text(std::string(subType));
    };
    std::string name = ownName;
    if (isNumericDtypeName(name) || name == "bool" || name == "boolean") {
        // pandas' nullable dtypes arrive here too (Int64 lowers to int64):
        // a plain array when nothing is missing, NaN at a missing float;
        // missing integers and truth values, which no plain array can mark,
        // go cell by cell.
        H numbers = dataframe::pyGetPlainNumericData(values.get());
        if (!object::pyIsNone(numbers.get())) {
            assign(numbersOf(numbers.get(), ownName), "");
        } else {
            assign(elementResults(values.get(), cache, FailedRead::CellIsAnObject), "mixed");
        }
    } else if (holds(name, "datetime64")) {
        // A zoned column's values are in UTC; its zone stands in DataType.
        assign(buildDatetime64Array(values.get()), "");
    } else if (holds(name, "timedelta64")) {
        assign(buildTimedelta64Array(values.get()), "");
    } else if (name == "string" || name == "category") {
        assign(buildStringColumn(values.get()), "");
    } else if (name == "object") {
        if (dataframe::pyIsPandasSeriesAStringDtype(values)) {
            assign(buildStringColumn(values.get()), "string");
        } else {
            assign(elementResults(values.get(), cache, FailedRead::ValueGoesOut), "mixed");
        }
    }
    return result;
}

VX_COMMAND(pyDataFrameGetDataHandler, "pyDataFrameGetData", 1) {
    CellErrorScope cellErrors;
    vd::StructArray result =
        vd::ArrayFactory().createStructArray({1, 1}, {kColumnData, kVariableNames});
    const Frame reset = resetFrame(addressArg(prhs, 0));
    result[0][kVariableNames] = buildTextRow(reset.labels.get());
    const Positions columns = relabelByPosition(reset);
    std::vector<vd::Array> data;
    data.reserve(columns.names.size());
    for (size_t i = 0; i < columns.names.size(); ++i) {
        data.push_back(buildColumnData(columnAt(columns, i), classMetadataCache()));
    }
    result[0][kColumnData] = structOfColumns(columns.names, data);
    reply(promise, result);
}

// Field "0" holds the row times wherever they stood; the other columns
// follow in their order, and their labels are the variable names.
VX_COMMAND(pyDataFrameTimetableGetDataHandler, "pyDataFrameTimetableGetData", 1) {
    CellErrorScope cellErrors;
    vd::ArrayFactory factory;
    vd::StructArray result = factory.createStructArray(
        {1, 1}, {kConvertible, kColumnData, kVariableNames, kRowTimesName});
    const Frame reset = resetFrame(addressArg(prhs, 0));
    const Positions columns = relabelByPosition(reset);
    const std::optional<size_t> found = rowTimesColumn(columns);
    result[0][kConvertible] = truthValue(found.has_value());
    if (!found) {
        reply(promise, result);
        return;
    }
    const auto at = static_cast<long>(*found);
    H rowTimes = dataframe::pyPopColumnFromDataFrame(
        columns.frame.get(), sequence::pyGetItem(columns.labels.get(), *found));
    H rowTimesLabel = sequence::pyPopItemFromList(reset.labels.get(), at);
    sequence::pyPopItemFromList(columns.labels.get(), at);
    result[0][kRowTimesName] = factory.createScalar(objectToText(rowTimesLabel.get()));
    result[0][kVariableNames] = buildTextRow(reset.labels.get());
    std::vector<vd::Array> data = {buildColumnData(rowTimes, classMetadataCache())};
    for (size_t j = 0; j + 1 < columns.names.size(); ++j) {
        data.push_back(buildColumnData(columnAt(columns, j), classMetadataCache()));
    }
    result[0][kColumnData] = structOfColumns(columns.names, data);
    reply(promise, result);
}

}  // namespace pylnk
