// Reference counts below the commands' registry: every lookup gives a
// reference of its own (where the interpreter only lends one too), and
// nothing that the bridge does on the way leaks or steals one.
#include <functional>
#include <utility>
#include <vector>

#include "python_helpers.h"

namespace pylnk_core::testing {
namespace {

using namespace api;

using BridgeReferenceTest = PythonTest;

// Each lookup gives a reference of its own: dropping it gives back exactly
// what it took.
TEST_F(BridgeReferenceTest, LookupsReturnReferencesOfTheirOwn) {
    run("class Thing:\n    pass\n"
        "item = Thing()\nholder = (item,)\nbox = {'key': item}\nThing.attribute = item\n");
    PyHolder item = evaluate("item");
    PyHolder key = evaluate("'key'");
    const std::vector<std::function<PyHolder()>> lookups = {
        [] { return sequence::pyGetItem(evaluate("holder").get(), 0); },
        [&] { return mapping::pyMappingGetItem(evaluate("box").get(), key.get()); },
        [] { return object::pyGetMember(evaluate("Thing").get(), "attribute"); },
        [] { return object::pyGetMember(evaluate("Thing").get(), evaluate("'attribute'").get()); },
        [] { return fetch::fetch(u"__main__.item"); }};
    for (std::size_t i = 0; i < lookups.size(); ++i) {
        SCOPED_TRACE("lookup " + std::to_string(i));
        const long before = refcount(item.get());
        {
            PyHolder found = lookups[i]();
            ASSERT_EQ(found.get(), item.get());
            EXPECT_EQ(refcount(item.get()), before + 1);
        }
        EXPECT_EQ(refcount(item.get()), before);
    }
}

// Dropping a borrowed singleton as if it were owned would soon free it, which
// the interpreter answers by ending the process.
TEST_F(BridgeReferenceTest, SingletonsAndModulesComeWithAReference) {
    PyHolder sys = module::pyCreateModule(u"sys");
    const long moduleBefore = refcount(sys.get());
    for (int i = 0; i < 100000; ++i) {
        PyHolder none = primitive::pyCreateNone();
        PyHolder flag = primitive::pyCreateBool(i % 2 == 0);
        PyHolder again = module::pyCreateModule(u"sys");
        PyHolder builtins = module::pyCreateBuiltinsModule();
    }
    // The import shortcut may keep one reference of its own to a module it
    // has handed out; a lost or leaked reference per call shows as thousands.
    EXPECT_GE(refcount(sys.get()), moduleBefore);
    EXPECT_LE(refcount(sys.get()), moduleBefore + 1);
}

TEST_F(BridgeReferenceTest, ContainersAndCallsTakeNoReferenceTheyKeep) {
    PyHolder value = evaluate("object()");
    PyHolder key = evaluate("'k'");
    const long before = refcount(value.get());
    PyHolder tuple = sequence::pyTupleCreate({value, value});
    PyHolder dict = mapping::pyCreateDict({{key, value}});
    PyHolder target = evaluate("type('T', (), {})()");
    object::pySetMember(target.get(), key.get(), value.get());
    mapping::pyMappingSetKey(dict.get(), primitive::pyCreateInt(1).get(), value.get());
    EXPECT_EQ(refcount(value.get()), before + 5);
    tuple.reset();
    dict.reset();
    target.reset();
    EXPECT_EQ(refcount(value.get()), before);

    PyHolder raiser = evaluate("lambda *args, **kwargs: 1 / 0");
    for (int i = 0; i < 5; ++i) {
        EXPECT_THROW(object::pyInvoke(raiser.get(), {value}, {{key, value}}), InternalPyException);
        exception::pyErrorClear();
    }
    EXPECT_EQ(refcount(value.get()), before);
}

}  // namespace
}  // namespace pylnk_core::testing
