// Module metadata: how the entries of a module's __dict__ are sorted, the
// cache by module name with start-up's five entries, objects without a
// name, and the references that the structure retains.
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>

#include "support/session.h"

using namespace vxtest;

namespace {

using Strings = std::vector<std::optional<std::string>>;
using Names = std::vector<std::string>;

const char* const kModuleSource =
    "'Replaced below.'\n"
    "import os\n"
    "from collections import OrderedDict\n"
    "from math import sqrt\n"
    "class MyClass:\n"
    "    'Mine.'\n"
    "    def method(self, a): pass\n"
    "Alias = MyClass\n"
    "x = 1\n"
    "def f(a: int):\n"
    "    'Takes an int.'\n"
    "__doc__ = None\n";

// A module written to a folder of its own at the front of sys.path.
class ModuleMetadata : public ::testing::Test {
  protected:
    void SetUp() override {
        startSystemPython();
        folder_ = std::filesystem::temp_directory_path() /
                  ("vx_module_metadata_" + std::to_string(::getpid()));
        std::filesystem::create_directories(folder_);
        std::ofstream(folder_ / "vx_described.py") << kModuleSource;
        exec("import sys\nsys.path.insert(0, r'" + folder_.string() + "')");
    }

    void TearDown() override { std::filesystem::remove_all(folder_); }

    static Address importDescribed() {
        return addressOf(call("pyCreateModule", {chars("vx_described")}));
    }

    static vd::Array metadataOf(Address module) {
        return call("pyGetModuleMetaData", {addressArray(module)});
    }

    std::filesystem::path folder_;
};

bool listed(const vd::Array& metadata, const std::string& name) {
    for (const char* list : {"classes", "packageFunctions", "getterFunctions", "aliases"}) {
        if (entryNamed(field(metadata, list), name)) {
            return true;
        }
    }
    return false;
}

// Every address a module structure retained: the module, its entries, its
// classes and their members and operators.
std::set<Address> retainedBy(const vd::Array& metadata) {
    std::set<Address> addresses{addressOf(field(metadata, "objectAddress"))};
    const vd::Array classes = field(metadata, "classes");
    std::vector<vd::Array> rows{field(metadata, "packageFunctions"),
                                field(metadata, "getterFunctions"), field(metadata, "aliases"),
                                classes};
    for (size_t i = 0; i < classes.getNumberOfElements(); ++i) {
        rows.push_back(field(classes, "methods", i));
        rows.push_back(field(classes, "operators", i));
    }
    for (const vd::Array& row : rows) {
        for (Address address : addressesOf(row)) {
            addresses.insert(address);
        }
    }
    return addresses;
}

const Names kModuleFields{"objectAddress",   "name",    "moduleName",
                          "docstring",       "classes", "packageFunctions",
                          "getterFunctions", "aliases", "argTypes"};

}  // namespace

TEST_F(ModuleMetadata, StartUpDescribedFiveModules) {
    // What a module gains after start-up shows only in a new walk.
    const std::vector<std::string> warmed{"sys", "builtins", "importlib", "ctypes", "codecs"};
    exec(
        "import builtins, importlib, ctypes, codecs, libvxbuffer\n"
        "for m in (sys, builtins, importlib, ctypes, codecs, libvxbuffer):\n"
        "    m.vx_probe = 1\n");
    for (const std::string& name : warmed) {
        const Address module = eval(name);
        const vd::Array metadata = metadataOf(module);
        EXPECT_EQ(textOf(field(metadata, "name")), name);
        EXPECT_EQ(addressOf(field(metadata, "objectAddress")), module) << name;
        EXPECT_FALSE(listed(metadata, "vx_probe")) << name << " was not described at start-up";
    }
    EXPECT_TRUE(listed(metadataOf(eval("libvxbuffer")), "vx_probe"));

    const vd::Array builtins = metadataOf(eval("builtins"));
    EXPECT_EQ(fieldNames(builtins), kModuleFields);
    EXPECT_TRUE(entryNamed(field(builtins, "classes"), "int"));
    const vd::Array functions = field(builtins, "packageFunctions");
    EXPECT_EQ(field(functions, "argTypes", entryNamed(functions, "len").value()).getDimensions(),
              (std::vector<size_t>{1, 0}));
    EXPECT_FALSE(errorOccurred());
}

