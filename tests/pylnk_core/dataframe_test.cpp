// The pandas operations that take a frame apart (the ones that build one are
// exercised end to end by the table conversion).
#include "python_helpers.h"

namespace pylnk_core::testing {
namespace {

using namespace api;
using BridgeDataFrameTest = PythonTest;

TEST_F(BridgeDataFrameTest, FramesComeApartColumnByColumn) {
    run("import pandas\n");
    PyHolder series = evaluate(
        "pandas.Series(['x', None, 'z'], index=pandas.Index([10, 20, 30], name='k'), name='s')");
    PyHolder frame = dataframe::pyResetIndexOfDataFrame(
        dataframe::pyConvertPandasSeriesToPandasDataFrame(series.get()).get());
    EXPECT_EQ(str(dataframe::pyGetDataFrameColumnsAsList(frame.get()).get()), "['k', 's']");
    PyHolder dtypes = object::pyGetMember(frame.get(), "dtypes");
    EXPECT_EQ(str(dataframe::pyGetColumnDataAsPandasSeries(dtypes.get(), evaluate("'k'")).get()),
              "int64");

    PyHolder column = dataframe::pyGetColumnDataAsPandasSeries(frame.get(), evaluate("'s'"));
    PyHolder values = object::pyGetMember(column.get(), "values");
    EXPECT_TRUE(dataframe::pyIsPandasSeriesAStringDtype(values));
    EXPECT_EQ(
        str(dataframe::pyConvertNumPyDataToList(dataframe::pyCheckNullValues(values.get()).get())
                .get()),
        "[False, True, False]");
    EXPECT_EQ(str(dataframe::pyConvertNumPyDataToList(
                      evaluate("pandas.array(['p', None], dtype='string')").get())
                      .get()),
              "['p', <NA>]");

    PyHolder popped = dataframe::pyPopColumnFromDataFrame(frame.get(), evaluate("'k'"));
    EXPECT_EQ(str(dataframe::pyConvertNumPyDataToList(popped.get()).get()), "[10, 20, 30]");
    EXPECT_EQ(str(dataframe::pyGetDataFrameColumnsAsList(frame.get()).get()), "['s']")
        << "removed from the frame it was given, which stays usable";

    EXPECT_FALSE(dataframe::pyIsPandasSeriesAStringDtype(evaluate("['a', 1]")));
    EXPECT_FALSE(dataframe::pyIsPandasSeriesAStringDtype(evaluate("[None]")));
    EXPECT_FALSE(dataframe::pyIsPandasSeriesAStringDtype(evaluate("len")));
    EXPECT_FALSE(exception::pyErrorOccurred());
    EXPECT_THROW(dataframe::pySetDataFrameColumnLabel(frame.get(), evaluate("('a', 'b')")),
                 InternalPyException);
    EXPECT_TRUE(exception::pyErrorOccurred()) << "the default rule: the error stays set";
}

}  // namespace
}  // namespace pylnk_core::testing
