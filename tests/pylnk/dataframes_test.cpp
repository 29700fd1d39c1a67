// DataFrames and Series to the host: every road a column's dtype can take,
// with its missing values; labels, indexes and Series; timetables; and the
// host's frame left as it was.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdint>

#include "support/session.h"

using namespace vxtest;

namespace {

using Texts = std::vector<std::optional<std::string>>;
using Shape = std::vector<size_t>;

const char* const kColumns = "VELTRAPyHost_pyDataFrameColumnDataAsStruct";
const char* const kNames = "VELTRAPyHost_pyDataFrameOrgVariableNames";

template <class T>
std::vector<T> valuesOf(const vd::Array& array) {
    const vd::TypedArray<T> view(array);
    return std::vector<T>(view.begin(), view.end());
}

struct Column {
    std::string dtype;
    vd::Array subType;
    vd::Array data;
};

class DataFrames : public ::testing::Test {
  protected:
    void SetUp() override {
        startSystemPython();
        exec("import datetime, numpy, pandas\n");
    }
    static vd::Array frameData(const std::string& expression) {
        return call("pyDataFrameGetData", {addressArray(eval(expression))});
    }
    static vd::Array timetable(const std::string& expression) {
        return call("pyDataFrameTimetableGetData", {addressArray(eval(expression))});
    }
    static Column column(const vd::Array& reply, size_t position) {
        const vd::Array data = field(field(reply, kColumns), std::to_string(position));
        EXPECT_EQ(fieldNames(data),
                  (std::vector<std::string>{"DataType", "SubDataType", "DataArray"}));
        return {textOf(field(data, "DataType")), field(data, "SubDataType"),
                field(data, "DataArray")};
    }
    // The element results of a "mixed" column as text: "<value>" for a copied
    // value, "<tag>" for the others, "UnknownType:<str>" with the object.
    static std::vector<std::string> cells(const Column& mixed) {
        EXPECT_EQ(textOf(mixed.subType), "mixed");
        std::vector<std::string> texts;
        for (const vd::Array& cell : valuesOf<vd::Array>(mixed.data)) {
            const std::string tag = textOf(field(cell, "PythonDataType"));
            const vd::Array scalar = field(cell, "ScalarData");
            if (!tag.empty()) {
                texts.push_back(
                    tag == "UnknownType"
                        ? tag + ":" + strOf(addressOf(field(field(cell, "DataArray"), "object")))
                        : tag);
            } else if (scalar.getType() == vd::ArrayType::INT64) {
                texts.push_back(std::to_string(valuesOf<std::int64_t>(scalar)[0]) + "i");
            } else if (scalar.getType() == vd::ArrayType::DOUBLE) {
                texts.push_back(std::to_string(valuesOf<double>(scalar)[0]));
            } else if (scalar.getType() == vd::ArrayType::LOGICAL) {
                texts.push_back(logicalsOf(scalar)[0] ? "true" : "false");
            } else if (scalar.getType() == vd::ArrayType::COMPLEX_DOUBLE) {
                texts.push_back(std::to_string(valuesOf<std::complex<double>>(scalar)[0].imag()) +
                                "j");
            } else {
                texts.push_back("'" + *stringsOf(scalar)[0] + "'");
            }
        }
        return texts;
    }
};

}  // namespace

