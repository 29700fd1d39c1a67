// Host tables as pandas DataFrames: labels from variableNames, row names as
// the index, every kind of column made one flat Series, and the failures.
#include <gtest/gtest.h>

#include "support/conversion.h"

using namespace vxtest;

namespace {

struct Tables : SessionTest {
    // A table marker: columns as (field name, data), labels by position.
    vd::Array table(const std::vector<std::pair<std::string, vd::Array>>& columns,
                    const std::vector<std::string>& labels, const std::string& rowLabel = "") {
        std::vector<vd::Array> names;
        for (const std::string& label : labels) {
            names.push_back(chars(label));
        }
        return structOf({{"VX_PylnkSP_VELTRATableAsStruct",
                          structOf({{"tableStruct", structOf(columns)},
                                    {"variableNames", cellOf(names)},
                                    {"rowNamesFound", f.createScalar(!rowLabel.empty())},
                                    {"dimensionRow", chars(rowLabel)}})}});
    }
    template <class T>
    vd::Array column(const std::vector<T>& values, size_t columns = 1) {
        return f.createArray<T>({values.size() / columns, columns}, values.begin(), values.end());
    }
};

}  // namespace

TEST_F(Tables, LabelsFromVariableAndRowNames) {
    const vd::Array plain = table(
        {{"x", column<double>({1.5, 2.5})}, {"n", column<std::int32_t>({1, 2})}}, {"a b", "n"});
    EXPECT_EQ(seen("(x.columns.tolist(), x.index.tolist(), x.dtypes.astype(str).tolist())", plain),
              "(['a b', 'n'], [0, 1], ['float64', 'int32'])");
    const vd::Array named =
        table({{"Row", structOf({{"VX_PylnkSP_StringArray", stringRow({"r1", "r2"})}})},
               {"v", column<double>({10, 20})}},
              {"Row name", "v"}, "Row name");
    EXPECT_EQ(seen("(x.index.name, x.index.tolist(), x.columns.tolist(), x.loc['r2', 'v'])", named),
              "('Row name', ['r1', 'r2'], ['v'], 20.0)")
        << "dimensionRow names the column by its label, not its field name";
}

TEST_F(Tables, EveryKindOfColumnReachesItsSeriesFlat) {
    const vd::Array frame =
        table({{"l", column<bool>({true, false})},
               {"c", column<std::complex<double>>({{1, 2}, {3, -4}})},
               {"s", structOf({{"VX_PylnkSP_StringArray", stringRow({"a", nullptr})}})},
               {"k", structOf({{"VX_PylnkSP_CategoricalArray", stringRow({"a", nullptr})}})},
               {"o", cellOf({chars("p"), f.createScalar(1.0)})}},
              {"l", "c", "s", "k", "o"});
    EXPECT_EQ(seen("(x.dtypes.astype(str).tolist(), x['s'].isna().tolist(), "
                   "x['k'].isna().tolist(), x['c'][1], x['o'].tolist())",
                   frame),
              "(['bool', 'complex128', 'string', 'category', 'object'], [False, True], "
              "[False, True], (3-4j), ['p', 1.0])");
    // One row is a one-element column, not a scalar; two columns are flattened
    // in column-major order.
    EXPECT_EQ(seen("x['v'].tolist()", table({{"v", column<double>({7})}}, {"v"})), "[7.0]");
    EXPECT_EQ(
        seen("x['m'].tolist()", table({{"m", column<std::int16_t>({1, 2, 3, 4, 5, 6}, 2)}}, {"m"})),
        "[1, 2, 3, 4, 5, 6]");
}

TEST_F(Tables, EmptyTablesMismatchedLabelsAndFailingColumns) {
    EXPECT_EQ(seen("(type(x).__name__, x.shape)", table({}, {})), "('DataFrame', (0, 0))");
    EXPECT_EQ(seen("x", table({{"a", column<double>({1})}}, {"a", "b"})),
              "ValueError: Length mismatch: Expected axis has 1 elements, new values have 2 "
              "elements");
    EXPECT_EQ(
        seen("x", table({{"a", cellOf({f.createArray(vd::ArrayType::ENUM, {1, 1})})}}, {"a"})),
        "refused");
    EXPECT_FALSE(errorOccurred());
}
