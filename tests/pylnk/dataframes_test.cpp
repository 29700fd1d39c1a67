// DataFrames and Series to the host: every road a column's dtype can take,
// with its missing values; labels, indexes and Series; timetables; and the
// host's frame left as it was.
#include <gtest/gtest.h>

#include "support/session.h"

using namespace vxtest;

namespace {

using Texts = std::vector<std::optional<std::string>>;
using Strings = std::vector<std::string>;

const char* const kColumns = "VELTRAPyHost_pyDataFrameColumnDataAsStruct";
const char* const kNames = "VELTRAPyHost_pyDataFrameOrgVariableNames";
const char* const kFlag = "VELTRAPyHost_pyDataFrameConvertibleToTimetable";
const char* const kRowTimes = "VELTRAPyHost_pyDataFrameRowTimesVarName";

// One element result: the copied value, or its tag, with the str of the
// object for "UnknownType".
std::string showCell(const vd::Array& cell) {
    const std::string tag = textOf(field(cell, "PythonDataType"));
    if (tag == "UnknownType") {
        return tag + " " + strOf(addressOf(field(field(cell, "DataArray"), "object")));
    }
    return tag.empty() ? show(field(cell, "ScalarData")) : tag;
}

// A column as "DataType|SubDataType|content": the content of a "mixed"
// column cell by cell, "-" for fields left unassigned.
std::string showColumn(const vd::Array& column) {
    EXPECT_EQ(fieldNames(column), (Strings{"DataType", "SubDataType", "DataArray"}));
    const std::string dtype = textOf(field(column, "DataType"));
    const vd::Array sub = field(column, "SubDataType");
    const vd::Array data = field(column, "DataArray");
    if (sub.getType() != vd::ArrayType::CHAR) {
        return dtype + "|-|" + (data.isEmpty() ? "-" : "assigned");
    }
    std::string content;
    if (textOf(sub) == "mixed") {
        for (const vd::Array& cell : valuesOf<vd::Array>(data)) {
            content += (content.empty() ? "" : ", ") + showCell(cell);
        }
    } else {
        content = data.getType() == vd::ArrayType::STRUCT ? fieldNames(data).front() : show(data);
    }
    return dtype + "|" + textOf(sub) + "|" + content;
}

struct DataFrames : SessionTest {
    DataFrames() : SessionTest("import datetime, numpy, pandas\n") {}
};

vd::Array frameData(const std::string& expression) {
    return callOn("pyDataFrameGetData", expression);
}
vd::Array timetable(const std::string& expression) {
    return callOn("pyDataFrameTimetableGetData", expression);
}
vd::Array column(const vd::Array& reply, size_t position) {
    return field(field(reply, kColumns), std::to_string(position));
}
Strings columns(const vd::Array& reply) {
    Strings shown;
    for (const std::string& name : fieldNames(field(reply, kColumns))) {
        shown.push_back(showColumn(field(field(reply, kColumns), name)));
    }
    return shown;
}

}  // namespace

