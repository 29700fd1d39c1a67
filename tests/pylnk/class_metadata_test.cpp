// Class metadata as the host builds classes from it: members found without
// running them, classified in order, signatures, operators, caching, and
// the references that the structure retains.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "support/session.h"

using namespace vxtest;

namespace {

class ClassMetadata : public ::testing::Test {
  protected:
    void SetUp() override {
        startSystemPython();
        exec(
            "__name__ = 'shapes'\n"
            "import operator\n"
            "class Base:\n"
            "    def inherited(self): pass\n"
            "    def overridden(self): return 'base'\n"
            "class Shape(Base):\n"
            "    'A shape.'\n"
            "    __slots__ = ('slot',)\n"
            "    class Nested: pass\n"
            "    count = 3\n"
            "    def overridden(self): return 'shape'\n"
            "    @property\n"
            "    def area(self): raise RuntimeError('a getter must not run')\n"
            "    label = property(None, lambda self, v: None)\n"
            "    @staticmethod\n"
            "    def make(a, b): pass\n"
            "    @staticmethod\n"
            "    def nothing(): pass\n"
            "    @classmethod\n"
            "    def build(cls): pass\n"
            "    def annotated(self, x: int, y: 'int | None', z: 'b|a|b', w: 3, v, *rest,\n"
            "                  k=1, **kw) -> float: pass\n"
            "    def defaults(self, a, b=1, *c, d=2, **e): pass\n"
            "    def keyword_only(self, a, *, k=1): pass\n"
            "    def unions(self, p: int | str, q: int | None, r: 'Gr\\u00f6\\u00dfe'): pass\n"
            "    def __add__(self, other): return self\n"
            "shape = Shape()\n");
    }

    static vd::Array metadataOf(const std::string& expression) {
        return call("pyGetClassMetaData", {addressArray(eval(expression))});
    }

    // The entry of a struct row whose "name" is the given text.
    static std::optional<size_t> entryNamed(const vd::Array& row, const std::string& name) {
        for (size_t i = 0; i < row.getNumberOfElements(); ++i) {
            if (textOf(field(row, "name", i)) == name) {
                return i;
            }
        }
        return std::nullopt;
    }
};

std::vector<std::optional<std::string>> typesOf(const vd::Array& entry, size_t argument) {
    vd::TypedArray<vd::Array> cells(field(entry, "argTypes"));
    return stringsOf(cells[argument]);
}

using Strings = std::vector<std::optional<std::string>>;

}  // namespace

TEST_F(ClassMetadata, DescribesAUserClassWithoutRunningItsMembers) {
    const vd::Array metadata = metadataOf("shape");
    EXPECT_EQ(fieldNames(metadata),
              (std::vector<std::string>{"objectAddress", "name", "moduleName", "docstring", "bases",
                                        "collections", "arrayType", "builtintype", "properties",
                                        "methods", "operators"}));
    EXPECT_EQ(textOf(field(metadata, "name")), "Shape");
    EXPECT_EQ(textOf(field(metadata, "moduleName")), "shapes");
    EXPECT_EQ(textOf(field(metadata, "docstring")), "A shape.");
    EXPECT_EQ(stringsOf(field(metadata, "bases")), (Strings{"py.shapes.Base"}));
    EXPECT_EQ(logicalsOf(field(metadata, "collections")),
              (std::vector<bool>{false, false, false, false, false}));
    EXPECT_EQ(logicalsOf(field(metadata, "arrayType")), (std::vector<bool>{false, false}));
    EXPECT_TRUE(field(metadata, "builtintype").isEmpty());
    EXPECT_EQ(strOf(addressOf(field(metadata, "objectAddress"))), "<class 'shapes.Shape'>");

    // Properties: the getter that raises never ran; access follows fget/fset;
    // a slot reads and writes. Neither the nested class nor a plain value
    // is a member the host shows.
    const vd::Array properties = field(metadata, "properties");
    EXPECT_EQ(fieldNames(properties), (std::vector<std::string>{"name", "getAccess", "setAccess"}));
    const auto access = [&](const std::string& name) {
        const size_t i = entryNamed(properties, name).value();
        return std::pair<bool, bool>(logicalsOf(field(properties, "getAccess", i))[0],
                                     logicalsOf(field(properties, "setAccess", i))[0]);
    };
    EXPECT_EQ(access("area"), std::make_pair(true, false));
    EXPECT_EQ(access("label"), std::make_pair(false, true));
    EXPECT_EQ(access("slot"), std::make_pair(true, true));
    const vd::Array methods = field(metadata, "methods");
    for (const char* skipped : {"Nested", "count"}) {
        EXPECT_FALSE(entryNamed(properties, skipped)) << skipped;
        EXPECT_FALSE(entryNamed(methods, skipped)) << skipped;
    }

    // Methods in dir order; the override wins; static only where it is.
    std::vector<std::string> names;
    for (size_t i = 0; i < methods.getNumberOfElements(); ++i) {
        names.push_back(textOf(field(methods, "name", i)));
    }
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    const auto method = [&](const std::string& name) { return entryNamed(methods, name).value(); };
    const auto isStatic = [&](const std::string& name) -> bool {
        return logicalsOf(field(methods, "static", method(name)))[0];
    };
    EXPECT_TRUE(isStatic("make"));
    EXPECT_TRUE(isStatic("build"));
    EXPECT_FALSE(isStatic("overridden"));
    EXPECT_FALSE(isStatic("inherited"));
    const Address overridden = addressOf(field(methods, "objectAddress", method("overridden")));
    EXPECT_EQ(strOf(invoke(overridden, {addressOf(field(metadata, "objectAddress"))})), "shape")
        << "the bound member of the subclass, not the base's";
    EXPECT_EQ(textOf(field(methods, "docstring", method("overridden"))), "");
    EXPECT_FALSE(errorOccurred());
}

