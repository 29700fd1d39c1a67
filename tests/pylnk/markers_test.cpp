// Marker structures: what the host's side sends for what host arrays have
// no form of, each made into its Python object, with the failures that come
// back as report structures.
#include <gtest/gtest.h>

#include <limits>

#include "support/conversion.h"

using namespace vxtest;

namespace {

class Markers : public ::testing::Test {
  protected:
    void SetUp() override {
        startSystemPython();
        exec("import datetime, math, numpy, pandas, sys\n");
    }
    vd::ArrayFactory f;

    vd::Array strings(const std::vector<std::optional<std::u16string>>& items) {
        vd::TypedArray<vd::VELTRAString> a = f.createArray<vd::VELTRAString>({1, items.size()});
        for (size_t k = 0; k < items.size(); ++k) {
            if (items[k]) {
                a[k] = *items[k];
            }
        }
        return a;
    }
    vd::Array doubles(const std::vector<double>& values, std::vector<size_t> dims = {}) {
        vd::TypedArray<double> a =
            f.createArray<double>(dims.empty() ? std::vector<size_t>{1, values.size()} : dims);
        for (size_t k = 0; k < values.size(); ++k) {
            a[k] = values[k];
        }
        return a;
    }
    vd::Array dims(const std::vector<std::uint64_t>& extents) {
        vd::TypedArray<std::uint64_t> a = f.createArray<std::uint64_t>({1, extents.size()});
        for (size_t k = 0; k < extents.size(); ++k) {
            a[k] = extents[k];
        }
        return a;
    }
    vd::Array slice(vd::Array start, vd::Array stop, vd::Array step) {
        return structOf(
            {{"VX_PylnkSP_start", start}, {"VX_PylnkSP_stop", stop}, {"VX_PylnkSP_step", step}});
    }
    vd::Array absent() { return f.createCharArray(std::string()); }
};

}  // namespace

TEST_F(Markers, ObjectsByAddressMissingStringsAndTheOrderOfTheSearch) {
    const Address list = eval("[1, 2]");
    const long long before = refcount(list);
    exec("def same(x):\n    return x is target\n");
    call("pySetKey",
         {addressArray(eval("globals()")), addressArray(unicode(u"target")), addressArray(list)});
    const long long bound = refcount(list);
    const vd::Array marker = structOf({{"VX_PylnkSP_PyObjectAddress", uint64Array(list)}});
    EXPECT_EQ(replyText(invokeFastInput(eval("same"), {marker})), "True");
    EXPECT_EQ(refcount(list), bound) << "the reference taken for the call is given back";
    EXPECT_EQ(bound, before + 1);

    EXPECT_EQ(seen("repr(x)", structOf({{"VX_PylnkSP_MissingString", absent()}})), "None");
    // The first marker in the fixed order decides, whatever the field order.
    const vd::Array both = structOf({{"VX_PylnkSP_Datetime", doubles({2024, 1, 1, 0, 0, 0, 0, 0})},
                                     {"VX_PylnkSP_StringArray", strings({u"s"})}});
    EXPECT_EQ(seen("type(x).__name__", both), "Series");
    EXPECT_EQ(
        seen("type(x).__name__", structOf({{"a", f.createScalar(1.0)},
                                           {"VX_PylnkSP_stop", f.createScalar(std::uint64_t{3})},
                                           {"VX_PylnkSP_start", f.createScalar(std::uint64_t{1})},
                                           {"VX_PylnkSP_step", f.createScalar(std::int64_t{1})}})),
        "slice");
}

TEST_F(Markers, StringArraysAndCategoricalsKeepMissingValues) {
    const vd::Array withMissing = strings({u"a", std::nullopt, u"\u00e9"});
    EXPECT_EQ(seen("(str(x.dtype), x.isna().tolist(), x[2] == '\\u00e9')",
                   structOf({{"VX_PylnkSP_StringArray", withMissing}})),
              "('string', [False, True, False], True)");
    EXPECT_EQ(seen("(len(x), str(x.dtype))", structOf({{"VX_PylnkSP_StringArray", strings({})}})),
              "(0, 'string')");
    EXPECT_EQ(seen("(list(x.categories), x.isna().tolist())",
                   structOf({{"VX_PylnkSP_CategoricalArray", withMissing}})),
              "(['a', 'é'], [False, True, False])");
}

