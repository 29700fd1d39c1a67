// Class metadata as the host builds classes from it: members found without
// running them, classified in order, signatures, operators, caching, and
// the references that the structure retains.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "support/session.h"

using namespace vxtest;

namespace {

struct ClassMetadata : SessionTest {
    ClassMetadata()
        : SessionTest(
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
              "shape = Shape()\n") {}
};

vd::Array metadataOf(const std::string& expression) {
    return callOn("pyGetClassMetaData", expression);
}

using Strings = std::vector<std::optional<std::string>>;
using Names = std::vector<std::string>;

// The type names of one argument of method `i` of a row.
Strings typesOf(const vd::Array& methods, size_t i, size_t argument) {
    return stringsOf(valuesOf<vd::Array>(field(methods, "argTypes", i)).at(argument));
}

}  // namespace

TEST_F(ClassMetadata, DescribesAUserClassWithoutRunningItsMembers) {
    const vd::Array metadata = metadataOf("shape");
    EXPECT_EQ(fieldNames(metadata),
              (Names{"objectAddress", "name", "moduleName", "docstring", "bases", "collections",
                     "arrayType", "builtintype", "properties", "methods", "operators"}));
    EXPECT_EQ(shown(metadata, {"name", "moduleName", "docstring", "bases", "collections",
                               "arrayType", "builtintype"}),
              "CHAR 1x5: Shape | CHAR 1x6: shapes | CHAR 1x8: A shape. | "
              "VELTRA_STRING 1x1: py.shapes.Base | LOGICAL 1x5: 0 0 0 0 0 | LOGICAL 1x2: 0 0 | "
              "VELTRA_STRING 1x0:");
    EXPECT_EQ(strOf(addressOf(field(metadata, "objectAddress"))), "<class 'shapes.Shape'>");

    // Properties: the getter that raises never ran; access follows fget/fset;
    // a slot reads and writes. Neither the nested class nor a plain value
    // is a member the host shows.
    const vd::Array properties = field(metadata, "properties");
    EXPECT_EQ(fieldNames(properties), (Names{"name", "getAccess", "setAccess"}));
    const auto access = [&](const std::string& name) {
        return shown(properties, {"getAccess", "setAccess"}, entryNamed(properties, name).value());
    };
    EXPECT_EQ(access("area"), "LOGICAL 1x1: 1 | LOGICAL 1x1: 0");
    EXPECT_EQ(access("label"), "LOGICAL 1x1: 0 | LOGICAL 1x1: 1");
    EXPECT_EQ(access("slot"), "LOGICAL 1x1: 1 | LOGICAL 1x1: 1");
    const vd::Array methods = field(metadata, "methods");
    for (const char* skipped : {"Nested", "count"}) {
        EXPECT_FALSE(entryNamed(properties, skipped)) << skipped;
        EXPECT_FALSE(entryNamed(methods, skipped)) << skipped;
    }

    // Methods in dir order; the override wins; static only where it is.
    const Names names = namesOf(methods);
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    const auto method = [&](const std::string& name) { return entryNamed(methods, name).value(); };
    for (const auto& [name, isStatic] :
         {std::pair{"make", true}, std::pair{"build", true}, std::pair{"overridden", false},
          std::pair{"inherited", false}}) {
        EXPECT_EQ(valueOf<bool>(field(methods, "static", method(name))), isStatic) << name;
    }
    const Address overridden = addressOf(field(methods, "objectAddress", method("overridden")));
    EXPECT_EQ(strOf(invoke(overridden, {addressOf(field(metadata, "objectAddress"))})), "shape")
        << "the bound member of the subclass, not the base's";
    EXPECT_EQ(textOf(field(methods, "docstring", method("overridden"))), "");
    EXPECT_FALSE(errorOccurred());
}

