// The pandas operations that take a frame apart (the ones that build one are
// exercised end to end by the table conversion).
#include "python_helpers.h"

namespace pylnk_core::testing {
namespace {

using namespace api;
using BridgeDataFrameTest = PythonTest;

TEST_F(BridgeDataFrameTest, FramesComeApartByColumnResetSharesData) {
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

    exception::pyErrorClear();

    // The reset shares the columns' data and leaves the caller's frame as it was.
    run("import numpy\n"
        "frame = pandas.DataFrame({'a': [1.5, 2.5]}, index=pandas.Index([7, 8], name='k'))\n");
    PyHolder reset = dataframe::pyResetIndexOfDataFrame(evaluate("frame").get());
    mapping::pyMappingSetKey(fetch::fetch(u"__main__.__dict__").get(),
                             primitive::pyCreateString("reset").get(), reset.get());
    EXPECT_EQ(textOf("numpy.shares_memory(reset['a'].values, frame['a'].values)"), "True");
    EXPECT_EQ(textOf("(list(reset.columns), list(frame.columns), frame.index.name)"),
              "(['k', 'a'], ['a'], 'k')");
    EXPECT_THROW(dataframe::pyResetIndexOfDataFrame(evaluate("[1]").get()), InternalPyException);
    exception::pyErrorClear();
}

}  // namespace
}  // namespace pylnk_core::testing
