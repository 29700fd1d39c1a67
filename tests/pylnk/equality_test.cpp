// pyIsEqual and pyIsNumpyArrayEqual: host values compared by Python's own
// rules, keywords handed on as pairs, and nothing of a failed request kept.
#include <gtest/gtest.h>

#include <cmath>

#include "support/conversion.h"

using namespace vxtest;

namespace {

using Equality = SessionTest;

vd::Array compare(const std::string& command, const std::vector<vd::Array>& values,
                  vd::Array keywords = keywordsOf({})) {
    return call(command, {cellOf({cellOf(values), keywords})});
}

}  // namespace

TEST_F(Equality, IsEqualAnswersWithAnObjectResult) {
    const auto equal = [](const vd::Array& a, const vd::Array& b,
                          const vd::Array& keywords = keywordsOf({})) {
        const vd::Array result = compare("pyIsEqual", {a, b}, keywords);
        const Address object = addressOf(field(result, "object"));
        EXPECT_NE(object, 0u) << "the result is retained";
        const std::string text = show(field(result, "scalarData")) + " " + strOf(object);
        release(object);
        return text;
    };
    EXPECT_EQ(equal(f.createScalar(2.0), f.createScalar(2.0)), "LOGICAL 1x1: 1 True");
    EXPECT_EQ(equal(f.createScalar(1.0), f.createCharArray("1")), "LOGICAL 1x1: 0 False");
    // NumPy's == gives an array: an address and no scalar data.
    EXPECT_EQ(
        equal(byAddress(eval("__import__('numpy').array([1.0, 2.0])")), row<double>({1.0, 3.0})),
        "CHAR 1x0: [ True False]");

    // Keyword structs without elements or with one field give no pairs; a
    // third field is not read. operator.eq refuses keywords, so a pair shows.
    for (const vd::Array& none :
         {vd::Array(f.createStructArray({0, 1}, {"kwargKey0", "kwargValue0"})),
          structOf({{"kwargKey0", f.createCharArray("k")}})}) {
        EXPECT_EQ(equal(f.createScalar(1.0), f.createScalar(1.0), none), "LOGICAL 1x1: 1 True");
    }
    EXPECT_THROW(compare("pyIsEqual", {f.createScalar(1.0), f.createScalar(1.0)},
                         structOf({{"kwargKey0", f.createCharArray("k")},
                                   {"kwargValue0", f.createScalar(1.0)},
                                   {"extra", f.createScalar(1.0)}})),
                 std::exception);
    EXPECT_TRUE(errorOccurred()) << "a failure of the comparison itself is left for the host";
    call("pyErrorClear");
}

TEST_F(Equality, NumpyArrayEqualGivesTruthValueTakesKeywords) {
    const vd::Array withNan = row<double>({1.0, std::nan("")});
    const vd::Array plain = compare("pyIsNumpyArrayEqual", {withNan, withNan});
    EXPECT_EQ(show(plain), "LOGICAL 1x1: 0");
    EXPECT_TRUE(
        truthOf(compare("pyIsNumpyArrayEqual", {withNan, withNan},
                        keywordsOf({{f.createCharArray("equal_nan"), f.createScalar(true)}}))));
    EXPECT_FALSE(
        truthOf(compare("pyIsNumpyArrayEqual", {row<double>({1, 2}), row<double>({1, 2, 3})})));
}

TEST_F(Equality, FailedConversionIsTheReplyNothingStaysAlive) {
    const Address held = eval("object()");
    const long long before = refcount(held);
    const vd::Array refused = f.createArray(vd::ArrayType::COMPLEX_INT8, {1, 1});
    const vd::Array badDate =
        structOf({{"VX_PylnkSP_Datetime", row<double>({2024, 13, 1, 0, 0, 0, 0, 0})}});
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