// Numbers travel as one n by 1 array of their own type; pandas' nullable
// dtypes as their plain type when nothing is missing, with NaN at a missing
// float, and cell by cell when a missing integer or truth value has to be
// marked. DataType is always pandas' own name.
TEST_F(DataFrames, NumbersAndTruthValuesKeepTheirTypeAndEveryMissingValueIsMarked) {
    const vd::Array reply = frameData(
        "pandas.DataFrame({'i8': numpy.array([-1, 2], 'i1'), 'u64': numpy.array([2**64 - 1, 0], "
        "'u8'),"
        " 'f32': numpy.array([0.5, -1], 'f4'), 'f64': [numpy.nan, 2.5], 'b': [True, False],"
        " 'c': [1j, 2], 'half': numpy.array([0.5, 2], 'f2'), 'big': numpy.array([7, 8], '>i4'),"
        " 'I64': pandas.array([5, -6], 'Int64'), 'F64': pandas.array([None, 1.5], 'Float64'),"
        " 'B': pandas.array([True, False], 'boolean'), 'U64': pandas.array([2**64 - 1, None], "
        "'UInt64'),"
        " 'BN': pandas.array([None, True], 'boolean'), 'IN': pandas.array([None, -3], 'Int8')})");
    auto numbers = [&](size_t position, vd::ArrayType type, const std::string& dtype) {
        const Column c = column(reply, position);
        EXPECT_EQ(c.dtype, dtype);
        EXPECT_EQ(textOf(c.subType), "");
        EXPECT_EQ(c.data.getType(), type) << dtype;
        EXPECT_EQ(c.data.getDimensions(), (Shape{2, 1})) << dtype;
        return c.data;
    };
    EXPECT_EQ(valuesOf<std::int64_t>(numbers(0, vd::ArrayType::INT64, "int64")),
              (std::vector<std::int64_t>{0, 1}))
        << "the default index comes first";
    EXPECT_EQ(valuesOf<std::int8_t>(numbers(1, vd::ArrayType::INT8, "int8")),
              (std::vector<std::int8_t>{-1, 2}));
    EXPECT_EQ(valuesOf<std::uint64_t>(numbers(2, vd::ArrayType::UINT64, "uint64"))[0], UINT64_MAX);
    EXPECT_EQ(valuesOf<float>(numbers(3, vd::ArrayType::SINGLE, "float32")),
              (std::vector<float>{0.5, -1}));
    EXPECT_TRUE(std::isnan(valuesOf<double>(numbers(4, vd::ArrayType::DOUBLE, "float64"))[0]));
    EXPECT_EQ(logicalsOf(numbers(5, vd::ArrayType::LOGICAL, "bool")),
              (std::vector<bool>{true, false}));
    EXPECT_EQ(
        valuesOf<std::complex<double>>(numbers(6, vd::ArrayType::COMPLEX_DOUBLE, "complex128"))[0],
        std::complex<double>(0, 1));
    EXPECT_EQ(valuesOf<float>(numbers(7, vd::ArrayType::SINGLE, "float16")),
              (std::vector<float>{0.5, 2}));
    EXPECT_EQ(valuesOf<std::int32_t>(numbers(8, vd::ArrayType::INT32, "int32")),
              (std::vector<std::int32_t>{7, 8}));
    EXPECT_EQ(valuesOf<std::int64_t>(numbers(9, vd::ArrayType::INT64, "Int64")),
              (std::vector<std::int64_t>{5, -6}));
    EXPECT_TRUE(std::isnan(valuesOf<double>(numbers(10, vd::ArrayType::DOUBLE, "Float64"))[0]));
    EXPECT_EQ(logicalsOf(numbers(11, vd::ArrayType::LOGICAL, "boolean")),
              (std::vector<bool>{true, false}));
    const Column u64 = column(reply, 12);
    EXPECT_EQ(u64.dtype, "UInt64");
    EXPECT_EQ(cells(u64),
              (std::vector<std::string>{"UnknownType:18446744073709551615", "UnknownType:<NA>"}))
        << "beyond INT64 the number stays whole, as an object";
    EXPECT_EQ(cells(column(reply, 13)), (std::vector<std::string>{"UnknownType:<NA>", "true"}));
    EXPECT_EQ(cells(column(reply, 14)), (std::vector<std::string>{"UnknownType:<NA>", "-3i"}));
    EXPECT_EQ(column(reply, 14).dtype, "Int8");
    EXPECT_FALSE(errorOccurred());

    // A type the host has none for is refused, not rounded.
    try {
        frameData("pandas.DataFrame({'q': numpy.array([1j], 'c32')})");
        ADD_FAILURE() << "complex256 was accepted";
    } catch (const std::exception& failure) {
        EXPECT_NE(std::string(failure.what()).find("complex256"), std::string::npos)
            << failure.what();
    }
    call("pyErrorClear");
}