TEST_F(ModuleMetadata, SortsEntriesOfModulesAndLibraryModules) {
    const Address module = importDescribed();
    const vd::Array metadata = metadataOf(module);
    EXPECT_EQ(fieldNames(metadata), kModuleFields);
    EXPECT_EQ(addressOf(field(metadata, "objectAddress")), module);
    EXPECT_EQ(shown(metadata, {"name", "docstring"}), "CHAR 1x12: vx_described | CHAR 1x0:")
        << "__doc__ = None";

    // Dictionary order in each list; imported modules and the two entries
    // that describe the module itself are in none.
    const vd::Array functions = field(metadata, "packageFunctions");
    const vd::Array aliases = field(metadata, "aliases");
    const vd::Array classes = field(metadata, "classes");
    const vd::Array getters = field(metadata, "getterFunctions");
    EXPECT_EQ(namesOf(functions), (Names{"OrderedDict", "sqrt", "Alias", "f"}));
    EXPECT_EQ(namesOf(aliases), (Names{"OrderedDict", "Alias"}));
    EXPECT_EQ(namesOf(classes), (Names{"MyClass"}));
    EXPECT_EQ(fieldNames(functions), kModuleFields);
    EXPECT_EQ(fieldNames(aliases),
              (Names{"objectAddress", "name", "moduleName", "docstring", "bases"}));
    for (const char* name : {"os", "__name__", "__doc__"}) {
        EXPECT_FALSE(listed(metadata, name)) << name;
    }
    for (const char* name : {"x", "__file__", "__spec__"}) {
        EXPECT_TRUE(entryNamed(getters, name)) << name;
    }

    // A class from elsewhere: callable, and an alias with its module.
    EXPECT_EQ(shown(aliases, {"moduleName", "bases"}),
              "CHAR 1x11: collections | VELTRA_STRING 1x1: py.dict");
    EXPECT_EQ(addressOf(field(aliases, "objectAddress")),
              addressOf(field(functions, "objectAddress")));
    EXPECT_FALSE(textOf(field(aliases, "docstring")).empty());
    // The module's own class in full, and under a second name as an alias;
    // the class has one address.
    EXPECT_EQ(textOf(field(aliases, "moduleName", 1)), "vx_described");
    EXPECT_EQ(shown(classes, {"docstring", "moduleName"}),
              "CHAR 1x5: Mine. | CHAR 1x12: vx_described");
    EXPECT_TRUE(entryNamed(field(classes, "methods"), "method"));
    EXPECT_EQ(addressOf(field(classes, "objectAddress")),
              addressOf(field(aliases, "objectAddress", 1)));
    EXPECT_EQ(strOf(addressOf(field(classes, "objectAddress"))), "<class 'vx_described.MyClass'>");

    // Type names only for plain Python functions.
    const size_t f = entryNamed(functions, "f").value();
    EXPECT_EQ(shown(functions, {"docstring", "argTypes"}, f),
              "CHAR 1x13: Takes an int. | CELL 1x1:");
    EXPECT_EQ(stringsOf(valuesOf<vd::Array>(field(functions, "argTypes", f)).at(0)),
              (Strings{"int"}));
    EXPECT_EQ(show(field(functions, "argTypes", entryNamed(functions, "sqrt").value())),
              "CELL 1x0:");
    const size_t x = entryNamed(getters, "x").value();
    EXPECT_EQ(show(field(getters, "argTypes", x)), "CELL 1x0:");
    EXPECT_EQ(strOf(addressOf(field(getters, "objectAddress", x))), "1");
    EXPECT_FALSE(errorOccurred());

    // A library module.
    const vd::Array library = metadataOf(addressOf(call("pyCreateModule", {chars("fractions")})));
    const vd::Array libraryClasses = field(library, "classes");
    ASSERT_EQ(namesOf(libraryClasses), (Names{"Fraction"}));
    EXPECT_EQ(show(field(libraryClasses, "bases")), "VELTRA_STRING 1x1: py.numbers.Rational");
    EXPECT_TRUE(entryNamed(field(libraryClasses, "methods"), "limit_denominator"));
    EXPECT_TRUE(entryNamed(field(libraryClasses, "operators"), "plus"));
    EXPECT_EQ(namesOf(field(library, "aliases")), (Names{"Decimal"}));
    EXPECT_EQ(textOf(field(field(library, "aliases"), "moduleName")), "decimal");
    EXPECT_EQ(namesOf(field(library, "packageFunctions")), (Names{"Decimal"}));
    EXPECT_TRUE(entryNamed(field(library, "getterFunctions"), "__all__"));
    for (const char* imported : {"math", "numbers", "operator", "re", "sys"}) {
        EXPECT_FALSE(listed(library, imported)) << imported;
    }
    EXPECT_FALSE(textOf(field(library, "docstring")).empty());
}

