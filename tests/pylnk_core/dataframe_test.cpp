// The pandas operations: string and categorical data with missing values,
// the steps that make a frame from host columns, and the ones that take a
// frame apart.
#include "python_helpers.h"

namespace pylnk_core::testing {
namespace {

using namespace api;

class BridgeDataFrameTest : public PythonTest {
  protected:
    void SetUp() override {
        PythonTest::SetUp();
        run("import array, numpy, pandas\n");
    }
    // str() of a Python expression of x, so pandas' own rendering is compared.
    std::string eval(const std::string& expression, const PyHolder& x) {
        run("def probe(x):\n    return " + expression + "\n");
        return str(object::pyInvoke(evaluate("probe").get(), {x}, {}).get());
    }
};

TEST_F(BridgeDataFrameTest, StringsAndCategoriesKeepNoneAsMissing) {
    PyHolder items = evaluate("('a', None, 'b')");
    PyHolder strings = dataframe::pyCreatePandasSeriesOfDTypeString(items);
    EXPECT_EQ(eval("(str(x.dtype), x.isna().tolist(), x[0], x[2])", strings),
              "('string', [False, True, False], 'a', 'b')");
    PyHolder categories = dataframe::pyCreatePandasCategoricalArray(items);
    EXPECT_EQ(eval("(list(x.categories), x.codes.tolist(), pandas.isna(x).tolist())", categories),
              "(['a', 'b'], [0, -1, 1], [False, True, False])")
        << "None is a missing value, never the category 'None'";

    PyHolder empty = evaluate("()");
    EXPECT_EQ(eval("(type(x).__name__, len(x), str(x.dtype))",
                   dataframe::pyCreatePandasSeriesOfDTypeString(empty)),
              "('Series', 0, 'string')");
    EXPECT_EQ(eval("(type(x).__name__, len(x))", dataframe::pyCreatePandasCategoricalArray(empty)),
              "('Categorical', 0)");
}

TEST_F(BridgeDataFrameTest, ColumnsBecomeOneFlatArrayInColumnMajorOrderAndThenAFrame) {
    PyHolder scalar = dataframe::pyCreateNumpyAsArray(evaluate("2.5"));
    EXPECT_EQ(eval("(x.ndim, x.dtype.name)", scalar), "(0, 'float64')");
    EXPECT_EQ(eval("x.tolist()", dataframe::pyFlattenNumpyData(scalar.get())), "[2.5]");

    PyHolder vector = evaluate("array.array('i', [1, 2, 3])");
    PyHolder asArray = dataframe::pyCreateNumpyAsArray(vector);
    run("def same(a, b):\n    return numpy.shares_memory(a, b)\n");
    EXPECT_EQ(str(object::pyInvoke(evaluate("same").get(), {asArray, vector}, {}).get()), "True")
        << "no copy of the array.array's items";

    PyHolder matrix = evaluate("numpy.asfortranarray(numpy.arange(6).reshape(2, 3))");
    PyHolder flat = dataframe::pyFlattenNumpyData(matrix.get());
    EXPECT_EQ(eval("x.tolist()", flat), "[0, 3, 1, 4, 2, 5]") << "column-major element order";
    EXPECT_EQ(str(object::pyInvoke(evaluate("same").get(), {flat, matrix}, {}).get()), "True");

    PyHolder columns = mapping::pyCreateDict();
    PyHolder first = dataframe::pyCreatePandasSeriesForDataFrameColumn(flat);
    PyHolder second =
        dataframe::pyCreatePandasSeriesForDataFrameColumn(evaluate("tuple('abcdef')"));
    mapping::pyMappingSetKey(columns.get(), evaluate("'f0'").get(), first.get());
    mapping::pyMappingSetKey(columns.get(), evaluate("'f1'").get(), second.get());
    PyHolder frame = dataframe::pyCreateDataFrame(columns);

    PyHolder relabelled =
        dataframe::pySetDataFrameColumnLabel(frame.get(), evaluate("('n', (1, 2))"));
    EXPECT_EQ(eval("x.columns.tolist()", relabelled), "['n', (1, 2)]")
        << "a tuple is one label, not two levels";
    EXPECT_EQ(eval("x.columns.tolist()", frame), "['f0', 'f1']") << "the given frame is unchanged";
    PyHolder indexed = dataframe::pySetDataFrameIndex(relabelled.get(), evaluate("(1, 2)"));
    EXPECT_EQ(eval("(x.index.tolist(), x.columns.tolist(), x['n'].tolist()[:2])", indexed),
              "(['a', 'b', 'c', 'd', 'e', 'f'], ['n'], [0, 3])");

    EXPECT_THROW(dataframe::pySetDataFrameColumnLabel(frame.get(), evaluate("('only',)")),
                 InternalPyException);
    EXPECT_TRUE(exception::pyErrorOccurred()) << "the default rule: the error stays set";
    exception::pyErrorClear();
    EXPECT_EQ(eval("x.shape", dataframe::pyCreateDataFrame(mapping::pyCreateDict())), "(0, 0)");
}

TEST_F(BridgeDataFrameTest, FramesComeApartColumnByColumn) {
    PyHolder series = evaluate(
        "pandas.Series(['x', None, 'z'], index=pandas.Index([10, 20, 30], name='k'), name='s')");
    PyHolder frame = dataframe::pyResetIndexOfDataFrame(
        dataframe::pyConvertPandasSeriesToPandasDataFrame(series.get()).get());
    PyHolder labels = dataframe::pyGetDataFrameColumnsAsList(frame.get());
    EXPECT_EQ(str(labels.get()), "['k', 's']");

    PyHolder dtypes = object::pyGetMember(frame.get(), "dtypes");
    EXPECT_EQ(
        eval("x.name", dataframe::pyGetColumnDataAsPandasSeries(dtypes.get(), evaluate("'k'"))),
        "int64");
    PyHolder column = dataframe::pyGetColumnDataAsPandasSeries(frame.get(), evaluate("'s'"));
    PyHolder values = object::pyGetMember(column.get(), "values");
    EXPECT_TRUE(dataframe::pyIsPandasSeriesAStringDtype(values));
    EXPECT_EQ(
        str(dataframe::pyConvertNumPyDataToList(dataframe::pyCheckNullValues(values.get()).get())
                .get()),
        "[False, True, False]");
    EXPECT_EQ(str(dataframe::pyConvertNumPyDataToList(values.get()).get()), "['x', None, 'z']");

    PyHolder popped = dataframe::pyPopColumnFromDataFrame(frame.get(), evaluate("'k'"));
    EXPECT_EQ(eval("x.tolist()", popped), "[10, 20, 30]");
    EXPECT_EQ(eval("(x.columns.tolist(), x.shape)", frame), "(['s'], (3, 1))")
        << "removed from the frame it was given, which stays usable";

    // Extension arrays have tolist as well.
    PyHolder stringValues = evaluate("pandas.Series(['p', None], dtype='string').values");
    EXPECT_EQ(str(dataframe::pyConvertNumPyDataToList(stringValues.get()).get()), "['p', <NA>]");

    EXPECT_FALSE(
        dataframe::pyIsPandasSeriesAStringDtype(evaluate("numpy.array(['a', 1], object)")));
    EXPECT_FALSE(dataframe::pyIsPandasSeriesAStringDtype(evaluate("numpy.array([None], object)")));
    EXPECT_FALSE(dataframe::pyIsPandasSeriesAStringDtype(evaluate("len")));
    EXPECT_FALSE(exception::pyErrorOccurred());
    EXPECT_THROW(dataframe::pyPopColumnFromDataFrame(frame.get(), evaluate("'nope'")),
                 InternalPyException);
}

}  // namespace
}  // namespace pylnk_core::testing