TEST_F(DataFrames, DatesDurationsTextAndObjectsByTheirRoads) {
    const vd::Array reply = frameData(
        "pandas.DataFrame({"
        " 'd': pandas.to_datetime(['2024-02-29 10:30:15.250', None]),"
        " 'z': pandas.to_datetime(['2024-07-01 12:00'] * 2).tz_localize('Europe/Paris'),"
        " 't': pandas.to_timedelta(['-5400.5s', None]),"
        " 's': pandas.array(['x', None], 'string'),"
        " 'k': pandas.Categorical(['p', None]),"
        " 'o': ['x', None],"
        " 'p': pandas.period_range('2024-01', periods=2, freq='M'),"
        " 'n': [None, None]})");
    const Column naive = column(reply, 1);
    EXPECT_EQ(naive.dtype, "datetime64[ns]");
    EXPECT_EQ(valuesOf<std::int64_t>(
                  field(field(naive.data, "VELTRAPyHost_pyDatetime64ArrayData"), "minute")),
              (std::vector<std::int64_t>{30, 0}));
    EXPECT_EQ(logicalsOf(field(naive.data, "NaT_indices")), (std::vector<bool>{false, true}));
    const Column zoned = column(reply, 2);
    EXPECT_EQ(zoned.dtype, "datetime64[ns, Europe/Paris]") << "the zone stands in DataType";
    EXPECT_EQ(valuesOf<std::int64_t>(
                  field(field(zoned.data, "VELTRAPyHost_pyDatetime64ArrayData"), "hour")),
              (std::vector<std::int64_t>{10, 10}))
        << "the components are in UTC";
    const Column durations = column(reply, 3);
    EXPECT_EQ(durations.dtype, "timedelta64[ns]");
    const vd::Array split = field(durations.data, "VELTRAPyHost_pyTimedelta64Array");
    EXPECT_EQ(valuesOf<std::int64_t>(field(split, "hour")), (std::vector<std::int64_t>{-1, 0}));
    EXPECT_EQ(valuesOf<double>(field(split, "millisecond"))[0], -500);
    EXPECT_EQ(logicalsOf(field(split, "NaT")), (std::vector<bool>{false, true}));

    // A missing text is a missing element, not an empty string.
    for (size_t position : {4, 5, 6}) {
        const Column texts = column(reply, position);
        EXPECT_EQ(texts.data.getDimensions(), (Shape{1, 2}));
        EXPECT_EQ(stringsOf(texts.data), (Texts{position == 5 ? "p" : "x", std::nullopt}))
            << texts.dtype;
        EXPECT_EQ(textOf(texts.subType), position == 6 ? "string" : "") << texts.dtype;
    }
    EXPECT_EQ(column(reply, 5).dtype, "category");
    const Column period = column(reply, 7);
    EXPECT_EQ(period.dtype, "period[M]");
    EXPECT_TRUE(period.data.isEmpty() && period.subType.getType() == vd::ArrayType::DOUBLE)
        << "a dtype without a road has its name only";
    EXPECT_EQ(cells(column(reply, 8)),
              (std::vector<std::string>{"UnknownType:None", "UnknownType:None"}));
    EXPECT_FALSE(errorOccurred());
}

