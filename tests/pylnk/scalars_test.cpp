// The scalar families: exact argument types, element 0 only, reply forms,
// and the errors that the getters leave set.
#include <gtest/gtest.h>

#include <complex>

#include "support/session.h"

using namespace vxtest;

namespace {

using Scalars = SessionTest;

}  // namespace

TEST_F(Scalars, ConstructorsTakeExactlyTheirTypeAndElementZero) {
    const std::tuple<const char*, std::vector<vd::Array>, const char*> made[] = {
        {"pyCreateBool", {row<bool>({true, false})}, "True"},
        {"pyCreateInt", {row<std::int32_t>({-7, 9})}, "-7"},
        {"pyCreateLong", {row<std::int64_t>({INT64_MIN})}, "-9223372036854775808"},
        {"pyCreateULong", {row<std::uint64_t>({UINT64_MAX})}, "18446744073709551615"},
        {"pyCreateFloat", {row<double>({2.5, 1})}, "2.5"},
        {"pyCreateComplex", {f.createScalar(1.0), f.createScalar(-2.0)}, "(1-2j)"},
        {"pyCreateString", {chars("plain"), uint64Array(0)}, "plain"},
    };
    for (const auto& [command, args, text] : made) {
        EXPECT_EQ(strOf(addressOf(call(command, args))), text) << command;
    }
    const Address wide = addressOf(
        call("pyCreateUnicode", {f.createCharArray(std::u16string(u"\u00e9t\u00e9 \u6f22"))}));
    EXPECT_EQ(vd::CharArray(call("pyUnicodeGetData", {addressArray(wide)})).toUTF16(),
              u"\u00e9t\u00e9 \u6f22");

    // A wrong argument fails in the caller, and the next command still works.
    const std::pair<const char*, std::vector<vd::Array>> refused[] = {
        {"pyCreateBool", {f.createScalar(1.0)}},
        {"pyCreateInt", {f.createScalar(std::int64_t{1})}},
        {"pyCreateLong", {row<std::int32_t>({1})}},
        {"pyCreateULong", {f.createScalar(std::int64_t{1})}},
        {"pyCreateFloat", {row<float>({1})}},
        {"pyCreateComplex", {f.createScalar(1.0), row<float>({1})}},
        {"pyCreateString", {chars("needs a UINT64 second argument"), f.createScalar(1.0)}},
        {"pyCreateUnicode", {f.createScalar(1.0)}},
        {"pyIsNone", {f.createScalar(1.0)}},
    };
    for (const auto& [command, args] : refused) {
        EXPECT_THROW(call(command, args), std::exception) << command;
        EXPECT_EQ(textOf(call("Ping")), "success");
    }
}

TEST_F(Scalars, GettersReplyInFormSecondRuleKeepsError) {
    const std::tuple<const char*, const char*, const char*> reads[] = {
        {"pyBoolGetData", "True", "LOGICAL 1x1: 1"},
        {"pyIntGetData", "-42", "INT64 1x1: -42"},
        {"pyLongGetDataUInt64", "2**64 - 1", "UINT64 1x1: 18446744073709551615"},
        {"pyComplexGetPr", "3-4j", "DOUBLE 1x1: 3"},
        {"pyComplexGetPi", "3-4j", "DOUBLE 1x1: -4"},
        {"pyFloatGetData", "0.25", "DOUBLE 1x1: 0.25"},
    };
    for (const auto& [command, expression, expected] : reads) {
        EXPECT_EQ(show(callOn(command, expression)), expected) << command;
    }

    // A negative number read as unsigned: a reply, not an exception; the
    // value is the untouched zero and the error stays set for the host.
    EXPECT_FALSE(errorOccurred());
    EXPECT_EQ(show(callOn("pyLongGetDataUInt64", "-1")), "UINT64 1x1: 0");
    EXPECT_TRUE(errorOccurred());
    EXPECT_EQ(textOf(call("pyErrorClear")), "success");
    EXPECT_FALSE(errorOccurred());
    callOn("pyFloatGetData", "'not a number'");
    EXPECT_TRUE(errorOccurred());
    call("pyErrorClear");
    EXPECT_EQ(textOf(call("pyErrorClear")), "success");  // harmless with no error

    // Text getters throw for what is no string.
    EXPECT_THROW(callOn("pyStringGetData", "12"), std::exception);
}

