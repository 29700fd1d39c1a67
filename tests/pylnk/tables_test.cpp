// Host tables as pandas DataFrames: labels from variableNames, row names as
// the index, every kind of column made one flat Series, and the failures.
#include <gtest/gtest.h>

#include "support/conversion.h"

using namespace vxtest;

namespace {

class Tables : public ::testing::Test {
  protected:
    void SetUp() override {
        startSystemPython();
        exec("import numpy, pandas\n");
    }
    vd::ArrayFactory f;

    // A table marker: columns as (field name, data), labels by position.
    vd::Array table(const std::vector<std::pair<std::string, vd::Array>>& columns,
                    const std::vector<vd::Array>& labels, const std::string& rowLabel = "") {
        return structOf({{"VX_PylnkSP_VELTRATableAsStruct",
                          structOf({{"tableStruct", structOf(columns)},
                                    {"variableNames", cellOf(labels)},
                                    {"rowNamesFound", f.createScalar(!rowLabel.empty())},
                                    {"dimensionRow", f.createCharArray(rowLabel)}})}});
    }
    template <class T>
    vd::Array column(std::vector<T> values, size_t columns = 1) {
        vd::TypedArray<T> a = f.createArray<T>({values.size() / columns, columns});
        for (size_t k = 0; k < values.size(); ++k) {
            a[k] = values[k];
        }
        return a;
    }
    vd::Array text(const std::string& value) { return f.createCharArray(value); }
};

}  // namespace

TEST_F(Tables, LabelsComeFromVariableNamesAndRowNamesBecomeTheIndex) {
    const vd::Array plain =
        table({{"x", column<double>({1.5, 2.5, 3.5})}, {"n", column<std::int32_t>({1, 2, 3})}},
              {text("first column"), f.createScalar(std::int64_t{2})});
    EXPECT_EQ(seen("(x.columns.tolist(), x.index.tolist(), x.dtypes.astype(str).tolist(), "
                   "x.iloc[2].tolist())",
                   plain),
              "(['first column', 2], [0, 1, 2], ['float64', 'int32'], [3.5, 3.0])");

    vd::TypedArray<vd::VELTRAString> names = f.createArray<vd::VELTRAString>({1, 2});
    names[0] = std::string("r1");
    names[1] = std::string("r2");
    const vd::Array named = table(
        {{"Row", structOf({{"VX_PylnkSP_StringArray", names}})}, {"v", column<double>({10, 20})}},
        {text("Row"), text("v")}, "Row");
    EXPECT_EQ(seen("(x.index.name, x.index.tolist(), x.columns.tolist(), x.loc['r2', 'v'])", named),
              "('Row', ['r1', 'r2'], ['v'], 20.0)");
}

TEST_F(Tables, EveryKindOfColumnReachesItsSeriesFlat) {
    vd::TypedArray<vd::VELTRAString> words = f.createArray<vd::VELTRAString>({1, 2});
    words[0] = std::string("a");
    vd::TypedArray<vd::VELTRAString> dates = f.createArray<vd::VELTRAString>({1, 2});
    dates[0] = std::string("2024-01-01T12:00");
    dates[1] = std::string("NaT");
    vd::TypedArray<std::uint64_t> dims = f.createArray<std::uint64_t>({1, 2});
    dims[0] = 2;
    dims[1] = 1;
    const vd::Array frame =
        table({{"l", column<bool>({true, false})},
               {"c", column<std::complex<double>>({{1, 2}, {3, -4}})},
               {"s", structOf({{"VX_PylnkSP_StringArray", words}})},
               {"k", structOf({{"VX_PylnkSP_CategoricalArray", words}})},
               {"d", structOf({{"VX_PylnkSP_DatetimeArray",
                                structOf({{"datetimeStr", dates},
                                          {"ndims", f.createScalar(std::uint64_t{2})},
                                          {"dims", dims}})}})},
               {"o", cellOf({text("p"), f.createScalar(1.0)})}},
              {text("l"), text("c"), text("s"), text("k"), text("d"), text("o")});
    EXPECT_EQ(seen("x.dtypes.astype(str).tolist()", frame),
              "['bool', 'complex128', 'string', 'category', 'datetime64[ns]', 'object']");
    EXPECT_EQ(seen("(x['s'].isna().tolist(), x['k'].isna().tolist(), x['d'].isna().tolist(), "
                   "x['c'][1], x['o'].tolist())",
                   frame),
              "([False, True], [False, True], [False, True], (3-4j), ['p', 1.0])");

    // One row: a one-element column, not a scalar. A two-column variable:
    // flattened in column-major order.
    EXPECT_EQ(seen("x['v'].tolist()", table({{"v", column<double>({7})}}, {text("v")})), "[7.0]");
    EXPECT_EQ(seen("x['m'].tolist()",
                   table({{"m", column<std::int16_t>({1, 2, 3, 4, 5, 6}, 2)}}, {text("m")})),
              "[1, 2, 3, 4, 5, 6]");
    EXPECT_EQ(seen("x['b'].tolist()", table({{"b", column<bool>({true})}}, {text("b")})), "[True]");
}

TEST_F(Tables, EmptyTablesMismatchedLabelsAndFailingColumns) {
    EXPECT_EQ(seen("(type(x).__name__, x.shape)", table({}, {})), "('DataFrame', (0, 0))");
    EXPECT_EQ(seen("x", table({{"a", column<double>({1})}}, {text("a"), text("b")})),
              "ValueError: Length mismatch: Expected axis has 1 elements, new values have 2 "
              "elements");
    EXPECT_EQ(
        seen("x", table({{"a", f.createArray(vd::ArrayType::COMPLEX_INT16, {2, 1})}}, {text("a")})),
        "refused");
    EXPECT_EQ(seen("x", table({{"a", column<double>({1})}},
                              {structOf({{"VX_PylnkSP_FunctionHandle", text("no.such")}})})),
              "VELTRAPyHost::FuncHandleSearch: no.such");
    EXPECT_FALSE(errorOccurred());
}