TEST_F(Markers, DatesAndDurationsWithTheFlagAndTheHostShape) {
    // year, month, day, hour, minute, second, UTC flag, milliseconds
    EXPECT_EQ(seen("repr(x)",
                   structOf({{"VX_PylnkSP_Datetime", doubles({2024, 2, 29, 10, 30, 15, 0, 250})}})),
              "datetime.datetime(2024, 2, 29, 10, 30, 15, 250000)");
    EXPECT_EQ(seen("x.isoformat()",
                   structOf({{"VX_PylnkSP_Datetime", doubles({2024, 2, 29, 10, 30, 15, 1, 0.5})}})),
              "2024-02-29T10:30:15.000500+00:00");
    EXPECT_EQ(seen("repr(x)", structOf({{"VX_PylnkSP_Duration", doubles({90061001})}})),
              "datetime.timedelta(days=1, seconds=3661, microseconds=1000)");

    // NumPy element (i, j) is host element (i, j).
    vd::TypedArray<vd::VELTRAString> texts = f.createArray<vd::VELTRAString>({1, 6});
    const char* values[] = {"2024-01-01", "2024-01-02", "NaT", "2024-01-04", "2024-01-05", nullptr};
    for (size_t k = 0; k < 5; ++k) {
        texts[k] = std::string(values[k]);
    }
    const vd::Array dates = structOf(
        {{"VX_PylnkSP_DatetimeArray", structOf({{"datetimeStr", texts},
                                                {"ndims", f.createScalar(std::uint64_t{2})},
                                                {"dims", dims({2, 3})}})}});
    EXPECT_EQ(seen("(x.shape, str(x[1, 0]), str(x[0, 1]), numpy.isnat(x).tolist())", dates),
              "((2, 3), '2024-01-02', 'NaT', [[False, True, False], [False, False, True]])");
    const vd::Array durations = structOf(
        {{"VX_PylnkSP_DurationArray", structOf({{"duration", doubles({1, 2, std::nan(""), 4})},
                                                {"ndims", f.createScalar(std::uint64_t{2})},
                                                {"dims", dims({2, 2})}})}});
    EXPECT_EQ(seen("(x.dtype.str, x[1, 0].item(), numpy.isnat(x[0, 1]))", durations),
              "('<m8[ms]', datetime.timedelta(microseconds=2000), True)");

    // A component Python refuses: a report from the interpreter, error consumed.
    EXPECT_EQ(seen("x", structOf({{"VX_PylnkSP_Datetime", doubles({2024, 13, 1, 0, 0, 0, 0, 0})}})),
              "ValueError: month must be in 1..12");
    EXPECT_FALSE(errorOccurred());
}

TEST_F(Markers, DictionariesConvertKeysAndValuesByTheWholeDriver) {
    const vd::Array keys =
        cellOf({f.createScalar(std::int32_t{1}), f.createCharArray(std::string("b")),
                structOf({{"VX_PylnkSP_MissingString", absent()}})});
    const vd::Array values = cellOf({cellOf({}), f.createScalar(2.5), f.createScalar(true)});
    EXPECT_EQ(seen("repr(x)", structOf({{"VX_PylnkSP_Dictionary_Keys", keys},
                                        {"VX_PylnkSP_Dictionary_Values", values}})),
              "{1: (), 'b': 2.5, None: True}");
    EXPECT_EQ(seen("repr(x)", structOf({{"VX_PylnkSP_Dictionary_Keys", cellOf({})}})), "{}")
        << "no keys: the values are not read";
    const vd::Array badKey =
        cellOf({f.createScalar(1.0), f.createArray(vd::ArrayType::COMPLEX_INT8, {1, 1})});
    EXPECT_EQ(replyText(invokeFastInput(eval("repr"),
                                        {structOf({{"VX_PylnkSP_Dictionary_Keys", badKey},
                                                   {"VX_PylnkSP_Dictionary_Values", values}})})),
              "refused");
    // An unhashable key fails in Python: a report, not a stored exception.
    EXPECT_EQ(seen("x", structOf({{"VX_PylnkSP_Dictionary_Keys", cellOf({structOf({})})},
                                  {"VX_PylnkSP_Dictionary_Values", values}})),
              "TypeError: unhashable type: 'dict'");
}

