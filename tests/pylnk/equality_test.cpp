// pyIsEqual and pyIsNumpyArrayEqual: host values compared by Python's own
// rules, keywords handed on as pairs, and nothing of a failed request kept.
#include <gtest/gtest.h>

#include <cmath>

#include "support/conversion.h"

using namespace vxtest;

namespace {

class Equality : public ::testing::Test {
  protected:
    void SetUp() override { startSystemPython(); }
    vd::ArrayFactory f;
    vd::Array row(std::vector<double> values) {
        return f.createArray<double>({1, values.size()}, values.begin(), values.end());
    }
    static vd::Array byAddress(Address object) {
        return structOf({{"VX_PylnkSP_PyObjectAddress", uint64Array(object)}});
    }
    static vd::Array compare(const std::string& command, const std::vector<vd::Array>& values,
                             vd::Array keywords = keywordsOf({})) {
        return call(command, {cellOf({cellOf(values), keywords})});
    }
};

}  // namespace

TEST_F(Equality, IsEqualAnswersWithTheObjectResultOfWhatEqualityGives) {
    const vd::Array equal = compare("pyIsEqual", {f.createScalar(2.0), f.createScalar(2.0)});
    EXPECT_EQ(field(equal, "scalarData").getType(), vd::ArrayType::LOGICAL);
    EXPECT_TRUE(logicalsOf(field(equal, "scalarData"))[0]);
    const Address truth = addressOf(field(equal, "object"));
    EXPECT_NE(truth, 0u) << "the result is retained";
    release(truth);
    EXPECT_FALSE(logicalsOf(field(
        compare("pyIsEqual", {f.createScalar(1.0), f.createCharArray("1")}), "scalarData"))[0]);

    // NumPy's == gives an array: an address and no scalar data.
    const vd::Array elementwise = compare(
        "pyIsEqual", {byAddress(eval("__import__('numpy').array([1.0, 2.0])")), row({1.0, 3.0})});
    EXPECT_TRUE(field(elementwise, "scalarData").isEmpty());
    const Address array = addressOf(field(elementwise, "object"));
    EXPECT_EQ(strOf(array), "[ True False]");
    release(array);

    // Keyword structs without elements or with one field give no pairs; a
    // third field is not read. operator.eq refuses keywords, so a pair shows.
    for (const vd::Array& none :
         {vd::Array(f.createStructArray({0, 1}, {"kwargKey0", "kwargValue0"})),
          structOf({{"kwargKey0", f.createCharArray("k")}})}) {
        EXPECT_TRUE(
            logicalsOf(field(compare("pyIsEqual", {f.createScalar(1.0), f.createScalar(1.0)}, none),
                             "scalarData"))[0]);
    }
    EXPECT_THROW(compare("pyIsEqual", {f.createScalar(1.0), f.createScalar(1.0)},
                         structOf({{"kwargKey0", f.createCharArray("k")},
                                   {"kwargValue0", f.createScalar(1.0)},
                                   {"extra", f.createScalar(1.0)}})),
                 std::exception);
    EXPECT_TRUE(errorOccurred()) << "a failure of the comparison itself is left for the host";
    call("pyErrorClear");
}

TEST_F(Equality, NumpyArrayEqualGivesABareTruthValueAndTakesKeywords) {
    const vd::Array withNan = row({1.0, std::nan("")});
    const vd::Array plain = compare("pyIsNumpyArrayEqual", {withNan, withNan});
    EXPECT_EQ(plain.getType(), vd::ArrayType::LOGICAL);
    EXPECT_EQ(plain.getDimensions(), (std::vector<size_t>{1, 1}));
    EXPECT_FALSE(truthOf(plain));
    EXPECT_TRUE(
        truthOf(compare("pyIsNumpyArrayEqual", {withNan, withNan},
                        keywordsOf({{f.createCharArray("equal_nan"), f.createScalar(true)}}))));
    EXPECT_FALSE(truthOf(compare("pyIsNumpyArrayEqual", {row({1, 2}), row({1, 2, 3})})));
}

TEST_F(Equality, AFailedConversionIsTheReplyAndNothingOfTheRequestStaysAlive) {
    const Address held = eval("object()");
    const long long before = refcount(held);
    const vd::Array refused = f.createArray(vd::ArrayType::COMPLEX_INT8, {1, 1});
    const vd::Array badDate =
        structOf({{"VX_PylnkSP_Datetime", row({2024, 13, 1, 0, 0, 0, 0, 0})}});
    for (const char* command : {"pyIsEqual", "pyIsNumpyArrayEqual"}) {
        EXPECT_EQ(replyText(compare(command, {byAddress(held), refused})), "refused") << command;
        EXPECT_EQ(replyText(compare(command, {byAddress(held)},
                                    keywordsOf({{f.createCharArray("k"), byAddress(held)},
                                                {f.createCharArray("z"), refused}}))),
                  "refused")
            << command;
        const std::string report = replyText(
            compare(command, {byAddress(held)}, keywordsOf({{f.createCharArray("k"), badDate}})));
        EXPECT_EQ(report.rfind("ValueError: ", 0), 0u) << report;
        EXPECT_FALSE(errorOccurred()) << command;
        EXPECT_EQ(refcount(held), before) << command;
    }
}