// Numbers travel as one n by 1 array of their own type; pandas' nullable
// dtypes as their plain type when nothing is missing, with NaN at a missing
// float, and cell by cell when a missing integer or truth value has to be
// marked. DataType is always pandas' own name.
TEST_F(DataFrames, NumbersKeepTheirTypeMissingValuesMarked) {
    EXPECT_EQ(
        columns(frameData(
            "pandas.DataFrame({'i8': numpy.array([-1, 2], 'i1'),"
            " 'u64': numpy.array([2**64 - 1, 0], 'u8'), 'f32': numpy.array([0.5, -1], 'f4'),"
            " 'f64': [numpy.nan, 2.5], 'b': [True, False], 'c': [1j, 2],"
            " 'half': numpy.array([0.5, 2], 'f2'), 'big': numpy.array([7, 8], '>i4'),"
            " 'I64': pandas.array([5, -6], 'Int64'), 'F64': pandas.array([None, 1.5], 'Float64'),"
            " 'B': pandas.array([True, False], 'boolean'),"
            " 'U64': pandas.array([2**64 - 1, None], 'UInt64'),"
            " 'BN': pandas.array([None, True], 'boolean'), 'IN': pandas.array([None, -3], "
            "'Int8')})")),
        (Strings{"int64||INT64 2x1: 0 1", "int8||INT8 2x1: -1 2",
                 "uint64||UINT64 2x1: 18446744073709551615 0", "float32||SINGLE 2x1: 0.5 -1",
                 "float64||DOUBLE 2x1: nan 2.5", "bool||LOGICAL 2x1: 1 0",
                 "complex128||COMPLEX_DOUBLE 2x1: (0,1) (2,0)", "float16||SINGLE 2x1: 0.5 2",
                 "int32||INT32 2x1: 7 8", "Int64||INT64 2x1: 5 -6", "Float64||DOUBLE 2x1: nan 1.5",
                 "boolean||LOGICAL 2x1: 1 0",
                 "UInt64|mixed|UnknownType 18446744073709551615, UnknownType <NA>",
                 "boolean|mixed|UnknownType <NA>, LOGICAL 1x1: 1",
                 "Int8|mixed|UnknownType <NA>, INT64 1x1: -3"}));
    EXPECT_FALSE(errorOccurred());

    // A type the host has none for is refused, not rounded.
    EXPECT_EQ(failureOf([] { frameData("pandas.DataFrame({'q': numpy.array([1j], 'c32')})"); }),
              "A column of dtype complex256 has no host numeric type.");
    call("pyErrorClear");
}

TEST_F(DataFrames, DatesDurationsTextAndOtherDtypes) {
    const vd::Array reply = frameData(
        "pandas.DataFrame({"
        " 'd': pandas.to_datetime(['2024-02-29 10:30:15.250', None]),"
        " 'z': pandas.to_datetime(['2024-07-01 12:00'] * 2).tz_localize('Europe/Paris'),"
        " 't': pandas.to_timedelta(['-5400.5s', None]), 's': pandas.array(['x', None], 'string'),"
        " 'k': pandas.Categorical(['p', None]), 'o': ['x', None],"
        " 'p': pandas.period_range('2024-01', periods=2, freq='M'), 'n': [None, None]})");
    // A missing text is a missing element, not an empty string.
    EXPECT_EQ(
        columns(reply),
        (Strings{"int64||INT64 2x1: 0 1", "datetime64[ns]||VELTRAPyHost_pyDatetime64ArrayData",
                 "datetime64[ns, Europe/Paris]||VELTRAPyHost_pyDatetime64ArrayData",
                 "timedelta64[ns]||VELTRAPyHost_pyTimedelta64Array",
                 "string||VELTRA_STRING 1x2: x <missing>",
                 "category||VELTRA_STRING 1x2: p <missing>",
                 "object|string|VELTRA_STRING 1x2: x <missing>", "period[M]|-|-",
                 "object|mixed|UnknownType None, UnknownType None"}));
    const auto data = [&](size_t position) { return field(column(reply, position), "DataArray"); };
    EXPECT_EQ(show(field(field(data(1), "VELTRAPyHost_pyDatetime64ArrayData"), "minute")) + " | " +
                  show(field(data(1), "NaT_indices")),
              "INT64 1x2: 30 0 | LOGICAL 1x2: 0 1");
    EXPECT_EQ(show(field(field(data(2), "VELTRAPyHost_pyDatetime64ArrayData"), "hour")),
              "INT64 1x2: 10 10")
        << "a zoned column's components are in UTC";
    EXPECT_EQ(
        shown(field(data(3), "VELTRAPyHost_pyTimedelta64Array"), {"hour", "millisecond", "NaT"}),
        "INT64 1x2: -1 0 | DOUBLE 1x2: -500 0 | LOGICAL 1x2: 0 1");
    EXPECT_FALSE(errorOccurred());
}

