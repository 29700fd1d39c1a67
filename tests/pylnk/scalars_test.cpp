// The scalar families: exact argument types, element 0 only, reply forms,
// and the errors that the getters leave set.
#include <gtest/gtest.h>

#include <complex>

#include "support/session.h"

using namespace vxtest;

namespace {

class Scalars : public ::testing::Test {
  protected:
    void SetUp() override { startSystemPython(); }
    vd::ArrayFactory f;

    template <class T>
    vd::Array row(std::vector<T> values) {
        vd::TypedArray<T> a = f.createArray<T>({1, values.size()});
        for (size_t i = 0; i < values.size(); ++i) {
            a[i] = values[i];
        }
        return a;
    }

    Address create(const std::string& command, std::vector<vd::Array> args) {
        return addressOf(call(command, std::move(args)));
    }

    vd::Array get(const std::string& command, Address object) {
        return call(command, {addressArray(object)});
    }

    // A wrong argument fails in the caller, and the next command still works.
    void expectRefused(const std::string& command, std::vector<vd::Array> args) {
        EXPECT_THROW(call(command, std::move(args)), std::exception) << command;
        EXPECT_EQ(textOf(call("Ping")), "success");
    }
};

}  // namespace

TEST_F(Scalars, ConstructorsTakeExactlyTheirTypeAndElementZero) {
    const Address yes = create("pyCreateBool", {row<bool>({true, false})});
    EXPECT_EQ(strOf(yes), "True");
    EXPECT_EQ(strOf(create("pyCreateInt", {row<std::int32_t>({-7, 9})})), "-7");
    EXPECT_EQ(strOf(create("pyCreateLong", {row<std::int64_t>({INT64_MIN})})),
              "-9223372036854775808");
    EXPECT_EQ(strOf(create("pyCreateULong", {row<std::uint64_t>({UINT64_MAX})})),
              "18446744073709551615");
    EXPECT_EQ(strOf(create("pyCreateFloat", {row<double>({2.5, 1})})), "2.5");
    EXPECT_EQ(strOf(create("pyCreateComplex", {f.createScalar(1.0), f.createScalar(-2.0)})),
              "(1-2j)");
    EXPECT_EQ(strOf(create("pyCreateString", {chars("plain"), uint64Array(0)})), "plain");
    const Address wide =
        create("pyCreateUnicode", {f.createCharArray(std::u16string(u"\u00e9t\u00e9 \u6f22"))});
    EXPECT_EQ(vd::CharArray(get("pyUnicodeGetData", wide)).toUTF16(), u"\u00e9t\u00e9 \u6f22");

    expectRefused("pyCreateBool", {f.createScalar(1.0)});
    expectRefused("pyCreateInt", {f.createScalar(std::int64_t{1})});
    expectRefused("pyCreateLong", {row<std::int32_t>({1})});
    expectRefused("pyCreateULong", {f.createScalar(std::int64_t{1})});
    expectRefused("pyCreateFloat", {row<float>({1})});
    expectRefused("pyCreateComplex", {f.createScalar(1.0), row<float>({1})});
    expectRefused("pyCreateString", {chars("needs a UINT64 second argument"), f.createScalar(1.0)});
    expectRefused("pyCreateUnicode", {f.createScalar(1.0)});
    expectRefused("pyIsNone", {f.createScalar(1.0)});
}