TEST_F(ClassMetadata, SignaturesAndAnnotations) {
    const vd::Array methods = field(metadataOf("shape"), "methods");
    const auto entry = [&](const std::string& name) {
        vd::StructArray row(methods);
        vd::StructArray one = vd::ArrayFactory().createStructArray({1, 1}, fieldNames(methods));
        const size_t i = entryNamed(methods, name).value();
        for (const std::string& f : fieldNames(methods)) {
            one[0][f] = vd::Array(row[i][f]);
        }
        return vd::Array(one);
    };
    const auto count = [](const vd::Array& e, const char* name) {
        return static_cast<std::uint64_t>(vd::TypedArray<std::uint64_t>(field(e, name))[0]);
    };
    const auto flag = [](const vd::Array& e, const char* name) -> bool {
        return logicalsOf(field(e, name))[0];
    };

    const vd::Array defaults = entry("defaults");
    EXPECT_EQ(stringsOf(field(defaults, "argNames")), (Strings{"self", "a", "b"}));
    EXPECT_EQ(count(defaults, "numArgsDefault"), 1u);
    EXPECT_EQ(count(defaults, "numArgsNoDefault"), 2u);
    EXPECT_TRUE(flag(defaults, "varargs"));
    EXPECT_TRUE(flag(defaults, "kwargs"));

    const vd::Array keywordOnly = entry("keyword_only");
    EXPECT_EQ(stringsOf(field(keywordOnly, "argNames")), (Strings{"self", "a"}));
    EXPECT_FALSE(flag(keywordOnly, "varargs"));
    EXPECT_TRUE(flag(keywordOnly, "kwargs")) << "through kwonlyargs";

    // Sets are sorted by byte order, upper case first; text annotations are
    // split at '|'; an annotation without __name__ gives no type, and the
    // other arguments' cells keep their places.
    const vd::Array annotated = entry("annotated");
    EXPECT_EQ(stringsOf(field(annotated, "argNames")), (Strings{"self", "x", "y", "z", "w", "v"}));
    EXPECT_EQ(typesOf(annotated, 0), Strings{});
    EXPECT_EQ(typesOf(annotated, 1), (Strings{"int"}));
    EXPECT_EQ(typesOf(annotated, 2), (Strings{"None", "int"}));
    EXPECT_EQ(typesOf(annotated, 3), (Strings{"a", "b"}));
    EXPECT_EQ(typesOf(annotated, 4), Strings{});
    EXPECT_EQ(typesOf(annotated, 5), Strings{});
    EXPECT_EQ(field(annotated, "argTypes").getDimensions(), (std::vector<size_t>{1, 6}));

    // Union objects through typing.get_args; names outside ASCII kept.
    const vd::Array unions = entry("unions");
    EXPECT_EQ(typesOf(unions, 1), (Strings{"int", "str"}));
    EXPECT_EQ(typesOf(unions, 2), (Strings{"NoneType", "int"}));
    vd::TypedArray<vd::Array> cells(field(unions, "argTypes"));
    const vd::VELTRAString grosse = vd::TypedArray<vd::VELTRAString>(cells[3])[0];
    EXPECT_EQ(*grosse, u"Gr\u00f6\u00dfe");

    // A static method keeps its names but takes anything; one without
    // arguments has a single missing name and no type cells.
    const vd::Array make = entry("make");
    EXPECT_EQ(stringsOf(field(make, "argNames")), (Strings{"a", "b"}));
    EXPECT_TRUE(flag(make, "varargs"));
    const vd::Array nothing = entry("nothing");
    EXPECT_EQ(stringsOf(field(nothing, "argNames")), (Strings{std::nullopt}));
    EXPECT_EQ(field(nothing, "argTypes").getDimensions(), (std::vector<size_t>{1, 0}));
    EXPECT_FALSE(errorOccurred());
}

