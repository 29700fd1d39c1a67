// Marker structures, each made into its Python object, with the failures
// that come back as report structures.
#include <gtest/gtest.h>

#include <cmath>

#include "support/conversion.h"

using namespace vxtest;

namespace {

struct Markers : SessionTest {
    Markers() : SessionTest("import math, numpy, pandas, sys\n") {}
    vd::Array absent() { return f.createCharArray(std::string()); }
};

vd::Array one(const std::string& marker, const vd::Array& value) {
    return structOf({{marker, value}});
}

}  // namespace

TEST_F(Markers, AddressesMissingStringsAndSearchOrder) {
    exec("target = [1, 2]\n");
    const Address list = eval("target");
    const long long before = refcount(list);
    EXPECT_EQ(seen("x is target", one("VX_PylnkSP_PyObjectAddress", uint64Array(list))), "True");
    EXPECT_EQ(refcount(list), before) << "the reference taken for the call is given back";
    EXPECT_EQ(seen("repr(x)", one("VX_PylnkSP_MissingString", absent())), "None");
    // The first marker in the fixed order decides, whatever the field order.
    EXPECT_EQ(seen("type(x).__name__", structOf({{"VX_PylnkSP_Datetime", row<double>({0})},
                                                 {"VX_PylnkSP_StringArray", stringRow({"s"})}})),
              "Series");
}

TEST_F(Markers, StringsCategoricalsDatesAndDurations) {
    const vd::Array withMissing = stringRow({"a", nullptr, "b"});
    EXPECT_EQ(seen("(str(x.dtype), x.isna().tolist())", one("VX_PylnkSP_StringArray", withMissing)),
              "('string', [False, True, False])");
    EXPECT_EQ(seen("(list(x.categories), x.isna().tolist())",
                   one("VX_PylnkSP_CategoricalArray", withMissing)),
              "(['a', 'b'], [False, True, False])");

    // year, month, day, hour, minute, second, UTC flag, milliseconds
    EXPECT_EQ(seen("x.isoformat()",
                   one("VX_PylnkSP_Datetime", row<double>({2024, 2, 29, 10, 30, 15, 0, 250.5}))),
              "2024-02-29T10:30:15.250500");
    EXPECT_EQ(seen("x.isoformat()",
                   one("VX_PylnkSP_Datetime", row<double>({2024, 2, 29, 10, 30, 15, 1, 0}))),
              "2024-02-29T10:30:15+00:00");
    EXPECT_EQ(seen("repr(x)", one("VX_PylnkSP_Duration", row<double>({90061001}))),
              "datetime.timedelta(days=1, seconds=3661, microseconds=1000)");
    EXPECT_EQ(seen("x", one("VX_PylnkSP_Datetime", row<double>({2024, 13, 1, 0, 0, 0, 0, 0}))),
              "ValueError: month must be in 1..12");
    EXPECT_FALSE(errorOccurred()) << "the report consumed the error";

    // NumPy element (i, j) is host element (i, j).
    const vd::Array dates = shapedMarker(
        "VX_PylnkSP_DatetimeArray", "datetimeStr",
        stringRow({"2024-01-01", "2024-01-02", "NaT", "2024-01-04", nullptr, "2024-01-06"}),
        {2, 3});
    EXPECT_EQ(seen("(str(x[1, 0]), numpy.isnat(x).tolist())", dates),
              "('2024-01-02', [[False, True, True], [False, False, False]])");
    const vd::Array durations = shapedMarker("VX_PylnkSP_DurationArray", "duration",
                                             row<double>({1, 2, std::nan(""), 4}), {2, 2});
    EXPECT_EQ(seen("(x.dtype.str, x[1, 0].item(), numpy.isnat(x[0, 1]))", durations),
              "('<m8[ms]', datetime.timedelta(microseconds=2000), True)");
    EXPECT_EQ(
        seen("(x.dtype.str, x[0, 0].item())",
             shapedMarker("VX_PylnkSP_DurationArray", "duration", row<double>({0.5, 1}), {1, 2})),
        "('<m8[us]', datetime.timedelta(microseconds=500))")
        << "the finest unit the values need";
}

