// Reference counts: every holder owns exactly one reference, and nothing that
// the bridge does on the way leaks or steals one.
#include <functional>
#include <utility>
#include <vector>

#include "python_fixture.h"

namespace pylnk_core::testing {
namespace {

using namespace api;

using BridgeReferenceTest = PythonTest;

TEST_F(BridgeReferenceTest, HolderFromAnAddressLeavesTheCountAsItFoundIt) {
    PyHolder list = evaluate("[1, 2]");
    const long before = refcount(list.get());
    {
        managed::pyAddReference(list.get());
        PyHolder fromAddress(list.get(), PyArrayReleaser());
        PyHolder copy = fromAddress;
        PyHolder again = holdReference(list.get());
        EXPECT_EQ(refcount(list.get()), before + 2);
    }
    EXPECT_EQ(refcount(list.get()), before);
}

// Each lookup gives a reference of its own: dropping it gives back exactly
// what it took.
TEST_F(BridgeReferenceTest, LookupsReturnReferencesOfTheirOwn) {
    run("class Thing:\n    pass\n"
        "item = Thing()\nholder = (item,)\nbox = {'key': item}\nThing.attribute = item\n");
    PyHolder item = evaluate("item");
    PyHolder key = evaluate("'key'");
    const std::vector<std::pair<const char*, std::function<PyHolder()>>> lookups = {
        {"pyGetItem", [] { return sequence::pyGetItem(evaluate("holder").get(), 0); }},
        {"pyMappingGetItem",
         [&] { return mapping::pyMappingGetItem(evaluate("box").get(), key.get()); }},
        {"pyGetMember", [] { return object::pyGetMember(evaluate("Thing").get(), "attribute"); }},
        {"pyGetMember by str",
         [] {
             PyHolder name = primitive::pyCreateString(std::u16string(u"attribute"));
             return object::pyGetMember(evaluate("Thing").get(), name.get());
         }},
        {"fetch", [] { return fetch::fetch(u"__main__.item"); }},
    };
    for (const auto& [name, lookup] : lookups) {
        SCOPED_TRACE(name);
        const long before = refcount(item.get());
        {
            PyHolder found = lookup();
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
    EXPECT_EQ(refcount(sys.get()), moduleBefore);
}

TEST_F(BridgeReferenceTest, TupleFilledItemByItemOwnsItsItems) {
    PyHolder tuple = sequence::pyTupleCreateSize(3);
    // Unset items read as None, so a partly filled tuple is a valid object.
    EXPECT_EQ(str(tuple.get()), "(None, None, None)");

    PyHolder value = evaluate("['payload']");
    const long before = refcount(value.get());
    sequence::pyTupleSetValue(tuple.get(), 0, value.get());
    sequence::pyTupleSetValue(tuple.get(), 2, primitive::pyCreateInt(7).get());
    EXPECT_EQ(refcount(value.get()), before + 1) << "the tuple takes one reference of its own";
    // Replacing an item drops the tuple's reference to the old one.
    sequence::pyTupleSetValue(tuple.get(), 0, value.get());
    EXPECT_EQ(refcount(value.get()), before + 1);

    // The host releases its value; the tuple's item lives on.
    python::pyArray* raw = value.get();
    value.reset();
    EXPECT_EQ(refcount(raw), 1);
    EXPECT_EQ(str(tuple.get()), "(['payload'], None, 7)");

    // A partly filled tuple releases what it holds.
    PyHolder other = evaluate("object()");
    const long otherBefore = refcount(other.get());
    sequence::pyTupleSetValue(sequence::pyTupleCreateSize(4).get(), 1, other.get());
    EXPECT_EQ(refcount(other.get()), otherBefore);
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