TEST_F(ClassMetadata, OperatorsComeFromTheOperatorModuleInTableOrder) {
    const vd::Array metadata = metadataOf("shape");
    const vd::Array operators = field(metadata, "operators");
    std::vector<std::string> names;
    for (size_t i = 0; i < operators.getNumberOfElements(); ++i) {
        names.push_back(textOf(field(operators, "name", i)));
    }
    EXPECT_EQ(names, (std::vector<std::string>{"plus", "eq", "ge", "gt", "le", "lt", "ne"}));
    EXPECT_EQ(strOf(addressOf(field(operators, "objectAddress", 0))), "<built-in function add>");
    // The operator module's functions have no spec: the host may pass anything.
    EXPECT_TRUE(logicalsOf(field(operators, "varargs", 0))[0]);
    EXPECT_EQ(stringsOf(field(operators, "argNames", 0)), (Strings{std::nullopt}));
    // The class's own method is listed among the methods too.
    const vd::Array methods = field(metadata, "methods");
    const size_t add = entryNamed(methods, "__add__").value();
    EXPECT_NE(strOf(addressOf(field(methods, "objectAddress", add))), "<built-in function add>");

    // Without an importable operator module there are no operators, and no
    // failure.
    exec("import sys\nsaved_operator = sys.modules['operator']\nsys.modules['operator'] = None");
    const vd::Array without = metadataOf("shape");
    exec("sys.modules['operator'] = saved_operator");
    EXPECT_EQ(field(without, "operators").getNumberOfElements(), 0u);
    EXPECT_FALSE(errorOccurred());
}

TEST_F(ClassMetadata, BuiltinAndLibraryClasses) {
    // dict.fromkeys is static through its __self__; str.join is not.
    const vd::Array dictMethods = field(metadataOf("{}"), "methods");
    EXPECT_TRUE(
        logicalsOf(field(dictMethods, "static", entryNamed(dictMethods, "fromkeys").value()))[0]);
    const vd::Array str = metadataOf("'text'");
    const vd::Array strMethods = field(str, "methods");
    EXPECT_FALSE(
        logicalsOf(field(strMethods, "static", entryNamed(strMethods, "join").value()))[0]);
    EXPECT_EQ(stringsOf(field(str, "builtintype")), (Strings{"str"}));
    EXPECT_EQ(stringsOf(field(metadataOf("True"), "builtintype")), (Strings{"bool"}));
    EXPECT_EQ(textOf(field(str, "moduleName")), "builtins");

    exec("class Stack(list): pass\nclass Callable:\n    def __call__(self): pass");
    EXPECT_EQ(logicalsOf(field(metadataOf("Stack()"), "collections")),
              (std::vector<bool>{false, true, true, false, false}));
    EXPECT_EQ(logicalsOf(field(metadataOf("Callable()"), "collections"))[0], true);
    EXPECT_EQ(logicalsOf(field(metadataOf("__import__('array').array('d')"), "arrayType")),
              (std::vector<bool>{true, true}));

    // NumPy and pandas classes, as the host meets them every day.
    const vd::Array ndarray = metadataOf("__import__('numpy').zeros(2)");
    EXPECT_EQ(textOf(field(ndarray, "moduleName")), "numpy");
    EXPECT_TRUE(logicalsOf(field(ndarray, "arrayType"))[1]);
    EXPECT_TRUE(entryNamed(field(ndarray, "properties"), "shape"));
    EXPECT_TRUE(entryNamed(field(ndarray, "methods"), "reshape"));
    const vd::Array frame = metadataOf("__import__('pandas').DataFrame({'a': [1]})");
    EXPECT_TRUE(entryNamed(field(frame, "methods"), "to_numpy"));
    EXPECT_TRUE(entryNamed(field(frame, "properties"), "columns"));
    EXPECT_FALSE(errorOccurred());
}