TEST_F(Markers, FunctionHandlesAndTheirThreeFailures) {
    auto handle = [this](const std::string& name) {
        return structOf({{"VX_PylnkSP_FunctionHandle", f.createCharArray(name)}});
    };
    EXPECT_EQ(seen("x is math.sqrt", handle("math.sqrt")), "True");
    EXPECT_EQ(seen("x", handle("math.pi")), "VELTRAPyHost::FuncHandleNotCallable: py.float");
    EXPECT_EQ(seen("x", handle("math.no_such_function")),
              "VELTRAPyHost::FuncHandleSearch: math.no_such_function");
    EXPECT_EQ(seen("x", handle("1math..sqrt")), "VELTRAPyHost::FuncHandleType: 1math..sqrt");
    EXPECT_FALSE(errorOccurred());
}

TEST_F(Markers, SlicesWithAbsentValues) {
    const vd::Array one = f.createScalar(std::uint64_t{1});
    const vd::Array five = f.createScalar(std::uint64_t{5});
    const vd::Array two = f.createScalar(std::int64_t{-2});
    EXPECT_EQ(seen("repr(x)", slice(one, five, two)), "slice(1, 5, -2)");
    EXPECT_EQ(seen("repr(x)", slice(one, absent(), two)), "slice(1, None, -2)");
    EXPECT_EQ(seen("repr(x)", slice(absent(), absent(), absent())), "slice(None, None, None)");
    EXPECT_EQ(seen("repr(x)", slice(one, absent(), absent())), "slice(None, None, None)")
        << "a start without a step is dropped";
    EXPECT_THROW(seen("x", slice(absent(), five, two)), std::exception)
        << "no form has a stop without a start";
}

TEST_F(Markers, EmptyTablesAndImportFailuresWithTheirFixedIdentifiers) {
    const vd::Array emptyTable = structOf({{"VX_PylnkSP_MissingVELTRATable", absent()}});
    EXPECT_EQ(seen("(type(x).__name__, x.shape)", emptyTable), "('DataFrame', (0, 0))");

    const vd::Array categorical = structOf({{"VX_PylnkSP_CategoricalArray", strings({u"a"})}});
    const vd::Array dates = structOf(
        {{"VX_PylnkSP_DatetimeArray", structOf({{"datetimeStr", strings({})},
                                                {"ndims", f.createScalar(std::uint64_t{1})},
                                                {"dims", dims({0})}})}});
    const vd::Array durations = structOf(
        {{"VX_PylnkSP_DurationArray", structOf({{"duration", doubles({})},
                                                {"ndims", f.createScalar(std::uint64_t{1})},
                                                {"dims", dims({0})}})}});
    // A module set to None in sys.modules cannot be imported.
    exec(
        "saved = sys.modules['pandas'], sys.modules['numpy']\n"
        "sys.modules['pandas'] = sys.modules['numpy'] = None\n");
    const std::string categoricalSeen = seen("x", categorical);
    const std::string tableSeen = seen("x", emptyTable);
    const std::string datesSeen = seen("x", dates);
    const std::string durationsSeen = seen("x", durations);
    exec("sys.modules['pandas'], sys.modules['numpy'] = saved\n");
    EXPECT_EQ(categoricalSeen, "VELTRAPyHost::PandasImportFailed: categorical");
    EXPECT_EQ(tableSeen, "VELTRAPyHost::PandasImportFailed: table");
    EXPECT_EQ(datesSeen, "VELTRAPyHost::NumpyImportFailed: datetime");
    EXPECT_EQ(durationsSeen, "VELTRAPyHost::NumpyImportFailed: duration");
    EXPECT_FALSE(errorOccurred());
    EXPECT_EQ(seen("x.shape", dates), "(0,)");
}