TEST_F(Scalars, TypeTestsAgreeAndLeaveNoError) {
    const std::vector<std::string> tests{"pyIsNone",     "pyIsBool",    "pyIsInt",    "pyIsLong",
                                         "pyIsFloat",    "pyIsComplex", "pyIsString", "pyIsUnicode",
                                         "pyIsSequence", "pyIsList",    "pyIsTuple",  "pyIsMapping",
                                         "pyIsDict"};
    const std::pair<const char*, std::vector<std::string>> cases[] = {
        {"None", {"pyIsNone"}},
        {"True", {"pyIsBool"}},
        {"10**30", {"pyIsLong"}},
        {"1.5", {"pyIsFloat"}},
        {"1j", {"pyIsComplex"}},
        {"'s'", {"pyIsString", "pyIsUnicode", "pyIsSequence"}},
        {"[1]", {"pyIsSequence", "pyIsList"}},
        {"(1,)", {"pyIsSequence", "pyIsTuple"}},
        {"{1: 2}", {"pyIsMapping", "pyIsDict"}},
        {"__import__('types').MappingProxyType({})", {"pyIsMapping"}},
    };
    for (const auto& [expression, trueFor] : cases) {
        const Address object = eval(expression);
        std::vector<std::string> answeredTrue;
        for (const std::string& test : tests) {
            const vd::Array answer = call(test, {addressArray(object)});
            ASSERT_EQ(answer.getType(), vd::ArrayType::LOGICAL) << test;
            if (truthOf(answer)) {
                answeredTrue.push_back(test);
            }
        }
        EXPECT_EQ(answeredTrue, trueFor) << expression;
        EXPECT_FALSE(errorOccurred()) << expression;
    }
}

TEST_F(Scalars, TuplesSequencesAndMappings) {
    EXPECT_EQ(strOf(addressOf(call("pyCreateTuple", {uint64Array(0)}))), "()");

    // A tuple is safe to read and to release before all its items are set,
    // and keeps its items after the host releases their addresses.
    const Address tuple = addressOf(call("pyCreateTuple", {uint64Array(3)}));
    EXPECT_EQ(strOf(tuple), "(None, None, None)");
    const Address item = unicode(u"kept");
    const long long before = refcount(item);
    call("pyTupleSet", {addressArray(tuple), uint64Array(1), addressArray(item)});
    EXPECT_EQ(refcount(item), before + 1);
    release(item);
    EXPECT_EQ(strOf(tuple), "(None, 'kept', None)");
    const Address back = addressOf(call("pySequenceGet", {addressArray(tuple), uint64Array(1)}));
    EXPECT_EQ(strOf(back), "kept");
    EXPECT_THROW(call("pySequenceGet", {addressArray(tuple), uint64Array(3)}), std::exception);
    call("pyErrorClear");
    EXPECT_EQ(show(call("pySequenceLength", {addressArray(tuple)})), "UINT64 1x1: 3");
    release(addressOf(call("pyCreateTuple", {uint64Array(2)})));  // never filled, released

    const Address dict = addressOf(call("pyCreateDict"));
    call("pySetKey", {addressArray(dict), addressArray(unicode(u"a")), addressArray(eval("1"))});
    call("pySetKey", {addressArray(dict), addressArray(eval("2")), addressArray(eval("'b'"))});
    EXPECT_EQ(strOf(addressOf(call("pyMappingGetItems", {addressArray(dict)}))),
              "[('a', 1), (2, 'b')]");
}