TEST_F(ClassMetadata, SignaturesAndAnnotations) {
    const vd::Array methods = field(metadataOf("shape"), "methods");
    const auto entry = [&](const std::string& name) { return entryNamed(methods, name).value(); };
    const auto signature = [&](size_t i) {
        return shown(methods,
                     {"argNames", "numArgsDefault", "numArgsNoDefault", "varargs", "kwargs"}, i);
    };
    EXPECT_EQ(signature(entry("defaults")),
              "VELTRA_STRING 1x3: self a b | UINT64 1x1: 1 | UINT64 1x1: 2 | LOGICAL 1x1: 1 | "
              "LOGICAL 1x1: 1");
    // kwargs through kwonlyargs.
    EXPECT_EQ(signature(entry("keyword_only")),
              "VELTRA_STRING 1x2: self a | UINT64 1x1: 0 | UINT64 1x1: 2 | LOGICAL 1x1: 0 | "
              "LOGICAL 1x1: 1");

    // Sets are sorted by byte order, upper case first; text annotations are
    // split at '|'; an annotation without __name__ gives no type, and the
    // other arguments' cells keep their places.
    const size_t annotated = entry("annotated");
    EXPECT_EQ(shown(methods, {"argNames", "argTypes"}, annotated),
              "VELTRA_STRING 1x6: self x y z w v | CELL 1x6:");
    const std::vector<Strings> types{{}, {"int"}, {"None", "int"}, {"a", "b"}, {}, {}};
    for (size_t argument = 0; argument < types.size(); ++argument) {
        EXPECT_EQ(typesOf(methods, annotated, argument), types[argument]) << argument;
    }

    // Union objects through typing.get_args; names outside ASCII kept.
    const size_t unions = entry("unions");
    EXPECT_EQ(typesOf(methods, unions, 1), (Strings{"int", "str"}));
    EXPECT_EQ(typesOf(methods, unions, 2), (Strings{"NoneType", "int"}));
    const vd::Array grosse = valuesOf<vd::Array>(field(methods, "argTypes", unions)).at(3);
    EXPECT_EQ(*valueOf<vd::VELTRAString>(grosse), u"Gr\u00f6\u00dfe");

    // A static method keeps its names but takes anything; one without
    // arguments has a single missing name and no type cells.
    EXPECT_EQ(shown(methods, {"argNames", "varargs"}, entry("make")),
              "VELTRA_STRING 1x2: a b | LOGICAL 1x1: 1");
    EXPECT_EQ(shown(methods, {"argNames", "argTypes"}, entry("nothing")),
              "VELTRA_STRING 1x1: <missing> | CELL 1x0:");
    EXPECT_FALSE(errorOccurred());
}