TEST_F(ModuleMetadata, CachedByNameUntilImportedAgainOrCleared) {
    const Address module = importDescribed();
    const vd::Array first = metadataOf(module);
    exec("import vx_described\nvx_described.later = 2");
    const vd::Array second = metadataOf(module);
    EXPECT_EQ(retainedBy(second), retainedBy(first));
    EXPECT_FALSE(listed(second, "later")) << "a hit does not walk the module";

    // pyCreateModule of the name drops the entry: the next request walks.
    EXPECT_EQ(importDescribed(), module);
    const vd::Array third = metadataOf(module);
    EXPECT_TRUE(listed(third, "later"));
    exec("vx_described.after_clear = 3");
    EXPECT_FALSE(listed(metadataOf(module), "after_clear"));
    EXPECT_EQ(textOf(call("ClearMetadataMap")), "success");
    EXPECT_TRUE(listed(metadataOf(module), "after_clear"));
}

TEST_F(ModuleMetadata, EveryRetainedAddressIsTheHostsToRelease) {
    const Address module = importDescribed();
    exec("import vx_described as m");
    const std::vector<std::string> probes{"m.MyClass", "m.f", "m.MyClass.__dict__['method']"};
    const std::vector<long long> before = pythonRefcounts(probes);
    const std::set<Address> retained = retainedBy(metadataOf(module));
    // One registry reference for each function, however often it is listed;
    // the class is held by its bound classmethods too.
    EXPECT_EQ(pythonRefcount(probes[1]), before[1] + 1);
    EXPECT_EQ(pythonRefcount(probes[2]), before[2] + 1);
    for (Address address : retained) {
        release(address);
    }
    EXPECT_EQ(pythonRefcounts(probes), before);
}

TEST_F(ModuleMetadata, ObjectsWithoutANameAndFailedWalks) {
    // A module whose __name__ is gone: empty name, nothing cached, and its
    // class counts as an alias, since the module cannot be said to define it.
    exec(
        "import types\n"
        "nameless = types.ModuleType('nameless')\n"
        "exec('class Kept: pass\\ny = 2', nameless.__dict__)\n"
        "del nameless.__name__\n");
    const Address nameless = eval("nameless");
    const vd::Array first = metadataOf(nameless);
    EXPECT_EQ(shown(first, {"name", "classes"}), "CHAR 1x0: | STRUCT 1x0:");
    EXPECT_EQ(namesOf(field(first, "aliases")), (Names{"Kept"}));
    exec("nameless.z = 3");
    EXPECT_TRUE(listed(metadataOf(nameless), "z")) << "not cached";

    // An object that is no module: its __dict__ is walked all the same.
    exec("class Thing: pass\nthing = Thing()\nthing.a = 1");
    const vd::Array thing = metadataOf(eval("thing"));
    EXPECT_TRUE(field(thing, "name").isEmpty());
    EXPECT_EQ(namesOf(field(thing, "getterFunctions")), (Names{"a"}));
    EXPECT_FALSE(errorOccurred());

    // A failed walk answers with a stored exception and leaves the Python
    // error set; what it had registered is released, and the host's own
    // address of the object stays.
    exec("plain = object()");
    const Address plain = eval("plain");
    const long long plainBefore = pythonRefcount("plain");
    EXPECT_THROW(metadataOf(plain), std::exception) << "no __dict__";
    EXPECT_TRUE(errorOccurred());
    call("pyErrorClear");
    EXPECT_EQ(pythonRefcount("plain"), plainBefore);
    EXPECT_EQ(strOf(plain), strOf(eval("plain")));

    exec(
        "class NoClass:\n"
        "    @property\n"
        "    def __class__(self): raise RuntimeError('no class')\n"
        "broken = types.ModuleType('broken')\n"
        "exec('def g(): pass', broken.__dict__)\n"
        "broken.bad = NoClass()\n");
    const long long gBefore = pythonRefcount("broken.g");
    EXPECT_THROW(metadataOf(eval("broken")), std::exception);
    EXPECT_TRUE(errorOccurred());
    call("pyErrorClear");
    EXPECT_EQ(pythonRefcount("broken.g"), gBefore) << "g was retained, then given back";
    exec("del broken.bad");
    EXPECT_EQ(namesOf(field(metadataOf(eval("broken")), "packageFunctions")), (Names{"g"}))
        << "the failed walk cached nothing";
}