// Each cell of an object column as its element result, one level deep.
TEST_F(DataFrames, ObjectColumnsGoCellByCell) {
    exec(
        "class Sentinel:\n"
        "    __repr__ = lambda self: 'sentinel'\n"
        "sentinel = Sentinel()\n"
        "objects = pandas.DataFrame({'o': [7, 2.5, 'x', True, 2j, 2**70, float('nan'), [1, [2]],"
        " (), {'k': 1}, datetime.datetime(2024, 2, 29, 10, 30), datetime.timedelta(days=-1), None,"
        " pandas.Timestamp('2024-01-01'), sentinel]})\n");
    const Address sentinel = eval("sentinel");
    const long long before = refcount(sentinel);
    const vd::Array reply = frameData("objects");
    EXPECT_EQ(columns(reply)[1],
              "object|mixed|INT64 1x1: 7, DOUBLE 1x1: 2.5, VELTRA_STRING 1x1: x, LOGICAL 1x1: 1, "
              "COMPLEX_DOUBLE 1x1: (0,2), INT64 1x1: 0, DOUBLE 1x1: nan, "
              "SequenceType, SequenceType, Dictionary, DatetimeScalar, DurationScalar, "
              "UnknownType None, UnknownType 2024-01-01 00:00:00, UnknownType sentinel");
    const std::vector<vd::Array> cells = valuesOf<vd::Array>(field(column(reply, 1), "DataArray"));
    auto payload = [&](size_t cell) { return field(cells[cell], "DataArray"); };
    const std::vector<vd::Array> list = valuesOf<vd::Array>(payload(7));
    EXPECT_EQ(list.size(), 2u);
    EXPECT_EQ(strOf(addressOf(field(list[1], "object"))), "[2]")
        << "a list inside a list is an object result";
    EXPECT_EQ(payload(8).getDimensions(), (std::vector<size_t>{1, 0}));
    EXPECT_EQ(fieldNames(payload(9)),
              (Strings{"VELTRAPyHost_pyKeyData", "VELTRAPyHost_pyValueData"}));
    EXPECT_EQ(show(field(payload(10), "VELTRAPyHost_pyDatetimeData")),
              "DOUBLE 1x7: 2024 2 29 10 30 0 0");
    EXPECT_EQ(show(field(payload(11), "VELTRAPyHost_pyTimeDeltaData")), "DOUBLE 1x4: -24 0 0 0");
    // The failed read of 2**70 went out as it left the value, and its error
    // waited while the cells after it were read: it is the host's now.
    EXPECT_TRUE(errorOccurred());
    call("pyErrorClear");

    // The host's address of the object, which the registry holds once.
    EXPECT_EQ(addressOf(field(payload(14), "object")), sentinel);
    EXPECT_EQ(refcount(sentinel), before);
}

// Labels travel as text only, so duplicates and labels of any type are no
// concern; the reset index leads, named by pandas.
TEST_F(DataFrames, LabelsIndexesAndSeries) {
    auto labels = [](const std::string& expression) {
        return stringsOf(field(frameData(expression), kNames));
    };
    EXPECT_EQ(labels("pandas.DataFrame([[1, 2, 3]], columns=['a', 'a', 5])"),
              (Texts{"index", "a", "a", "5"}));
    EXPECT_EQ(labels("pandas.Series([1, 2])"), (Texts{"index", "0"}));
    EXPECT_EQ(labels("pandas.DataFrame({'v': [1]}, index=pandas.MultiIndex.from_tuples([('a', 1)],"
                     " names=['k', None]))"),
              (Texts{"k", "level_1", "v"}));
    EXPECT_EQ(
        labels("pandas.DataFrame([[1]], columns=pandas.MultiIndex.from_tuples([('a', 'x')]))"),
        (Texts{"('index', '')", "('a', 'x')"}));
    const vd::Array series = frameData(
        "pandas.Series([1.5, 2.5], name='s', index=pandas.Index(['p', 'q'], name='key'))");
    EXPECT_EQ(stringsOf(field(series, kNames)), (Texts{"key", "s"}));
    EXPECT_EQ(columns(series),
              (Strings{"object|string|VELTRA_STRING 1x2: p q", "float64||DOUBLE 2x1: 1.5 2.5"}));
    EXPECT_EQ(columns(frameData("pandas.DataFrame({'a': numpy.array([], 'f8')})")),
              (Strings{"int64||INT64 0x1:", "float64||DOUBLE 0x1:"}));

    // Anything else fails on the default road, with the error set.
    EXPECT_EQ(failureOf([] { timetable("[1, 2]"); }),
              "TypeError: a pandas DataFrame or Series is needed, not list");
    EXPECT_TRUE(errorOccurred());
    call("pyErrorClear");
}