// Each cell of an object column as its element result, one level deep.
TEST_F(DataFrames, ObjectColumnsGoCellByCell) {
    exec(
        "sentinel = object()\n"
        "objects = pandas.DataFrame({'o': [7, 2.5, 'x', True, 2j, 2**70, float('nan'), [1, [2]], "
        "(),"
        " {'k': 1}, datetime.datetime(2024, 2, 29, 10, 30), datetime.timedelta(days=-1), None,"
        " pandas.Timestamp('2024-01-01'), sentinel]})\n");
    const Address sentinel = eval("sentinel");
    const long long before = refcount(sentinel);
    const vd::Array reply = frameData("objects");
    const Column objects = column(reply, 1);
    EXPECT_EQ(objects.dtype, "object");
    const std::vector<std::string> texts = cells(objects);
    EXPECT_EQ(std::vector<std::string>(texts.begin(), texts.begin() + 13),
              (std::vector<std::string>{"7i", "2.500000", "'x'", "true", "2.000000j",
                                        "UnknownType:1180591620717411303424", "nan", "SequenceType",
                                        "SequenceType", "Dictionary", "DatetimeScalar",
                                        "DurationScalar", "UnknownType:None"}));
    EXPECT_EQ(texts[13], "UnknownType:2024-01-01 00:00:00") << "only the exact datetime class";
    const std::vector<vd::Array> elements = valuesOf<vd::Array>(objects.data);
    const vd::Array list = field(elements[7], "DataArray");
    EXPECT_EQ(list.getDimensions(), (Shape{1, 2}));
    EXPECT_EQ(strOf(addressOf(field(valuesOf<vd::Array>(list)[1], "object"))), "[2]")
        << "a list inside a list is an object result";
    EXPECT_EQ(field(elements[8], "DataArray").getDimensions(), (Shape{1, 0}));
    EXPECT_EQ(fieldNames(field(elements[9], "DataArray")),
              (std::vector<std::string>{"VELTRAPyHost_pyKeyData", "VELTRAPyHost_pyValueData"}));
    EXPECT_EQ(
        valuesOf<double>(field(field(elements[10], "DataArray"), "VELTRAPyHost_pyDatetimeData")),
        (std::vector<double>{2024, 2, 29, 10, 30, 0, 0}));
    EXPECT_EQ(
        valuesOf<double>(field(field(elements[11], "DataArray"), "VELTRAPyHost_pyTimeDeltaData")),
        (std::vector<double>{-24, 0, 0, 0}));
    EXPECT_FALSE(errorOccurred());

    // The host's address of the object, which the registry holds once.
    EXPECT_EQ(addressOf(field(field(elements[14], "DataArray"), "object")), sentinel);
    EXPECT_EQ(refcount(sentinel), before);
}

// Labels travel as text only, so duplicates and labels of any type are no
// concern; the reset index leads, named by pandas.
TEST_F(DataFrames, LabelsIndexesAndSeries) {
    EXPECT_EQ(
        stringsOf(field(frameData("pandas.DataFrame([[1, 2, 3]], columns=['a', 'a', 5])"), kNames)),
        (Texts{"index", "a", "a", "5"}));
    const vd::Array named = frameData(
        "pandas.Series([1.5, 2.5], name='s', index=pandas.Index(['p', 'q'], name='key'))");
    EXPECT_EQ(stringsOf(field(named, kNames)), (Texts{"key", "s"}));
    EXPECT_EQ(fieldNames(field(named, kColumns)), (std::vector<std::string>{"0", "1"}));
    EXPECT_EQ(stringsOf(column(named, 0).data), (Texts{"p", "q"}));
    EXPECT_EQ(valuesOf<double>(column(named, 1).data), (std::vector<double>{1.5, 2.5}));
    EXPECT_EQ(stringsOf(field(frameData("pandas.Series([1, 2])"), kNames)), (Texts{"index", "0"}));
    EXPECT_EQ(stringsOf(field(
                  frameData("pandas.DataFrame({'v': [1]}, index=pandas.MultiIndex.from_tuples("
                            "[('a', 1)], names=['k', None]))"),
                  kNames)),
              (Texts{"k", "level_1", "v"}));
    EXPECT_EQ(
        stringsOf(field(frameData("pandas.DataFrame([[1]], columns=pandas.MultiIndex.from_tuples("
                                  "[('a', 'x')]))"),
                        kNames)),
        (Texts{"('index', '')", "('a', 'x')"}));
    const vd::Array empty = frameData("pandas.DataFrame({'a': numpy.array([], 'f8')})");
    EXPECT_EQ(fieldNames(field(empty, kColumns)), (std::vector<std::string>{"0", "1"}));
    EXPECT_EQ(column(empty, 1).data.getDimensions(), (Shape{0, 1}));

    // Anything else fails on the default road, with the error set.
    try {
        timetable("[1, 2]");
        ADD_FAILURE() << "a list was taken for a frame";
    } catch (const std::exception& failure) {
        EXPECT_STREQ(failure.what(), "TypeError: a pandas DataFrame or Series is needed, not list");
    }
    EXPECT_TRUE(errorOccurred());
    call("pyErrorClear");
}

