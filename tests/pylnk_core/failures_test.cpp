// How failures show: the default rule (throw, error left set), the second
// rule of the five reads (error set, no throw, out-parameters untouched),
// predicates that leave no error even on objects whose lookups raise, and
// the two failures of fetch for every kind of bad name and dead end.
#include <cmath>
#include <functional>
#include <limits>

#include "python_helpers.h"

namespace pylnk_core::testing {
namespace {

using namespace api;

using BridgeFailureTest = PythonTest;

// Failures the commands either do not reach or clear on the way.
TEST_F(BridgeFailureTest, FailingOperationsThrowAndLeaveTheErrorSet) {
    std::vector<double> six = {2024, 1, 1, 0, 0, 0};
    const std::vector<std::pair<const char*, std::function<void()>>> cases = {
        {"TypeError", [] { primitive::pyIntGetData(evaluate("7.5").get()); }},
        {"OverflowError", [] { primitive::pyIntGetData(evaluate("2 ** 70").get()); }},
        {"TypeError", [] { object::get_ustring(evaluate("5").get()); }},
        {"AttributeError", [] { object::pyInspect(evaluate("1"), "isnothing"); }},
        {"TypeError",
         [] { object::pyInvoke(evaluate("print").get(), nullptr, evaluate("[]").get()); }},
        {"IndexError",
         [] {
             sequence::pyTupleSetValue(sequence::pyTupleCreateSize(1).get(), 1,
                                       evaluate("1").get());
         }},
        {"ValueError", [] { object::pyStr(nullptr); }},
        {"ValueError", [&] { primitive::pyCreateDatetime(six, false); }},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const auto& [expectedError, call] = cases[i];
        SCOPED_TRACE("case " + std::to_string(i));
        try {
            call();
            ADD_FAILURE() << "no exception";
        } catch (const InternalPyException& failure) {
            EXPECT_EQ(std::string(failure.what()).rfind(std::string(expectedError) + ": ", 0), 0u)
                << failure.what();
            // pyErrorFetch leaves the error set and gives the class and an instance of it.
            PyHolder error = exception::pyErrorFetch();
            ASSERT_TRUE(exception::pyErrorOccurred());
            PyHolder type = sequence::pyGetItem(error.get(), 0);
            EXPECT_EQ(str(object::pyGetMember(type.get(), "__name__").get()), expectedError);
            EXPECT_TRUE(
                object::pyIsInstance(sequence::pyGetItem(error.get(), 1).get(), type.get()));
        }
        exception::pyErrorClear();
    }
}

TEST_F(BridgeFailureTest, SecondRuleReadsSetErrorKeepOutputs) {
    run("class BadTruth:\n    def __bool__(self):\n        raise RuntimeError('no truth')\n");
    long long value = 42;
    double re = 1.5, im = 2.5;
    const std::vector<std::function<void()>> reads = {
        [&] { primitive::pyLongGetData(evaluate("2 ** 64").get(), &value); },
        [&] { primitive::pyLongGetData(evaluate("'1'").get(), &value); },
        [&] { primitive::pyComplexGetData(evaluate("'1j'").get(), &re, &im); },
        [&] { EXPECT_TRUE(std::isnan(primitive::pyFloatGetData(evaluate("'x'").get()))); },
        [&] { EXPECT_FALSE(primitive::pyBoolGetData(evaluate("BadTruth()").get())); },
    };
    for (std::size_t i = 0; i < reads.size(); ++i) {
        SCOPED_TRACE("read " + std::to_string(i));
        EXPECT_NO_THROW(reads[i]());
        EXPECT_TRUE(exception::pyErrorOccurred());
        exception::pyErrorClear();
    }
    EXPECT_EQ(value, 42);
    EXPECT_EQ(std::make_pair(re, im), std::make_pair(1.5, 2.5));

    // Edges that read without an error.
    primitive::pyLongGetData(evaluate("-2 ** 63").get(), &value);
    EXPECT_EQ(value, std::numeric_limits<long long>::min());
    primitive::pyLongGetData(evaluate("__import__('numpy').int16(-7)").get(), &value);
    EXPECT_EQ(value, -7);
    EXPECT_FALSE(exception::pyErrorOccurred());
}

TEST_F(BridgeFailureTest, PredicatesOnHostileObjectsLeaveNoError) {
    run("class Hostile:\n"
        "    def __getattr__(self, name):\n"
        "        raise ValueError('lookup failed')\n"
        "    @property\n"
        "    def __class__(self):\n"
        "        raise RuntimeError('no class')\n"
        "class Meta(type):\n"
        "    def __instancecheck__(cls, obj):\n"
        "        raise RuntimeError('no check')\n"
        "class Odd(metaclass=Meta):\n"
        "    pass\n");
    PyHolder odd = evaluate("Odd");
    using Predicate = std::function<bool(python::pyArray*)>;
    std::vector<Predicate> predicates = {
        object::pyIsType,           object::pyIsCallable,      primitive::pyIsBool,
        primitive::pyIsFloat,       primitive::pyIsComplex,    primitive::pyIsString,
        primitive::pyIsLong,        sequence::pyIsSequence,    sequence::pyTupleCheck,
        mapping::pyIsDict,          mapping::pyIsMapping,      module::pyIsModule,
        type::pyTypeIsNumericArray, type::pyTypeIsPandasSeries};
    predicates.insert(
        predicates.end(),
        {[](python::pyArray* p) { return object::pyIsBuiltin(p, "long"); },
         [&](python::pyArray* p) { return object::pyIsInstance(p, odd.get()); },
         [](python::pyArray* p) { return object::pyIsInstance(p, p); },
         [](python::pyArray* p) { return object::pyHasMember(p, "anything"); },
         [](python::pyArray* p) { return object::pyHasMember(p, p); },
         [](python::pyArray* p) { return type::pyTypeIsBuiltin(p, "unicode"); },
         [](python::pyArray* p) { return type::pyTypeImplementsCollection(p, "NoSuchABC"); }});
    for (const char* sample : {"1", "'s'", "{}", "Hostile()", "Odd", "int", "__import__('sys')"}) {
        PyHolder o = evaluate(sample);
        for (std::size_t i = 0; i < predicates.size(); ++i) {
            SCOPED_TRACE(std::string(sample) + ", predicate " + std::to_string(i));
            predicates[i](o.get());
            EXPECT_FALSE(exception::pyErrorOccurred());
            exception::pyErrorClear();
        }
    }
    EXPECT_FALSE(object::pyHasMember(evaluate("Hostile()").get(), "anything"));
}

TEST_F(BridgeFailureTest, BadFetchesLeaveNoError) {
    for (const std::u16string bad :
         {u"", u".os", u"os.", u"os path", u"1os", u"os.path-x", u"os/path", u"o\xDC00s"}) {
        EXPECT_THROW(fetch::fetch(bad), fetch::BadPythonName);
        EXPECT_FALSE(exception::pyErrorOccurred());
    }
    run("import sys, types\nbroken = types.ModuleType('broken_on_read')\n"
        "broken.__getattr__ = lambda name: 1 / 0\nsys.modules['broken_on_read'] = broken\n");
    for (const char16_t* missing : {u"no_such_module_anywhere", u"no_such_module_anywhere.x",
                                    u"os.path.join.no_such_attribute", u"no_such_builtin"}) {
        EXPECT_THROW(fetch::fetch(missing), fetch::SearchFailure);
        EXPECT_FALSE(exception::pyErrorOccurred());
    }
    try {
        fetch::fetch(u"broken_on_read.x");
        ADD_FAILURE() << "no exception";
    } catch (const fetch::SearchFailure& failure) {
        EXPECT_NE(std::string(failure.what()).find("ZeroDivisionError"), std::string::npos);
    }
    EXPECT_FALSE(exception::pyErrorOccurred());
}

}  // namespace
}  // namespace pylnk_core::testing
