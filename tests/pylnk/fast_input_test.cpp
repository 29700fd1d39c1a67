// pyInvokeFastInput: a whole call with host data in one request, and nothing
// of a request left alive, whether the call succeeds, raises, or never runs
// because an argument failed to convert.
#include <gtest/gtest.h>

#include "support/conversion.h"

using namespace vxtest;

namespace {

struct FastInput : SessionTest {
    FastInput()
        : SessionTest(
              "calls = []\n"
              "def record(*args, **kwargs):\n    calls.append((args, kwargs))\n    return 2.5\n"
              "def fail(*args, **kwargs):\n    raise RuntimeError('no')\n") {}
    vd::Array text(const std::string& value) { return f.createCharArray(value); }
};

}  // namespace

TEST_F(FastInput, ArgumentsAndKeywordsReachTheCall) {
    const vd::Array result = invokeFastInput(eval("record"), {});
    EXPECT_EQ(show(field(result, "scalarData")), "DOUBLE 1x1: 2.5");
    release(addressOf(field(result, "object")));
    invokeFastInput(eval("record"), {f.createScalar(1.0), text("t")},
                    keywordsOf({{text("k"), cellOf({f.createScalar(true)})}}));
    // A field that fits no pair is ignored.
    invokeFastInput(eval("record"), {},
                    structOf({{"kwargValue0", f.createScalar(std::int32_t{4})},
                              {"kwargKey0", text("n")},
                              {"kwargKey1", text("lonely")}}));
    EXPECT_EQ(strOf(eval("calls")), "[((), {}), ((1.0, 't'), {'k': (True,)}), ((), {'n': 4})]");

    // A failed conversion is the reply, and nothing is called.
    EXPECT_EQ(
        replyText(invokeFastInput(
            eval("record"), {f.createScalar(1.0), f.createArray(vd::ArrayType::ENUM, {1, 1})})),
        "refused");
    EXPECT_EQ(
        replyText(invokeFastInput(
            eval("record"), {},
            keywordsOf({{text("f"), structOf({{"VX_PylnkSP_FunctionHandle", text("math.e")}})}}))),
        "VELTRAPyHost::FuncHandleNotCallable: py.float");
    EXPECT_EQ(strOf(eval("len(calls)")), "3");
}

TEST_F(FastInput, NothingOfARequestStaysAliveOnAnyPath) {
    const Address held = eval("object()");
    const long long before = refcount(held);
    const vd::Array refused = f.createArray(vd::ArrayType::COMPLEX_INT8, {1, 1});
    auto check = [&](const std::string& path) { EXPECT_EQ(refcount(held), before) << path; };

    invokeFastInput(eval("record"), {byAddress(held)}, keywordsOf({{text("k"), byAddress(held)}}));
    exec("calls.clear()");
    check("after a call");
    EXPECT_THROW(invokeFastInput(eval("fail"), {byAddress(held)},
                                 keywordsOf({{text("k"), byAddress(held)}})),
                 std::exception);
    call("pyErrorClear");  // the traceback holds the call's frame
    check("after a call that raised");
    invokeFastInput(eval("record"), {byAddress(held), refused});
    check("after a positional argument was refused");
    invokeFastInput(eval("record"), {},
                    keywordsOf({{text("k"), byAddress(held)}, {text("z"), refused}}));
    check("after a keyword value was refused");
    invokeFastInput(eval("record"), {},
                    keywordsOf({{text("k"), byAddress(held)}, {refused, text("v")}}));
    check("after a keyword key was refused");
    EXPECT_THROW(invokeFastInput(eval("record"), {},
                                 keywordsOf({{text("k"), byAddress(held)},
                                             {text("z"), f.createStructArray({0, 0}, {"a"})}})),
                 std::invalid_argument);
    check("after a keyword value threw");
    EXPECT_EQ(strOf(eval("calls")), "[]");
}