TEST_F(DataFrames, TimetablesTakeTheFirstDateOrDurationColumnAsFieldZero) {
    const vd::Array indexed = timetable(
        "pandas.DataFrame({'v': [1.5, 2.5]}, index=pandas.DatetimeIndex(['2024-01-01', "
        "'2024-01-02'],"
        " name='when'))");
    EXPECT_EQ(fieldNames(indexed),
              (std::vector<std::string>{"VELTRAPyHost_pyDataFrameConvertibleToTimetable", kColumns,
                                        kNames, "VELTRAPyHost_pyDataFrameRowTimesVarName"}));
    EXPECT_TRUE(logicalsOf(field(indexed, "VELTRAPyHost_pyDataFrameConvertibleToTimetable"))[0]);
    EXPECT_EQ(stringsOf(field(indexed, "VELTRAPyHost_pyDataFrameRowTimesVarName")),
              (Texts{"when"}));
    EXPECT_EQ(stringsOf(field(indexed, kNames)), (Texts{"v"}));
    EXPECT_EQ(column(indexed, 0).dtype, "datetime64[ns]");

    const vd::Array third = timetable(
        "pandas.DataFrame({'a': ['x', 'y'], 'b': [1, 2], 'when': pandas.to_datetime(['2024-01-01', "
        "None]),"
        " 'c': [0.5, 1.5]})");
    EXPECT_EQ(stringsOf(field(third, "VELTRAPyHost_pyDataFrameRowTimesVarName")), (Texts{"when"}));
    EXPECT_EQ(stringsOf(field(third, kNames)), (Texts{"index", "a", "b", "c"}));
    EXPECT_EQ(fieldNames(field(third, kColumns)),
              (std::vector<std::string>{"0", "1", "2", "3", "4"}));
    EXPECT_EQ(column(third, 0).dtype, "datetime64[ns]")
        << "the row times lead, wherever they stood";
    EXPECT_EQ(stringsOf(column(third, 2).data), (Texts{"x", "y"}));
    EXPECT_EQ(valuesOf<double>(column(third, 4).data), (std::vector<double>{0.5, 1.5}));

    const vd::Array spans = timetable(
        "pandas.DataFrame({'span': pandas.to_timedelta([1, 2], 's'), 'when': "
        "pandas.to_datetime(['2024', "
        "'2025'])})");
    EXPECT_EQ(stringsOf(field(spans, "VELTRAPyHost_pyDataFrameRowTimesVarName")), (Texts{"span"}));
    EXPECT_EQ(column(spans, 2).dtype, "datetime64[ns]");

    const vd::Array none = timetable("pandas.DataFrame({'v': [1]})");
    EXPECT_FALSE(logicalsOf(field(none, "VELTRAPyHost_pyDataFrameConvertibleToTimetable"))[0]);
    for (const char* unassigned : {kColumns, kNames, "VELTRAPyHost_pyDataFrameRowTimesVarName"}) {
        EXPECT_EQ(field(none, unassigned).getType(), vd::ArrayType::DOUBLE) << unassigned;
        EXPECT_TRUE(field(none, unassigned).isEmpty()) << unassigned;
    }
    EXPECT_FALSE(errorOccurred());
}

// The reset, the relabelling and the removal of the row times work on frames
// of the library's own, over the same data, and are dropped afterwards.
TEST_F(DataFrames, TheHostsFrameStaysAsItWasAndKeepsItsReferences) {
    exec(
        "host = pandas.DataFrame({'a': [1.0, 2.0], 'b': [3.0, 4.0], 'when': pandas.to_datetime(["
        "'2024-01-01', '2024-01-02'])}, index=pandas.Index([7, 8], name='k'))\n"
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