TEST_F(DataFrames, TimetablesIndexByFirstTimeColumn) {
    const vd::Array indexed = timetable(
        "pandas.DataFrame({'v': [1.5, 2.5]},"
        " index=pandas.DatetimeIndex(['2024-01-01', '2024-01-02'], name='when'))");
    EXPECT_EQ(fieldNames(indexed), (Strings{kFlag, kColumns, kNames, kRowTimes}));
    EXPECT_EQ(show(field(indexed, kFlag)), "LOGICAL 1x1: 1");
    EXPECT_EQ(stringsOf(field(indexed, kRowTimes)), (Texts{"when"}));
    EXPECT_EQ(stringsOf(field(indexed, kNames)), (Texts{"v"}));

    // The row times lead, wherever they stood.
    const vd::Array third = timetable(
        "pandas.DataFrame({'a': ['x', 'y'], 'b': [1, 2],"
        " 'when': pandas.to_datetime(['2024-01-01', None]), 'c': [0.5, 1.5]})");
    EXPECT_EQ(stringsOf(field(third, kRowTimes)), (Texts{"when"}));
    EXPECT_EQ(stringsOf(field(third, kNames)), (Texts{"index", "a", "b", "c"}));
    EXPECT_EQ(columns(third),
              (Strings{"datetime64[ns]||VELTRAPyHost_pyDatetime64ArrayData",
                       "int64||INT64 2x1: 0 1", "object|string|VELTRA_STRING 1x2: x y",
                       "int64||INT64 2x1: 1 2", "float64||DOUBLE 2x1: 0.5 1.5"}));

    const vd::Array spans = timetable(
        "pandas.DataFrame({'span': pandas.to_timedelta([1, 2], 's'),"
        " 'when': pandas.to_datetime(['2024', '2025'])})");
    EXPECT_EQ(stringsOf(field(spans, kRowTimes)), (Texts{"span"}));
    EXPECT_EQ(columns(spans)[2], "datetime64[ns]||VELTRAPyHost_pyDatetime64ArrayData");

    const vd::Array none = timetable("pandas.DataFrame({'v': [1]})");
    EXPECT_EQ(show(field(none, kFlag)), "LOGICAL 1x1: 0");
    for (const char* unassigned : {kColumns, kNames, kRowTimes}) {
        EXPECT_EQ(show(field(none, unassigned)), "DOUBLE 0x0:") << unassigned;
    }
    EXPECT_FALSE(errorOccurred());
}

// The reset, the relabelling and the removal of the row times work on frames
// of the library's own, over the same data, and are dropped afterwards.
TEST_F(DataFrames, HostFrameStaysUnchangedWithItsReferences) {
    exec(
        "host = pandas.DataFrame({'a': [1.0, 2.0], 'b': [3.0, 4.0],"
        " 'when': pandas.to_datetime(['2024-01-01', '2024-01-02'])},"
        " index=pandas.Index([7, 8], name='k'))\n"
        "host_copy = host.copy()\n"
        "column_a = host['a']\n");
    const long long frameBefore = refcount(eval("host"));
    const long long dataBefore = refcount(eval("column_a.values.base"));
    frameData("host");
    timetable("host");
    frameData("column_a");
    EXPECT_EQ(strOf(eval("host.equals(host_copy) and host.index.equals(host_copy.index) and "
                         "list(host.columns) == ['a', 'b', 'when'] and host.index.name == 'k' and "
                         "column_a.name == 'a'")),
              "True");
    EXPECT_EQ(refcount(eval("host")), frameBefore);
    EXPECT_EQ(refcount(eval("column_a.values.base")), dataBefore);
    EXPECT_FALSE(errorOccurred());
}
