// One reply brings address, class description and the value of a number:
// the object result, the class cache rule, property results, pyInvokeFast,
// and the exception report that guarded commands answer with.
#include <gtest/gtest.h>

#include "support/conversion.h"

using namespace vxtest;

namespace {

struct FastResults : SessionTest {
    FastResults()
        : SessionTest(
              "__name__ = 'geometry'\n"
              "class Point:\n"
              "    def __init__(self): self.x, self.y = 1.5, 2\n"
              "    @property\n"
              "    def norm(self): return 2.5\n"
              "    def scaled(self, k): return self.x * k\n"
              "point = Point()\n") {}
};

using Names = std::vector<std::string>;

vd::Array fast(const std::string& expression, const std::string& attribute) {
    return callOn("pyGetPropertyValueFast", expression, {chars(attribute)});
}

}  // namespace

TEST_F(FastResults, ScalarDataOnlyForBoolFloatComplex) {
    // An int stays an object, like text, None and containers; every result
    // carries an address the host can use and release.
    const std::tuple<const char*, const char*, const char*> results[] = {
        {"True", "", "LOGICAL 1x1: 1"},
        {"point", "x", "DOUBLE 1x1: 1.5"},
        {"complex(1, -2)", "", "COMPLEX_DOUBLE 1x1: (1,-2)"},
        {"point", "y", "CHAR 1x0:"},
        {"'text'", "", "CHAR 1x0:"},
        {"None", "", "CHAR 1x0:"},
        {"[1.0]", "", "CHAR 1x0:"},
    };
    for (const auto& [expression, attribute, scalar] : results) {
        const vd::Array result = fast(expression, attribute);
        EXPECT_EQ(fieldNames(result),
                  (Names{"object", "classProperties", "classMetadata", "scalarData"}));
        EXPECT_EQ(show(field(result, "scalarData")), scalar) << expression << " " << attribute;
        EXPECT_NE(addressOf(field(result, "object")), 0u) << expression;
    }
    EXPECT_EQ(strOf(addressOf(field(fast("point", "y"), "object"))), "2");
    // The object's own attributes, in insertion order.
    EXPECT_EQ(namesOf(field(fast("point", ""), "classProperties")), (Names{"x", "y"}));
}

TEST_F(FastResults, FirstOfAClassDescribedLaterOnesNamed) {
    const auto metadata = [](const std::string& expression) {
        return field(fast(expression, ""), "classMetadata");
    };
    EXPECT_EQ(metadata("{}").getType(), vd::ArrayType::STRUCT);
    EXPECT_EQ(textOf(metadata("{'a': 1}")), "dict");
    EXPECT_EQ(textOf(field(metadata("point"), "name")), "Point");
    EXPECT_EQ(textOf(metadata("Point()")), "geometry.Point");

    // Two classes of one bare name share the entry: the second is never
    // described, only named.
    exec("Point = type('Point', (), {'__module__': 'other'})");
    EXPECT_EQ(textOf(metadata("Point()")), "other.Point");
    // A class that moves after it was named is named anew.
    exec("Point.__module__ = 'moved'");
    EXPECT_EQ(textOf(metadata("Point()")), "moved.Point");
    exec("Point.__module__ = None");
    EXPECT_EQ(textOf(metadata("Point()")), "Point");
    // A class whose module cannot be read, once cached, has empty text and
    // leaves no error behind.
    exec(
        "class Meta(type):\n"
        "    @property\n"
        "    def __module__(cls): raise RuntimeError('unreadable')\n"
        "Hidden = Meta('Hidden', (), {})\n");
    EXPECT_EQ(metadata("Hidden()").getType(), vd::ArrayType::STRUCT);
    EXPECT_EQ(textOf(metadata("Hidden()")), "");
    EXPECT_FALSE(errorOccurred());
    // A class without a name is described every time.
    exec("Nameless = type('', (), {})");
    EXPECT_EQ(metadata("Nameless()").getType(), vd::ArrayType::STRUCT);
    EXPECT_EQ(metadata("Nameless()").getType(), vd::ArrayType::STRUCT);

    EXPECT_EQ(textOf(call("ClearMetadataMap")), "success");
    EXPECT_EQ(metadata("{}").getType(), vd::ArrayType::STRUCT);
}