TEST_F(ClassMetadata, OperatorsFromOperatorModuleInTableOrder) {
    const vd::Array metadata = metadataOf("shape");
    const vd::Array operators = field(metadata, "operators");
    EXPECT_EQ(namesOf(operators), (Names{"plus", "eq", "ge", "gt", "le", "lt", "ne"}));
    EXPECT_EQ(strOf(addressOf(field(operators, "objectAddress", 0))), "<built-in function add>");
    // The operator module's functions have no signature: the host may pass anything.
    EXPECT_EQ(shown(operators, {"varargs", "argNames"}),
              "LOGICAL 1x1: 1 | VELTRA_STRING 1x1: <missing>");
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

TEST_F(ClassMetadata, BuiltinLibraryAndOddClasses) {
    const auto isStatic = [](const vd::Array& metadata, const std::string& name) {
        const vd::Array methods = field(metadata, "methods");
        return valueOf<bool>(field(methods, "static", entryNamed(methods, name).value()));
    };
    // dict.fromkeys is static through its __self__; str.join is not.
    EXPECT_TRUE(isStatic(metadataOf("{}"), "fromkeys"));
    const vd::Array str = metadataOf("'text'");
    EXPECT_FALSE(isStatic(str, "join"));
    EXPECT_EQ(shown(str, {"builtintype", "moduleName"}),
              "VELTRA_STRING 1x1: str | CHAR 1x8: builtins");
    EXPECT_EQ(show(field(metadataOf("True"), "builtintype")), "VELTRA_STRING 1x1: bool");

    exec("class Stack(list): pass\nclass Callable:\n    def __call__(self): pass");
    EXPECT_EQ(show(field(metadataOf("Stack()"), "collections")), "LOGICAL 1x5: 0 1 1 0 0");
    EXPECT_EQ(show(field(metadataOf("Callable()"), "collections")), "LOGICAL 1x5: 1 0 0 0 0");
    EXPECT_EQ(show(field(metadataOf("__import__('array').array('d')"), "arrayType")),
              "LOGICAL 1x2: 1 1");

    // NumPy and pandas classes, as the host meets them every day.
    const vd::Array ndarray = metadataOf("__import__('numpy').zeros(2)");
    EXPECT_EQ(textOf(field(ndarray, "moduleName")), "numpy");
    EXPECT_TRUE(valuesOf<bool>(field(ndarray, "arrayType"))[1]);
    const vd::Array frame = metadataOf("__import__('pandas').DataFrame({'a': [1]})");
    for (const auto& [metadata, properties, methods] :
         {std::tuple{ndarray, "shape", "reshape"}, std::tuple{frame, "columns", "to_numpy"}}) {
        EXPECT_TRUE(entryNamed(field(metadata, "properties"), properties));
        EXPECT_TRUE(entryNamed(field(metadata, "methods"), methods));
    }

    // A module and a docstring that cannot be read are empty text.
    exec(
        "class Meta(type):\n"
        "    @property\n"
        "    def __doc__(cls): raise RuntimeError('no doc')\n"
        "class Odd(metaclass=Meta): pass\n"
        "Odd.__module__ = None\n");
    EXPECT_EQ(shown(metadataOf("Odd()"), {"moduleName", "docstring"}), "CHAR 1x0: | CHAR 1x0:");
    EXPECT_FALSE(errorOccurred());
}

TEST_F(ClassMetadata, EveryRetainedAddressIsTheHostsToRelease) {
    // Not the operator module's functions: start-up's module descriptions
    // hold those addresses already.
    const std::vector<std::string> probes{"Shape", "Shape.__dict__['__add__']",
                                          "Shape.__dict__['overridden']"};
    const std::vector<long long> before = pythonRefcounts(probes);
    // Plain functions keep their address from build to build, and the
    // registry holds one reference for each; bound methods (a classmethod,
    // the class's own __init_subclass__) are new objects each time.
    std::set<Address> addresses;
    for (int build = 0; build < 2; ++build) {
        const vd::Array metadata = metadataOf("shape");
        addresses.insert(addressOf(field(metadata, "objectAddress")));
        for (const char* list : {"methods", "operators"}) {
            for (Address address : addressesOf(field(metadata, list))) {
                addresses.insert(address);
            }
        }
    }
    EXPECT_EQ(pythonRefcount(probes[1]), before[1] + 1);
    EXPECT_EQ(pythonRefcount(probes[2]), before[2] + 1);
    for (Address a : addresses) {
        release(a);
    }
    EXPECT_EQ(pythonRefcounts(probes), before);
}

TEST_F(ClassMetadata, CacheAndTheSmallerCommands) {
    // pyGetClassMetaData always builds: a bound method is a new object each
    // time, so its address changes.
    const auto build = [](const vd::Array& metadata) {
        const vd::Array methods = field(metadata, "methods");
        return addressOf(field(methods, "objectAddress", entryNamed(methods, "build").value()));
    };
    EXPECT_NE(build(metadataOf("shape")), build(metadataOf("shape")));

    // An object's own attributes, in insertion order, all readable and
    // writable; no __dict__ gives an empty row with the three fields.
    exec("class Plain: pass\nplain = Plain()\nplain.b = 1\nplain.a = property()");
    const vd::Array attributes = callOn("pyGetClassProperties", "plain");
    EXPECT_EQ(namesOf(attributes), (Names{"b", "a"}));
    EXPECT_EQ(shown(attributes, {"getAccess", "setAccess"}, 1), "LOGICAL 1x1: 1 | LOGICAL 1x1: 1");
    const vd::Array none = callOn("pyGetClassProperties", "3");
    EXPECT_EQ(none.getDimensions(), (std::vector<size_t>{1, 0}));
    EXPECT_EQ(fieldNames(none), (Names{"name", "getAccess", "setAccess"}));

    EXPECT_TRUE(truthOf(callOn("pyInspectFast", "Shape", {chars("isclass")})));
    EXPECT_FALSE(truthOf(callOn("pyInspectFast", "shape", {chars("isclass")})));
    EXPECT_THROW(callOn("pyInspectFast", "shape", {chars("isnothing")}), std::exception);
    EXPECT_TRUE(errorOccurred());
}
