// How failures show: the default rule (throw, error left set), the second
// rule of the five reads (error set, no throw, out-parameters untouched), and
// predicates that never leave an error behind.
#include <cmath>
#include <functional>
#include <thread>
#include <type_traits>

#include "python_fixture.h"

namespace pylnk_core::testing {
namespace {

using namespace api;

using BridgeFailureTest = PythonTest;

// The class name of the pending error, read through pyErrorFetch, which
// must leave the error set.
std::string pendingErrorName() {
    PyHolder error = exception::pyErrorFetch();
    EXPECT_TRUE(exception::pyErrorOccurred()) << "pyErrorFetch must not clear";
    return str(object::pyGetMember(sequence::pyGetItem(error.get(), 0).get(), "__name__").get());
}

TEST_F(BridgeFailureTest, FailingOperationsThrowAndLeaveTheErrorSet) {
    const std::vector<std::tuple<const char*, const char*, std::function<void()>>> cases = {
        {"pyGetMember", "AttributeError",
         [] { object::pyGetMember(evaluate("object()").get(), "missing"); }},
        {"pyGetItem", "IndexError", [] { sequence::pyGetItem(evaluate("(1, 2)").get(), ~0ull); }},
        {"pyMappingGetItem", "KeyError",
         [] { mapping::pyMappingGetItem(evaluate("{}").get(), evaluate("'k'").get()); }},
        {"pyIntGetData of a float", "TypeError",
         [] { primitive::pyIntGetData(evaluate("7.5").get()); }},
        {"pyIntGetData out of range", "OverflowError",
         [] { primitive::pyIntGetData(evaluate("2 ** 70").get()); }},
        {"pyGetHash", "TypeError", [] { object::pyGetHash(evaluate("[]").get()); }},
        {"pyCreateModule", "ModuleNotFoundError", [] { module::pyCreateModule(u"no_such_mod"); }},
        {"get_ustring", "TypeError", [] { object::get_ustring(evaluate("5").get()); }},
        {"pyInspect", "AttributeError", [] { object::pyInspect(evaluate("1"), "isnothing"); }},
        {"pyInvoke", "ZeroDivisionError",
         [] { object::pyInvoke(evaluate("lambda: 1 / 0").get(), {}, {}); }},
        {"pyInvoke with a list of keywords", "TypeError",
         [] { object::pyInvoke(evaluate("print").get(), nullptr, evaluate("[]").get()); }},
        {"pyTupleSetValue", "IndexError",
         [] {
             sequence::pyTupleSetValue(sequence::pyTupleCreateSize(1).get(), 1,
                                       evaluate("1").get());
         }},
        {"null object", "ValueError", [] { object::pyStr(nullptr); }},
        {"pyCreateDatetime", "ValueError",
         [] {
             std::vector<double> six = {2024, 1, 1, 0, 0, 0};
             primitive::pyCreateDatetime(six, false);
         }},
    };
    for (const auto& [name, expectedError, call] : cases) {
        SCOPED_TRACE(name);
        try {
            call();
            ADD_FAILURE() << "no exception";
        } catch (const InternalPyException& failure) {
            EXPECT_EQ(std::string(failure.what()).rfind(std::string(expectedError) + ": ", 0), 0u)
                << failure.what();
            ASSERT_TRUE(exception::pyErrorOccurred());
            EXPECT_EQ(pendingErrorName(), expectedError);
        }
        exception::pyErrorClear();
    }
}

TEST_F(BridgeFailureTest, FetchedErrorHoldsAnInstanceAndStaysSet) {
    EXPECT_THROW(object::pyGetMember(evaluate("object()").get(), "nope"), InternalPyException);
    PyHolder error = exception::pyErrorFetch();
    ASSERT_EQ(sequence::pySequenceLength(error.get()), 3u);
    PyHolder type = sequence::pyGetItem(error.get(), 0);
    PyHolder value = sequence::pyGetItem(error.get(), 1);
    EXPECT_TRUE(object::pyIsInstance(value.get(), type.get())) << "item 1 must be an instance";
    EXPECT_NE(str(value.get()).find("nope"), std::string::npos);
    EXPECT_EQ(sequence::pyGetItem(exception::pyErrorFetch().get(), 1).get(), value.get());
    exception::pyErrorClear();
    EXPECT_FALSE(exception::pyErrorOccurred());

    PyHolder nothing = exception::pyErrorFetch();
    EXPECT_EQ(str(nothing.get()), "(None, None, None)");
    EXPECT_TRUE(sequence::pyTupleCheck(nothing.get()));
    EXPECT_FALSE(exception::pyErrorOccurred());
}

TEST_F(BridgeFailureTest, ReadsOfTheSecondRuleSetTheErrorWithoutThrowing) {
    run("class BadTruth:\n    def __bool__(self):\n        raise RuntimeError('no truth')\n");
    long long signedValue = 42;
    unsigned long long unsignedValue = 42;
    double re = 1.5, im = 2.5;
    const std::vector<std::function<void()>> reads = {
        [&] { primitive::pyLongGetData(evaluate("2 ** 64").get(), &signedValue); },
        [&] { primitive::pyLongGetData(evaluate("'1'").get(), &signedValue); },
        [&] { primitive::pyLongGetDataU(evaluate("-1").get(), &unsignedValue); },
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
    EXPECT_EQ(signedValue, 42);
    EXPECT_EQ(unsignedValue, 42u);
    EXPECT_EQ(re, 1.5);
    EXPECT_EQ(im, 2.5);

    primitive::pyLongGetData(evaluate("-2 ** 63").get(), &signedValue);
    EXPECT_EQ(signedValue, std::numeric_limits<long long>::min());
    primitive::pyLongGetDataU(evaluate("2 ** 64 - 1").get(), &unsignedValue);
    EXPECT_EQ(unsignedValue, std::numeric_limits<unsigned long long>::max());
    primitive::pyLongGetData(evaluate("__import__('numpy').int16(-7)").get(), &signedValue);
    EXPECT_EQ(signedValue, -7);
    primitive::pyComplexGetData(evaluate("3").get(), &re, &im);
    EXPECT_EQ(std::make_pair(re, im), std::make_pair(3.0, 0.0));
    EXPECT_EQ(primitive::pyIntGetData(evaluate("-2 ** 63").get()),
              std::numeric_limits<long>::min());
    EXPECT_FALSE(exception::pyErrorOccurred());
}

TEST_F(BridgeFailureTest, PredicatesAnswerWithoutLeavingAnError) {
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
    const std::vector<std::function<bool(python::pyArray*)>> predicates = {
        object::pyIsType,
        object::pyIsCallable,
        object::pyIsNone,
        primitive::pyIsBool,
        primitive::pyIsFloat,
        primitive::pyIsComplex,
        primitive::pyIsString,
        primitive::pyIsLong,
        sequence::pyIsSequence,
        sequence::pyTupleCheck,
        mapping::pyIsDict,
        mapping::pyIsMapping,
        module::pyIsModule,
        type::pyTypeIsNumericArray,
        type::pyTypeIsPandasSeries,
        [](python::pyArray* p) { return object::pyIsBuiltin(p, "long"); },
        [&](python::pyArray* p) { return object::pyIsInstance(p, odd.get()); },
        [](python::pyArray* p) { return object::pyIsInstance(p, p); },
        [](python::pyArray* p) { return object::pyHasMember(p, "anything"); },
        [](python::pyArray* p) { return object::pyHasMember(p, p); },
        [](python::pyArray* p) { return type::pyTypeIsBuiltin(p, "unicode"); },
        [](python::pyArray* p) { return type::pyTypeImplementsCollection(p, "NoSuchABC"); },
    };
    for (const char* sample : {"1", "True", "1.5", "'s'", "None", "[]", "{}", "Hostile()", "Odd",
                               "int", "len", "__import__('sys')"}) {
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

TEST_F(BridgeFailureTest, ExceptionIsACopyReadableOnAnotherThread) {
    static_assert(
        std::is_base_of_v<foundation::core::except::IInternalException, InternalPyException>);
    static_assert(std::is_base_of_v<boost::exception, InternalPyException>);
    std::exception_ptr stored;
    try {
        object::pyGetMember(evaluate("object()").get(), "gone");
    } catch (...) {
        stored = std::current_exception();
    }
    exception::pyErrorClear();
    std::string seen;
    // Reading must not need the interpreter: its lock is held by this thread.
    std::thread reader([&] {
        try {
            std::rethrow_exception(stored);
        } catch (const foundation::core::except::IException& failure) {
            InternalPyException copy = dynamic_cast<const InternalPyException&>(failure);
            seen = copy.message();
        }
    });
    reader.join();
    EXPECT_EQ(seen.rfind("AttributeError: ", 0), 0u) << seen;
    EXPECT_NE(seen.find("gone"), std::string::npos);
}

}  // namespace
}  // namespace pylnk_core::testing