TEST_F(FastResults, PropertyReadsStructsAndInvokeFast) {
    // The object itself with an empty name: a retained address of its own.
    const Address p = eval("point");
    EXPECT_EQ(addressOf(field(fast("point", ""), "object")), p);
    EXPECT_THROW(fast("point", "missing"), std::exception);
    EXPECT_TRUE(errorOccurred());
    call("pyErrorClear");

    const vd::Array request = structOf(
        {{"a", chars("norm")}, {"b", chars("nothere")}, {"c", chars("x")}, {"d", chars("norm")}});
    const vd::Array reply = call("pyGetPropertyStruct", {addressArray(p), request});
    EXPECT_EQ(fieldNames(reply), (Names{"norm", "x"}));
    const vd::Array norm = field(reply, "norm");
    EXPECT_EQ(fieldNames(norm), (Names{"object", "classMetadata", "scalarData"}));
    EXPECT_EQ(show(field(norm, "scalarData")), "DOUBLE 1x1: 2.5");
    // The reduced description: no bases, no docstring, no member lists.
    const vd::Array bare = field(norm, "classMetadata");
    EXPECT_EQ(fieldNames(bare),
              (Names{"objectAddress", "name", "moduleName", "docstring", "collections", "arrayType",
                     "builtintype", "properties", "methods", "operators"}));
    EXPECT_EQ(shown(bare, {"name", "methods"}), "CHAR 1x5: float | STRUCT 1x0:");
    EXPECT_EQ(fieldNames(field(bare, "methods")).size(), 11u);

    EXPECT_TRUE(fieldNames(call("pyGetPropertyStruct",
                                {addressArray(p), structOf({{"only", chars("nothere")}})}))
                    .empty());

    // pyInvokeFast answers with the object result, with keywords or without.
    const Address scaled = eval("point.scaled");
    const auto invokeFast = [scaled](std::vector<Address> args, std::vector<vd::Array> more) {
        more.insert(more.begin(), {addressArray(scaled), addressArray(tupleOf(args))});
        return show(field(call("pyInvokeFast", more), "scalarData"));
    };
    EXPECT_EQ(invokeFast({eval("4")}, {}), "DOUBLE 1x1: 6");
    EXPECT_EQ(invokeFast({}, {addressArray(eval("{'k': 2}"))}), "DOUBLE 1x1: 3");
    EXPECT_THROW(invokeFast({}, {}), std::exception);
    EXPECT_TRUE(errorOccurred());
}

TEST_F(FastResults, GuardedCommandsAnswerWithTheExceptionReport) {
    // An unhashable object: a report, not a failure, and no error left set.
    const vd::Array report = callOn("pyGetHash", "[1, 2]");
    EXPECT_EQ(fieldNames(report), (Names{"exceptionName", "exceptionMessage", "object",
                                         "classProperties", "classMetadata", "scalarData"}));
    EXPECT_EQ(reportOf(report), "TypeError: unhashable type: 'list'");
    EXPECT_FALSE(errorOccurred());
    // The object is the fetched (type, value, traceback), described as such.
    const Address fetched = addressOf(field(report, "object"));
    EXPECT_EQ(strOf(invoke(fetch("builtins.type"), {fetched})), "<class 'tuple'>");
    EXPECT_EQ(textOf(field(field(report, "classMetadata"), "name")), "tuple");
    EXPECT_TRUE(field(report, "scalarData").isEmpty());
    release(fetched);

    // A hashable object answers with its hash, sign-extended.
    EXPECT_EQ(show(callOn("pyGetHash", "-2")), "UINT64 1x1: 18446744073709551614");

    // An import failure; an exception whose str() raises keeps its true
    // class name and says it could not be printed.
    const vd::Array missing = call("pyCreateModuleException", {chars("no_such_module_here")});
    EXPECT_EQ(textOf(field(missing, "exceptionName")), "ModuleNotFoundError");
    exec(
        "import sys, types\n"
        "class Mute(Exception):\n"
        "    def __str__(self): raise ValueError('mute')\n"
        "class Finder:\n"
        "    def find_spec(self, name, path=None, target=None):\n"
        "        if name == 'mute_module': raise Mute()\n"
        "sys.meta_path.insert(0, Finder())\n");
    const vd::Array mute = call("pyCreateModuleException", {chars("mute_module")});
    EXPECT_EQ(reportOf(mute), "Mute: VELTRAPyHost::UnprintableException");
    EXPECT_FALSE(errorOccurred());
}