TEST_F(Markers, DictionariesSlicesAndFunctionHandles) {
    const vd::Array keys =
        cellOf({f.createScalar(std::int32_t{1}), one("VX_PylnkSP_MissingString", absent())});
    const vd::Array values = cellOf({cellOf({}), f.createScalar(true)});
    EXPECT_EQ(seen("repr(x)", structOf({{"VX_PylnkSP_Dictionary_Keys", keys},
                                        {"VX_PylnkSP_Dictionary_Values", values}})),
              "{1: (), None: True}");
    EXPECT_EQ(seen("repr(x)", one("VX_PylnkSP_Dictionary_Keys", cellOf({}))), "{}")
        << "no keys: the values are not read";

    auto slice = [this](vd::Array start, vd::Array stop, vd::Array step) {
        return structOf(
            {{"VX_PylnkSP_start", start}, {"VX_PylnkSP_stop", stop}, {"VX_PylnkSP_step", step}});
    };
    const vd::Array first = f.createScalar(std::uint64_t{1});
    const vd::Array five = f.createScalar(std::uint64_t{5});
    const vd::Array back = f.createScalar(std::int64_t{-2});
    EXPECT_EQ(seen("repr(x)", slice(first, five, back)), "slice(1, 5, -2)");
    EXPECT_EQ(seen("repr(x)", slice(first, absent(), back)), "slice(1, None, -2)");
    EXPECT_EQ(seen("repr(x)", slice(first, absent(), absent())), "slice(None, None, None)");
    EXPECT_THROW(seen("x", slice(absent(), five, back)), std::exception) << "no stop without start";

    auto handle = [this](const std::string& name) {
        return one("VX_PylnkSP_FunctionHandle", f.createCharArray(name));
    };
    EXPECT_EQ(seen("x is math.sqrt", handle("math.sqrt")), "True");
    EXPECT_EQ(seen("x", handle("math.pi")), "VELTRAPyHost::FuncHandleNotCallable: py.float");
    EXPECT_EQ(seen("x", handle("math.nothing")), "VELTRAPyHost::FuncHandleSearch: math.nothing");
    EXPECT_EQ(seen("x", handle("1math..sqrt")), "VELTRAPyHost::FuncHandleType: 1math..sqrt");
    EXPECT_FALSE(errorOccurred());
}

TEST_F(Markers, EmptyTablesAndImportFailuresIdentified) {
    const vd::Array emptyTable = one("VX_PylnkSP_MissingVELTRATable", absent());
    EXPECT_EQ(seen("(type(x).__name__, x.shape)", emptyTable), "('DataFrame', (0, 0))");
    const std::vector<vd::Array> needing = {
        one("VX_PylnkSP_CategoricalArray", stringRow({"a"})), emptyTable,
        shapedMarker("VX_PylnkSP_DatetimeArray", "datetimeStr", stringRow({}), {0}),
        shapedMarker("VX_PylnkSP_DurationArray", "duration", row<double>({}), {0})};
    // A module set to None in sys.modules cannot be imported.
    exec(
        "saved = sys.modules['pandas'], sys.modules['numpy']\n"
        "sys.modules['pandas'] = sys.modules['numpy'] = None\n");
    std::vector<std::string> reports;
    for (const vd::Array& value : needing) {
        reports.push_back(seen("x", value));
    }
    exec("sys.modules['pandas'], sys.modules['numpy'] = saved\n");
    EXPECT_EQ(reports, (std::vector<std::string>{"VELTRAPyHost::PandasImportFailed: categorical",
                                                 "VELTRAPyHost::PandasImportFailed: table",
                                                 "VELTRAPyHost::NumpyImportFailed: datetime",
                                                 "VELTRAPyHost::NumpyImportFailed: duration"}));
    EXPECT_FALSE(errorOccurred());
}
