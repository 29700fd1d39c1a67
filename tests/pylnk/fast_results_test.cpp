// One reply brings address, class description and the value of a number:
// the object result, the class cache rule, property results, pyInvokeFast,
// and the exception report that guarded commands answer with.
#include <gtest/gtest.h>

#include <complex>

#include "support/session.h"

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
    const vd::Array truth = fast(eval("True"), "");
    EXPECT_EQ(fieldNames(truth), kObjectResult);
    EXPECT_EQ(field(truth, "scalarData").getType(), vd::ArrayType::LOGICAL);
    EXPECT_TRUE(logicalsOf(field(truth, "scalarData"))[0]);

    const vd::Array x = fast(eval("point"), "x");
    EXPECT_EQ(static_cast<double>(vd::TypedArray<double>(field(x, "scalarData"))[0]), 1.5);
    const vd::Array z = fast(eval("complex(1, -2)"), "");
    EXPECT_EQ(static_cast<std::complex<double>>(
                  vd::TypedArray<std::complex<double>>(field(z, "scalarData"))[0]),
              std::complex<double>(1, -2));

    // An int stays an object, like text, None and containers; every result
    // carries an address the host can use and release.
    for (const char* expression : {"point.y", "'text'", "None", "[1.0]"}) {
        const vd::Array result = fast(eval(expression), "");
        EXPECT_EQ(field(result, "scalarData").getType(), vd::ArrayType::CHAR) << expression;
        EXPECT_TRUE(field(result, "scalarData").isEmpty()) << expression;
        EXPECT_NE(addressOf(field(result, "object")), 0u) << expression;
    }
    EXPECT_EQ(strOf(addressOf(field(fast(eval("point"), "y"), "object"))), "2");

    // The object's own attributes, in insertion order.
    const vd::Array own = field(fast(eval("point"), ""), "classProperties");
    ASSERT_EQ(own.getNumberOfElements(), 2u);
    EXPECT_EQ(textOf(field(own, "name", 0)), "x");
    EXPECT_EQ(textOf(field(own, "name", 1)), "y");
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

    vd::ArrayFactory f;
    vd::StructArray request = f.createStructArray({1, 1}, {"a", "b", "c", "d"});
    request[0]["a"] = chars("norm");
    request[0]["b"] = chars("nothere");
    request[0]["c"] = chars("x");
    request[0]["d"] = chars("norm");
    const vd::Array reply = call("pyGetPropertyStruct", {addressArray(p), request});
    EXPECT_EQ(fieldNames(reply), (std::vector<std::string>{"norm", "x"}));
    const vd::Array norm = field(reply, "norm");
    EXPECT_EQ(fieldNames(norm),
              (std::vector<std::string>{"object", "classMetadata", "scalarData"}));
    EXPECT_EQ(static_cast<double>(vd::TypedArray<double>(field(norm, "scalarData"))[0]), 2.5);
    // The reduced description: no bases, no docstring, no member lists.
    const vd::Array bare = field(norm, "classMetadata");
    EXPECT_EQ(fieldNames(bare),
              (std::vector<std::string>{"objectAddress", "name", "moduleName", "docstring",
                                        "collections", "arrayType", "builtintype", "properties",
                                        "methods", "operators"}));
    EXPECT_EQ(textOf(field(bare, "name")), "float");
    EXPECT_EQ(field(bare, "methods").getDimensions(), (std::vector<size_t>{1, 0}));
    EXPECT_EQ(fieldNames(field(bare, "methods")).size(), 11u);

    vd::StructArray unknown = f.createStructArray({1, 1}, {"only"});
    unknown[0]["only"] = chars("nothere");
    EXPECT_TRUE(fieldNames(call("pyGetPropertyStruct", {addressArray(p), unknown})).empty());
}

TEST_F(FastResults, InvokeFastAnswersWithTheObjectResult) {
    const Address scaled = eval("point.scaled");
    const Address args = tupleOf({eval("4")});
    const vd::Array result = call("pyInvokeFast", {addressArray(scaled), addressArray(args)});
    EXPECT_EQ(static_cast<double>(vd::TypedArray<double>(field(result, "scalarData"))[0]), 6.0);

    const Address kwargs = eval("{'k': 2}");
    const vd::Array withKeywords = call(
        "pyInvokeFast", {addressArray(scaled), addressArray(tupleOf({})), addressArray(kwargs)});
    EXPECT_EQ(static_cast<double>(vd::TypedArray<double>(field(withKeywords, "scalarData"))[0]),
              3.0);

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
    const auto hash = [](const vd::Array& reply) {
        return static_cast<std::int64_t>(vd::TypedArray<std::uint64_t>(reply)[0]);
    };
    EXPECT_EQ(hash(call("pyGetHash", {addressArray(eval("-2"))})), -2);

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
