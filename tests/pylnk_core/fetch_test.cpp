// Resolving dotted names.
#include "python_fixture.h"

namespace pylnk_core::testing {
namespace {

using namespace api;

using BridgeFetchTest = PythonTest;

TEST_F(BridgeFetchTest, ResolvesModulesAttributesAndSubmodules) {
    ASSERT_EQ(textOf("'xml.dom.minidom' in __import__('sys').modules"), "False");
    const std::pair<const char16_t*, const char*> names[] = {
        {u"os.path.join", "__import__('os').path.join"},
        {u"collections.abc.Mapping", "__import__('collections.abc').abc.Mapping"},
        {u"len", "len"},
        {u"str.join", "str.join"},
    };
    for (const auto& [name, expected] : names) {
        SCOPED_TRACE(expected);
        EXPECT_EQ(fetch::fetch(name).get(), evaluate(expected).get());
    }
    EXPECT_TRUE(object::pyIsCallable(fetch::fetch(u"xml.dom.minidom.parseString").get()));
    // A module reached as an attribute gets its missing submodule imported.
    run("import sys, types\nalias = types.ModuleType('alias_parent')\n"
        "alias.email = __import__('email')\nsys.modules['alias_parent'] = alias\n");
    PyHolder charset = fetch::fetch(u"alias_parent.email.charset.Charset");
    EXPECT_EQ(type::pyTypeVXName(charset.get()), "py.email.charset.Charset");
    EXPECT_FALSE(exception::pyErrorOccurred());
}

TEST_F(BridgeFetchTest, MalformedNamesAndDeadEndsLeaveNoError) {
    for (const std::u16string bad : {u"", u".os", u"os.", u"os..path", u"os path", u"1os",
                                     u"os.path-x", u"os/path", u"o\xDC00s"}) {
        EXPECT_THROW(fetch::fetch(bad), fetch::BadPythonName);
        EXPECT_FALSE(exception::pyErrorOccurred());
    }
    run("import sys, types\nbroken = types.ModuleType('broken_on_read')\n"
        "broken.__getattr__ = lambda name: 1 / 0\nsys.modules['broken_on_read'] = broken\n");
    for (const char16_t* missing :
         {u"no_such_module_anywhere", u"no_such_module_anywhere.x", u"os.no_such_attribute",
          u"os.path.join.no_such_attribute", u"no_such_builtin", u"broken_on_read.x"}) {
        EXPECT_THROW(fetch::fetch(missing), fetch::SearchFailure);
        EXPECT_FALSE(exception::pyErrorOccurred());
    }
    try {
        fetch::fetch(u"broken_on_read.x");
    } catch (const fetch::SearchFailure& failure) {
        EXPECT_NE(std::string(failure.what()).find("ZeroDivisionError"), std::string::npos);
    }
}

}  // namespace
}  // namespace pylnk_core::testing
