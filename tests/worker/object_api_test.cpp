// Python objects as C++ values: conversions both ways, calls with keywords,
// matrices, Python exceptions, lifetimes, objects of ended workers and many
// threads at once.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <limits>
#include <optional>
#include <thread>

#include "support/python.h"

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;
using vxpy::kw;
using vxpy::Object;
using vxtest::failureOf;
using vxtest::systemPython;
namespace vd = foundation::veltradata;

class Objects : public ::testing::Test {
  protected:
    void SetUp() override { python.start(systemPython()); }

    // The PythonError that the action throws.
    template <class F>
    vxpy::PythonError pythonError(F&& action) {
        try {
            action();
        } catch (const vxpy::PythonError& error) {
            return error;
        }
        ADD_FAILURE() << "no PythonError";
        return vxpy::PythonError("", "", "");
    }
    bool errorLeftSet() {
        return vd::TypedArray<bool>(python.call("pyErrorOccurred", {}).at(0))[0];
    }

    vxpy::Session python;
};

TEST_F(Objects, ValuesCrossBothWaysExactly) {
    const Object same =
        python.eval("lambda x, text: x == eval(text) and type(x) is type(eval(text))");
    // Integers beyond 2^53 and at the ends of 64 bits, both signs.
    EXPECT_TRUE(same(std::int64_t{9007199254740993}, "2**53 + 1").toBool());
    EXPECT_TRUE(same(std::numeric_limits<std::int64_t>::min(), "-2**63").toBool());
    EXPECT_TRUE(same(std::numeric_limits<std::uint64_t>::max(), "2**64 - 1").toBool());
    EXPECT_TRUE(same(std::uint8_t{200}, "200").toBool());
    EXPECT_TRUE(same(true, "True").toBool());
    EXPECT_TRUE(same(0.1, "0.1").toBool());
    EXPECT_TRUE(same(1.5f, "1.5").toBool());
    EXPECT_TRUE(python.eval("lambda x: x")(nullptr).isNone());
    EXPECT_EQ(python.eval("2**53 + 1").toInt(), 9007199254740993);
    EXPECT_EQ(python.eval("-2**63").toInt(), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(python.eval("2**63 - 1").toInt(), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(python.eval("-1").toInt(), -1);
    EXPECT_EQ(python.eval("True").toInt(), 1);
    EXPECT_DOUBLE_EQ(python.eval("7").toDouble(), 7.0);
    EXPECT_FALSE(python.eval("[]").toBool());
    EXPECT_TRUE(python.eval("None").isNone());
    EXPECT_FALSE(python.eval("0").isNone());

    // Text outside ASCII, one code point beyond 16 bits among them.
    const std::string text = "grüße ✓ 日本 😀";
    const Object str = python.eval("lambda s: s")(text);
    EXPECT_EQ(str.toString(), text);
    EXPECT_EQ(str.str(), text);
    EXPECT_EQ(str.repr(), "'" + text + "'");
    EXPECT_EQ(python.eval("len")(text).toInt(), 12);
    EXPECT_EQ(python.eval("'\\u00e9t\\u00e9'").toString(), "été");

    // NumPy scalars.
    python.exec("import numpy as np");
    EXPECT_DOUBLE_EQ(python.eval("np.float64(2.5)").toDouble(), 2.5);
    EXPECT_EQ(python.eval("np.int64(2**62 + 1)").toInt(), (std::int64_t{1} << 62) + 1);
    EXPECT_TRUE(python.eval("np.bool_(True)").toBool());
    EXPECT_EQ(python.eval("np.float32(1.5)").typeName(), "numpy.float32");
    EXPECT_EQ(python.eval("np.zeros(2)").typeName(), "numpy.ndarray");
    EXPECT_EQ(python.eval("1.0").typeName(), "builtins.float");
    python.exec("class Outer:\n    class Inner:\n        pass");
    EXPECT_EQ(python.eval("Outer.Inner()").typeName(), "__main__.Outer.Inner");

    // A conversion that does not apply names the Python type, and leaves nothing set.
    const auto refusal = [](auto&& convert) { return failureOf<vxpy::Error>(convert); };
    EXPECT_THAT(refusal([&] { python.eval("'1.5'").toDouble(); }), HasSubstr("builtins.str"));
    EXPECT_THAT(refusal([&] { python.eval("1j").toDouble(); }), HasSubstr("builtins.complex"));
    EXPECT_THAT(refusal([&] { python.eval("1.5").toInt(); }), HasSubstr("builtins.float"));
    EXPECT_THAT(refusal([&] { python.eval("2**63").toInt(); }), HasSubstr("builtins.int"));
    EXPECT_THAT(refusal([&] { python.eval("np.uint64(2**64 - 1)").toInt(); }),
                HasSubstr("numpy.uint64"));
    EXPECT_THAT(refusal([&] { python.eval("1").toString(); }), HasSubstr("builtins.int"));
    EXPECT_THAT(refusal([&] { python.eval("{}").toList(); }), HasSubstr("builtins.dict"));
    EXPECT_THAT(refusal([&] { python.eval("object()").toArray(); }), HasSubstr("builtins.object"));
    EXPECT_THAT(refusal([&] { python.eval("[1, 'a']").toArray(); }), HasSubstr("builtins.list"));
    EXPECT_THAT(refusal([&] { python.eval("np.zeros(3, dtype='>f8')").toArray(); }),
                HasSubstr("numpy.ndarray"));
    EXPECT_FALSE(errorLeftSet());

    const std::vector<Object> items = python.eval("(1, 'a', None)").toList();
    ASSERT_EQ(items.size(), 3u);
    EXPECT_EQ(items[0].toInt(), 1);
    EXPECT_EQ(items[1].toString(), "a");
    EXPECT_TRUE(items[2].isNone());
    EXPECT_TRUE(python.eval("[]").toList().empty());
}

TEST_F(Objects, CallsTakeKeywordsMembersAndItems) {
    python.exec("def f(a, b=2, *, c=3):\n    return (a, b, c)");
    const Object f = python.main().attr("f");
    EXPECT_EQ(f(1).repr(), "(1, 2, 3)");
    EXPECT_EQ(f(1, "two", kw("c", nullptr)).repr(), "(1, 'two', None)");
    EXPECT_EQ(f.call({1}, {kw("c", f), kw("b", 2.5)}).item(2).attr("__name__").toString(), "f");
    EXPECT_EQ(f(kw("a", 0)).repr(), "(0, 2, 3)");
    EXPECT_EQ(python.eval("sorted")(python.eval("[3, 1, 2]"), kw("reverse", true)).repr(),
              "[3, 2, 1]");
    EXPECT_EQ(pythonError([&] { f(1, kw("d", 4)); }).pythonType(), "TypeError");
    EXPECT_THAT(failureOf<vxpy::Error>([&] {
                    f.call({1}, {kw("c", 1), kw("c", 2)});
                }),
                HasSubstr("'c' is given twice"));
    EXPECT_THAT(failureOf<vxpy::Error>([&] {
                    f(vd::ArrayFactory().createArray(vd::ArrayType::COMPLEX_INT8, {1, 1}));
                }),
                HasSubstr("no Python form"));

    const Object d = python.eval("dict")(kw("a", 1));
    d.setItem("b", 2.5);
    d.setItem(3, "three");
    EXPECT_EQ(d.item("a").toInt(), 1);
    EXPECT_DOUBLE_EQ(d.item("b").toDouble(), 2.5);
    EXPECT_EQ(d.item(3).toString(), "three");
    python.main().setAttr("answer", 42);
    EXPECT_EQ(python.eval("answer").toInt(), 42);
    EXPECT_EQ(python.main().attr("answer").toInt(), 42);
    EXPECT_EQ(python.import("os.path").attr("__name__").toString(), "posixpath");
}

TEST_F(Objects, MatricesKeepTheHostsElementOrderBothWays) {
    // Host element (i, j) of a 2 by 3 matrix holds 10 i + j.
    vd::TypedArray<double> m = vd::ArrayFactory().createArray<double>({2, 3});
    for (std::size_t j = 0; j < 3; ++j) {
        for (std::size_t i = 0; i < 2; ++i) {
            m[i][j] = 10.0 * i + j;
        }
    }
    const Object np = python.import("numpy");
    python.main().setAttr("np", np);
    // The matrix reaches Python as the buffer object over its data.
    EXPECT_EQ(python.eval("lambda x: type(x)")(m).attr("__name__").toString(), "Buffer");
    EXPECT_EQ(np.attr("asarray")(m).attr("tolist")().repr(),
              "[[0.0, 1.0, 2.0], [10.0, 11.0, 12.0]]");
    EXPECT_EQ(np.attr("sum")(m, kw("axis", 0)).attr("tolist")().repr(), "[10.0, 12.0, 14.0]");

    const auto elements = [](const vd::Array& a) {
        std::vector<std::int64_t> values;
        for (std::int64_t v : vd::TypedArray<std::int64_t>(a)) {
            values.push_back(v);
        }
        return values;
    };
    // C order, Fortran order and a strided view alike come out column by column.
    for (const char* made :
         {"np.array([[0, 1, 2], [10, 11, 12]])", "np.asfortranarray([[0, 1, 2], [10, 11, 12]])",
          "np.array([[0, 9, 1, 9, 2], [10, 9, 11, 9, 12]])[:, ::2]"}) {
        const vd::Array back = python.eval(made).toArray();
        EXPECT_EQ(back.getType(), vd::ArrayType::INT64) << made;
        EXPECT_EQ(back.getDimensions(), (std::vector<std::size_t>{2, 3})) << made;
        EXPECT_EQ(elements(back), (std::vector<std::int64_t>{0, 10, 1, 11, 2, 12})) << made;
    }
    EXPECT_EQ(python.eval("np.arange(4)").toArray().getDimensions(),
              (std::vector<std::size_t>{4, 1}));
    EXPECT_EQ(python.eval("np.ones((2, 2), dtype=bool)").toArray().getType(),
              vd::ArrayType::LOGICAL);
    EXPECT_EQ(python.eval("np.zeros((0, 3))").toArray().getDimensions(),
              (std::vector<std::size_t>{0, 3}));

    const vd::Array row = python.eval("[1, 2.5, True]").toArray();
    EXPECT_EQ(row.getType(), vd::ArrayType::DOUBLE);
    EXPECT_EQ(row.getDimensions(), (std::vector<std::size_t>{1, 3}));
    EXPECT_EQ((std::vector<double>(vd::TypedArray<double>(row).begin(),
                                   vd::TypedArray<double>(row).end())),
              (std::vector<double>{1, 2.5, 1}));
    EXPECT_EQ(python.eval("()").toArray().getDimensions(), (std::vector<std::size_t>{1, 0}));
    EXPECT_FALSE(errorLeftSet());
}

TEST_F(Objects, PythonExceptionsArriveWithTracebackAndLeaveNothingSet) {
    python.exec(
        "def inner(n):\n"
        "    raise ValueError('bad value %d' % n)\n"
        "def outer():\n"
        "    inner(7)\n");
    const vxpy::PythonError error = pythonError([&] { python.eval("outer")(); });
    EXPECT_EQ(error.pythonType(), "ValueError");
    EXPECT_EQ(error.message(), "bad value 7");
    EXPECT_STREQ(error.what(), "ValueError: bad value 7");
    EXPECT_EQ(error.type(), "pylnk_core::InternalPyException");
    EXPECT_THAT(error.traceback(), StartsWith("Traceback (most recent call last):"));
    EXPECT_THAT(error.traceback(), HasSubstr("in outer"));
    EXPECT_THAT(error.traceback(), HasSubstr("line 2, in inner"));
    EXPECT_FALSE(errorLeftSet());

    // Every operation reports the same way.
    EXPECT_EQ(pythonError([&] { python.main().attr("missing"); }).pythonType(), "AttributeError");
    EXPECT_STREQ(pythonError([&] { python.eval("{}").item("k"); }).what(), "KeyError: 'k'");
    EXPECT_EQ(pythonError([&] { python.import("no_such_module"); }).pythonType(),
              "ModuleNotFoundError");
    EXPECT_EQ(pythonError([&] { python.exec("1 +"); }).pythonType(), "SyntaxError");
    EXPECT_EQ(pythonError([&] {
                  python.eval("bool")(python.eval("__import__('numpy').zeros(2)"));
              }).pythonType(),
              "ValueError");
    python.exec(
        "class Unprintable(Exception):\n"
        "    def __str__(self):\n"
        "        raise RuntimeError\n"
        "def chained():\n"
        "    try:\n"
        "        {}['k']\n"
        "    except KeyError as e:\n"
        "        raise Unprintable() from e\n");
    const vxpy::PythonError unprintable = pythonError([&] { python.eval("chained")(); });
    EXPECT_EQ(unprintable.pythonType(), "Unprintable");
    EXPECT_THAT(unprintable.traceback(), HasSubstr("direct cause"));
    // A failure converting an argument (a date in month 13) comes back as a report.
    const std::vector<double> parts = {2024, 13, 1, 0, 0, 0, 0, 0};
    vd::StructArray date = vd::ArrayFactory().createStructArray({1, 1}, {"VX_PylnkSP_Datetime"});
    date[0]["VX_PylnkSP_Datetime"] =
        vd::ArrayFactory().createArray<double>({1, 8}, parts.begin(), parts.end());
    EXPECT_EQ(pythonError([&] { python.eval("str")(date); }).pythonType(), "ValueError");
    EXPECT_FALSE(errorLeftSet());
}

TEST_F(Objects, CopiesShareAHandleAndTheLastDropReleasesBeforeTheNextCommand) {
    python.exec(
        "import weakref\n"
        "class Counted:\n"
        "    live = 0\n"
        "    def __init__(self):\n"
        "        Counted.live += 1\n"
        "    def __del__(self):\n"
        "        type(self).live -= 1\n"
        "holder = Counted()\n"
        "holder.value = Counted()\n");
    std::optional<Object> made = python.eval("Counted")();
    const Object ref = python.eval("weakref.ref")(*made);
    Object copy = *made;
    made.reset();
    EXPECT_FALSE(ref().isNone());
    copy = Object();
    EXPECT_TRUE(ref().isNone());

    // The same object crossing twice shares one handle: dropping one leaves
    // the other holding it after Python lets go of it.
    std::optional<Object> first = python.eval("holder").attr("value");
    const Object second = python.eval("holder").attr("value");
    EXPECT_EQ(first->address(), second.address());
    first.reset();
    python.exec("del holder.value");
    EXPECT_EQ(second.typeName(), "__main__.Counted");
    EXPECT_EQ(python.eval("Counted.live").toInt(), 2);

    // Temporaries of every road leave nothing behind: results, list items,
    // attributes, exceptions whose traceback holds a frame with one.
    python.exec("def fails():\n    local = Counted()\n    raise RuntimeError('x')\n");
    const Object counted = python.eval("Counted");
    const Object references = python.eval("lambda: __import__('sys').getrefcount(Counted)");
    const std::int64_t before = references().toInt();
    for (int i = 0; i < 200; ++i) {
        counted();
        python.eval("[Counted(), Counted()]").toList();
        python.eval("holder").attr("__class__");
        EXPECT_THROW(python.eval("fails")(), vxpy::PythonError);
    }
    EXPECT_EQ(python.eval("Counted.live").toInt(), 2);
    EXPECT_EQ(references().toInt(), before);
}

TEST_F(Objects, ObjectsOfAnEndedWorkerRefuseEveryUse) {
    const Object before = python.eval("[1, 2]");
    const Object keep = python.eval("len");
    const int pid = python.pid();
    python.restart();
    python.start(systemPython());
    ASSERT_NE(python.pid(), pid);
    for (const auto& use : std::vector<std::function<void()>>{
             [&] { before.str(); }, [&] { before.attr("append"); }, [&] { keep(1); },
             [&] { before.toList(); }, [&] { before.isNone(); }, [&] { before.item(0); }}) {
        EXPECT_THAT(vxtest::clientFailureOf(use), HasSubstr("the object's worker has ended"));
    }
    // Its address never reaches the new worker, not even as an argument.
    EXPECT_THAT(failureOf<vxpy::Error>([&] { python.eval("len")(before); }),
                HasSubstr("another worker"));
    EXPECT_EQ(python.eval("len")(python.eval("[1, 2, 3]")).toInt(), 3);

    // The end of the Session and close() alike.
    std::optional<vxpy::Session> other(std::in_place);
    other->start(systemPython());
    const Object orphan = other->eval("object()");
    other.reset();
    EXPECT_THAT(vxtest::clientFailureOf([&] { orphan.repr(); }),
                HasSubstr("the object's worker has ended"));
    const Object closed = python.eval("object()");
    python.close();
    EXPECT_THAT(vxtest::clientFailureOf([&] { closed.typeName(); }),
                HasSubstr("the object's worker has ended"));
    EXPECT_THAT(failureOf<vxpy::Error>([&] { Object().str(); }), HasSubstr("holds no object"));
}

TEST_F(Objects, ManyThreadsShareObjectsAndEachGetsItsOwnResultsAndErrors) {
    python.exec(
        "class Counted:\n"
        "    live = 0\n"
        "    def __init__(self, n):\n"
        "        Counted.live += 1\n"
        "        self.n = n\n"
        "    def __del__(self):\n"
        "        type(self).live -= 1\n"
        "def check(n):\n"
        "    if n % 5 == 0:\n"
        "        raise ValueError(n)\n"
        "    return Counted(n)\n"
        "shared = Counted(-1)\n");
    const Object check = python.eval("check");
    const Object shared = python.eval("shared");
    constexpr int kThreads = 8, kCalls = 60;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kCalls; ++i) {
                const std::int64_t n = t * 1000 + i;
                try {
                    const Object made = check(n);
                    wrong += made.attr("n").toInt() != n;
                    const Object d = python.eval("dict")(kw("mine", made));
                    wrong += d.item("mine").attr("n").toInt() != n;
                    wrong += shared.attr("n").toInt() != -1;
                    wrong += n % 5 == 0;
                } catch (const vxpy::PythonError& error) {
                    wrong += error.pythonType() != "ValueError" ||
                             error.message() != std::to_string(n) || n % 5 != 0;
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(python.eval("Counted.live").toInt(), 1);
    EXPECT_FALSE(errorLeftSet());
}

}  // namespace