TEST_F(Scalars, GettersReplyInTheirFormsAndSecondRuleReadsLeaveTheErrorSet) {
    vd::Array truth = get("pyBoolGetData", eval("True"));
    EXPECT_EQ(truth.getType(), vd::ArrayType::LOGICAL);
    EXPECT_TRUE(truthOf(truth));

    vd::Array small = get("pyIntGetData", eval("-42"));
    EXPECT_EQ(small.getType(), vd::ArrayType::INT64);
    EXPECT_EQ(static_cast<std::int64_t>(vd::TypedArray<std::int64_t>(small)[0]), -42);

    vd::Array big = get("pyLongGetDataUInt64", eval("2**64 - 1"));
    EXPECT_EQ(big.getType(), vd::ArrayType::UINT64);
    EXPECT_EQ(static_cast<std::uint64_t>(vd::TypedArray<std::uint64_t>(big)[0]), UINT64_MAX);

    vd::Array real = get("pyComplexGetPr", eval("3-4j"));
    vd::Array imag = get("pyComplexGetPi", eval("3-4j"));
    EXPECT_EQ(static_cast<double>(vd::TypedArray<double>(real)[0]), 3.0);
    EXPECT_EQ(static_cast<double>(vd::TypedArray<double>(imag)[0]), -4.0);
    EXPECT_EQ(static_cast<double>(vd::TypedArray<double>(get("pyFloatGetData", eval("0.25")))[0]),
              0.25);

    // A negative number read as unsigned: a reply, not an exception; the
    // value is the untouched zero and the error stays set for the host.
    EXPECT_FALSE(errorOccurred());
    vd::Array negative = get("pyLongGetDataUInt64", eval("-1"));
    EXPECT_EQ(static_cast<std::uint64_t>(vd::TypedArray<std::uint64_t>(negative)[0]), 0u);
    EXPECT_TRUE(errorOccurred());
    EXPECT_EQ(textOf(call("pyErrorClear")), "success");
    EXPECT_FALSE(errorOccurred());
    get("pyFloatGetData", eval("'not a number'"));
    EXPECT_TRUE(errorOccurred());
    call("pyErrorClear");
    EXPECT_EQ(textOf(call("pyErrorClear")), "success");  // harmless with no error

    // Text getters throw for what is no string.
    EXPECT_THROW(get("pyStringGetData", eval("12")), std::exception);
    call("pyErrorClear");
}

TEST_F(Scalars, TypeTestsAgreeAndLeaveNoError) {
    struct Case {
        const char* expression;
        std::vector<const char*> trueFor;
    };
    const std::vector<const char*> tests{"pyIsNone",     "pyIsBool",    "pyIsInt",    "pyIsLong",
                                         "pyIsFloat",    "pyIsComplex", "pyIsString", "pyIsUnicode",
                                         "pyIsSequence", "pyIsList",    "pyIsTuple",  "pyIsMapping",
                                         "pyIsDict"};
    const std::vector<Case> cases{
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
    for (const Case& c : cases) {
        const Address object = eval(c.expression);
        for (const char* test : tests) {
            const bool expected =
                std::find_if(c.trueFor.begin(), c.trueFor.end(), [&](const char* t) {
                    return std::string(t) == test;
                }) != c.trueFor.end();
            vd::Array answer = get(test, object);
            ASSERT_EQ(answer.getType(), vd::ArrayType::LOGICAL);
            EXPECT_EQ(truthOf(answer), expected) << test << " of " << c.expression;
        }
        EXPECT_FALSE(errorOccurred()) << c.expression;
    }
}

TEST_F(Scalars, TuplesSequencesAndMappings) {
    const Address empty = create("pyCreateTuple", {uint64Array(0)});
    EXPECT_EQ(strOf(empty), "()");

    // A tuple is safe to read and to release before all its items are set,
    // and keeps its items after the host releases their addresses.
    const Address tuple = create("pyCreateTuple", {uint64Array(3)});
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
    vd::Array length = call("pySequenceLength", {addressArray(tuple)});
    EXPECT_EQ(length.getType(), vd::ArrayType::UINT64);
    EXPECT_EQ(static_cast<std::uint64_t>(vd::TypedArray<std::uint64_t>(length)[0]), 3u);
    release(create("pyCreateTuple", {uint64Array(2)}));  // never filled, released

    const Address dict = create("pyCreateDict", {});
    call("pySetKey", {addressArray(dict), addressArray(unicode(u"a")), addressArray(eval("1"))});
    call("pySetKey", {addressArray(dict), addressArray(eval("2")), addressArray(eval("'b'"))});
    const Address items = create("pyMappingGetItems", {addressArray(dict)});
    EXPECT_EQ(strOf(items), "[('a', 1), (2, 'b')]");
}