TEST_F(ClassMetadata, UnreadableModuleAndDocstringReadAsEmpty) {
    exec(
        "class Meta(type):\n"
        "    @property\n"
        "    def __doc__(cls): raise RuntimeError('no doc')\n"
        "class Odd(metaclass=Meta): pass\n"
        "Odd.__module__ = None\n");
    const vd::Array metadata = metadataOf("Odd()");
    EXPECT_EQ(textOf(field(metadata, "moduleName")), "");
    EXPECT_EQ(textOf(field(metadata, "docstring")), "");
    EXPECT_FALSE(errorOccurred());
}

TEST_F(ClassMetadata, EveryRetainedAddressIsTheHostsToRelease) {
    // Counted in Python, so that the counting holds no registry reference.
    const auto count = [](const std::string& expression) {
        const Address n = eval("sys.getrefcount(" + expression + ")");
        const auto value = static_cast<std::int64_t>(
            vd::TypedArray<std::int64_t>(call("pyLongGetDataInt64", {addressArray(n)}))[0]);
        release(n);
        return value;
    };
    exec("import sys");
    // Not the operator module's functions: start-up's module descriptions
    // hold those addresses already.
    const std::vector<std::string> probes{"Shape", "Shape.__dict__['__add__']",
                                          "Shape.__dict__['overridden']"};
    std::vector<std::int64_t> before;
    for (const std::string& probe : probes) {
        before.push_back(count(probe));
    }
    // Plain functions keep their address from build to build, and the
    // registry holds one reference for each; bound methods (a classmethod,
    // the class's own __init_subclass__) are new objects each time.
    std::set<Address> addresses;
    for (int build = 0; build < 2; ++build) {
        const vd::Array metadata = metadataOf("shape");
        addresses.insert(addressOf(field(metadata, "objectAddress")));
        for (const char* list : {"methods", "operators"}) {
            const vd::Array row = field(metadata, list);
            for (size_t i = 0; i < row.getNumberOfElements(); ++i) {
                addresses.insert(addressOf(field(row, "objectAddress", i)));
            }
        }
    }
    EXPECT_EQ(count(probes[1]), before[1] + 1);
    EXPECT_EQ(count(probes[2]), before[2] + 1);
    for (Address a : addresses) {
        release(a);
    }
    for (size_t i = 0; i < probes.size(); ++i) {
        EXPECT_EQ(count(probes[i]), before[i]) << probes[i];
    }
}

TEST_F(ClassMetadata, CacheAndTheSmallerCommands) {
    // pyGetClassMetaData always builds: a bound method is a new object each
    // time, so its address changes.
    const vd::Array first = metadataOf("shape");
    const vd::Array second = metadataOf("shape");
    const auto build = [](const vd::Array& m) {
        const vd::Array methods = field(m, "methods");
        for (size_t i = 0; i < methods.getNumberOfElements(); ++i) {
            if (textOf(field(methods, "name", i)) == "build") {
                return addressOf(field(methods, "objectAddress", i));
            }
        }
        return Address{0};
    };
    EXPECT_NE(build(first), build(second));
    EXPECT_EQ(textOf(call("ClearMetadataMap")), "success");

    // An object's own attributes, in insertion order, all readable and
    // writable; no __dict__ gives an empty row with the three fields.
    exec("class Plain: pass\nplain = Plain()\nplain.b = 1\nplain.a = property()");
    const vd::Array attributes = call("pyGetClassProperties", {addressArray(eval("plain"))});
    ASSERT_EQ(attributes.getNumberOfElements(), 2u);
    EXPECT_EQ(textOf(field(attributes, "name", 0)), "b");
    EXPECT_EQ(textOf(field(attributes, "name", 1)), "a");
    EXPECT_EQ(logicalsOf(field(attributes, "setAccess", 1)), (std::vector<bool>{true}));
    const vd::Array none = call("pyGetClassProperties", {addressArray(eval("3"))});
    EXPECT_EQ(none.getDimensions(), (std::vector<size_t>{1, 0}));
    EXPECT_EQ(fieldNames(none), (std::vector<std::string>{"name", "getAccess", "setAccess"}));

    EXPECT_TRUE(truthOf(call("pyInspectFast", {addressArray(eval("Shape")), chars("isclass")})));
    EXPECT_FALSE(truthOf(call("pyInspectFast", {addressArray(eval("shape")), chars("isclass")})));
    EXPECT_THROW(call("pyInspectFast", {addressArray(eval("shape")), chars("isnothing")}),
                 std::exception);
    EXPECT_TRUE(errorOccurred());
}
