// pyInvokeFastInput: a whole call with host data in one request, and nothing
// of a request left alive, whether the call succeeds, raises, or never runs
// because an argument failed to convert.
#include <gtest/gtest.h>

#include "support/conversion.h"

using namespace vxtest;

namespace {

class FastInput : public ::testing::Test {
  protected:
    void SetUp() override {
        startSystemPython();
        exec(
            "calls = []\n"
            "def record(*args, **kwargs):\n"
            "    calls.append((args, kwargs))\n"
            "    return 2.5\n"
            "def fail(*args, **kwargs):\n"
            "    raise RuntimeError('no')\n");
        exec("calls.clear()");
    }
    vd::ArrayFactory f;

    std::string calls() { return strOf(eval("calls")); }
    // A marker passing a Python object by its address.
    static vd::Array byAddress(Address object) {
        return structOf({{"VX_PylnkSP_PyObjectAddress", uint64Array(object)}});
    }
};

}  // namespace

TEST_F(FastInput, ArgumentsAndKeywordsReachTheCallAndTheReplyIsAnObjectResult) {
    const vd::Array none = invokeFastInput(eval("record"), {});
    EXPECT_EQ(fieldNames(none), (std::vector<std::string>{"object", "classProperties",
                                                          "classMetadata", "scalarData"}));
    EXPECT_EQ(static_cast<double>(vd::TypedArray<double>(field(none, "scalarData"))[0]), 2.5);
    release(addressOf(field(none, "object")));

    vd::StructArray keywords = vd::StructArray(
        keywordsOf({{f.createCharArray(std::string("k")), cellOf({f.createScalar(true)})}}));
    invokeFastInput(eval("record"), {f.createScalar(1.0), f.createCharArray(std::string("t"))},
                    keywords);
    // A third field fits no pair and is ignored; a non-str key is passed on.
    invokeFastInput(eval("record"), {},
                    structOf({{"kwargValue0", f.createScalar(std::int32_t{4})},
                              {"kwargKey0", f.createCharArray(std::string("n"))},
                              {"kwargKey1", f.createCharArray(std::string("lonely"))}}));
    EXPECT_EQ(calls(), "[((), {}), ((1.0, 't'), {'k': (True,)}), ((), {'n': 4})]");
    EXPECT_THROW(
        invokeFastInput(eval("record"), {},
                        keywordsOf({{f.createScalar(std::int32_t{1}), f.createScalar(2.0)}})),
        std::exception)
        << "Python refuses a keyword that is no str";
    call("pyErrorClear");
}

TEST_F(FastInput, AFailedConversionIsTheReplyAndNothingIsCalled) {
    const vd::Array refusedSecond = invokeFastInput(
        eval("record"),
        {f.createScalar(1.0), f.createArray(vd::ArrayType::ENUM, {1, 1}), f.createScalar(2.0)});
    EXPECT_EQ(replyText(refusedSecond), "refused");
    const vd::Array badKeyword =
        invokeFastInput(eval("record"), {},
                        keywordsOf({{f.createCharArray(std::string("f")),
                                     structOf({{"VX_PylnkSP_FunctionHandle",
                                                f.createCharArray(std::string("math.e"))}})}}));
    EXPECT_EQ(replyText(badKeyword), "VELTRAPyHost::FuncHandleNotCallable: py.float");
    EXPECT_EQ(calls(), "[]");
    EXPECT_FALSE(errorOccurred());
}

TEST_F(FastInput, NothingOfARequestStaysAliveOnAnyPath) {
    const Address held = eval("object()");
    const long long before = refcount(held);
    const vd::Array refused = f.createArray(vd::ArrayType::COMPLEX_INT8, {1, 1});
    const vd::Array key = f.createCharArray(std::string("key"));
    auto check = [&](const std::string& path) { EXPECT_EQ(refcount(held), before) << path; };

    exec("calls.clear()");
    invokeFastInput(eval("record"), {byAddress(held)}, keywordsOf({{key, byAddress(held)}}));
    exec("calls.clear()");
    check("after a call");

    EXPECT_THROW(
        invokeFastInput(eval("fail"), {byAddress(held)}, keywordsOf({{key, byAddress(held)}})),
        std::exception);
    call("pyErrorClear");  // the traceback holds the call's frame
    check("after a call that raised");

    invokeFastInput(eval("record"), {byAddress(held), refused});
    check("after a positional argument was refused");
    invokeFastInput(
        eval("record"), {byAddress(held)},
        keywordsOf({{key, byAddress(held)}, {f.createCharArray(std::string("z")), refused}}));
    check("after a keyword value was refused");
    invokeFastInput(eval("record"), {},
                    keywordsOf({{key, byAddress(held)}, {refused, byAddress(held)}}));
    check("after a keyword key was refused");
    EXPECT_THROW(invokeFastInput(eval("record"), {},
                                 keywordsOf({{key, byAddress(held)},
                                             {key, f.createArray(vd::ArrayType::STRUCT, {0, 0})}})),
                 std::invalid_argument)
        << "a struct with no elements fails as a stored exception";
    check("after a keyword value threw");
    EXPECT_EQ(calls(), "[]");
}
