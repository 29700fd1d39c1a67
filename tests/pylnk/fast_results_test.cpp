// One reply brings address, class description and the value of a number:
// the object result, the class cache rule, property results, pyInvokeFast,
// and the exception report that guarded commands answer with.
#include <gtest/gtest.h>

#include "support/conversion.h"

using namespace vxtest;

namespace {

class FastResults : public ::testing::Test {
  protected:
    void SetUp() override {
        startSystemPython();
        exec(
            "__name__ = 'geometry'\n"
            "class Point:\n"
            "    def __init__(self): self.x, self.y = 1.5, 2\n"
            "    @property\n"
            "    def norm(self): return 2.5\n"
            "    def scaled(self, k): return self.x * k\n"
            "point = Point()\n");
    }

    static vd::Array fast(Address object, const std::string& attribute) {
        return call("pyGetPropertyValueFast", {addressArray(object), chars(attribute)});
    }
};

const std::vector<std::string> kObjectResult{"object", "classProperties", "classMetadata",
                                             "scalarData"};

}  // namespace

TEST_F(FastResults, ScalarDataOnlyForTruthValuesFloatsAndComplexNumbers) {
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
        const vd::Array result = fast(eval(expression), attribute);
        EXPECT_EQ(fieldNames(result), kObjectResult) << expression;
        EXPECT_EQ(show(field(result, "scalarData")), scalar) << expression << " " << attribute;
        EXPECT_NE(addressOf(field(result, "object")), 0u) << expression;
    }
    EXPECT_EQ(strOf(addressOf(field(fast(eval("point"), "y"), "object"))), "2");

    // The object's own attributes, in insertion order.
    EXPECT_EQ(namesOf(field(fast(eval("point"), ""), "classProperties")),
              (std::vector<std::string>{"x", "y"}));
}

TEST_F(FastResults, FirstObjectOfAClassCarriesItsDescriptionLaterOnesTheDottedName) {
    const auto metadata = [](const std::string& expression) {
        return field(call("pyGetPropertyValueFast", {addressArray(eval(expression)), chars("")}),
                     "classMetadata");
    };
    EXPECT_EQ(metadata("{}").getType(), vd::ArrayType::STRUCT);
    EXPECT_EQ(textOf(metadata("{'a': 1}")), "dict");
    EXPECT_EQ(textOf(field(metadata("point"), "name")), "Point");
    EXPECT_EQ(textOf(metadata("Point()")), "geometry.Point");

    // Two classes of one bare name share the entry: the second is never
    // described, only named.
    exec("Point = type('Point', (), {'__module__': 'other'})");
    EXPECT_EQ(textOf(metadata("Point()")), "other.Point");
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

TEST_F(FastResults, PropertyReadsAndStructs) {
    // The object itself with an empty name: a retained address of its own.
    const Address p = eval("point");
    EXPECT_EQ(addressOf(field(fast(p, ""), "object")), p);
    EXPECT_THROW(fast(p, "missing"), std::exception);
    EXPECT_TRUE(errorOccurred());
    call("pyErrorClear");

    const vd::Array request = structOf(
        {{"a", chars("norm")}, {"b", chars("nothere")}, {"c", chars("x")}, {"d", chars("norm")}});
    const vd::Array reply = call("pyGetPropertyStruct", {addressArray(p), request});
    EXPECT_EQ(fieldNames(reply), (std::vector<std::string>{"norm", "x"}));
    const vd::Array norm = field(reply, "norm");
    EXPECT_EQ(fieldNames(norm),
              (std::vector<std::string>{"object", "classMetadata", "scalarData"}));
    EXPECT_EQ(show(field(norm, "scalarData")), "DOUBLE 1x1: 2.5");
    // The reduced description: no bases, no docstring, no member lists.
    const vd::Array bare = field(norm, "classMetadata");
    EXPECT_EQ(fieldNames(bare),
              (std::vector<std::string>{"objectAddress", "name", "moduleName", "docstring",
                                        "collections", "arrayType", "builtintype", "properties",
                                        "methods", "operators"}));
    EXPECT_EQ(shown(bare, {"name", "methods"}), "CHAR 1x5: float | STRUCT 1x0:");
    EXPECT_EQ(fieldNames(field(bare, "methods")).size(), 11u);

    EXPECT_TRUE(fieldNames(call("pyGetPropertyStruct",
                                {addressArray(p), structOf({{"only", chars("nothere")}})}))
                    .empty());
}

TEST_F(FastResults, InvokeFastAnswersWithTheObjectResult) {
    const Address scaled = eval("point.scaled");
    const Address args = tupleOf({eval("4")});
    const vd::Array result = call("pyInvokeFast", {addressArray(scaled), addressArray(args)});
    EXPECT_EQ(show(field(result, "scalarData")), "DOUBLE 1x1: 6");

    const Address kwargs = eval("{'k': 2}");
    const vd::Array withKeywords = call(
        "pyInvokeFast", {addressArray(scaled), addressArray(tupleOf({})), addressArray(kwargs)});
    EXPECT_EQ(show(field(withKeywords, "scalarData")), "DOUBLE 1x1: 3");

    EXPECT_THROW(call("pyInvokeFast", {addressArray(scaled), addressArray(tupleOf({}))}),
                 std::exception);
    EXPECT_TRUE(errorOccurred());
}

TEST_F(FastResults, GuardedCommandsAnswerWithTheExceptionReport) {
    // An unhashable object: a report, not a failure, and no error left set.
    const vd::Array report = call("pyGetHash", {addressArray(eval("[1, 2]"))});
    EXPECT_EQ(fieldNames(report),
              (std::vector<std::string>{"exceptionName", "exceptionMessage", "object",
                                        "classProperties", "classMetadata", "scalarData"}));
    EXPECT_EQ(textOf(field(report, "exceptionName")), "TypeError");
    EXPECT_EQ(textOf(field(report, "exceptionMessage")), "unhashable type: 'list'");
    EXPECT_FALSE(errorOccurred());
    // The object is the fetched (type, value, traceback), described as such.
    const Address fetched = addressOf(field(report, "object"));
    EXPECT_EQ(strOf(invoke(fetch("builtins.type"), {fetched})), "<class 'tuple'>");
    EXPECT_EQ(textOf(field(field(report, "classMetadata"), "name")), "tuple");
    EXPECT_TRUE(field(report, "scalarData").isEmpty());
    release(fetched);

    // A hashable object answers with its hash, sign-extended.
    EXPECT_EQ(show(call("pyGetHash", {addressArray(eval("-2"))})),
              "UINT64 1x1: 18446744073709551614");

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
    EXPECT_EQ(textOf(field(mute, "exceptionName")), "Mute");
    EXPECT_EQ(textOf(field(mute, "exceptionMessage")), "VELTRAPyHost::UnprintableException");
    EXPECT_FALSE(errorOccurred());
    // A module that imports answers with its address, as pyCreateModule does.
    EXPECT_EQ(strOf(addressOf(call("pyCreateModuleException", {chars("textwrap")}))).substr(0, 17),
              "<module 'textwrap");
}
