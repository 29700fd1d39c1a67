// What the operations give where the commands do not reach: dotted names,
// exact builtin types, class dictionaries, UTF-16 edges, numeric arrays,
// dates and class names.
#include <limits>

#include "python_helpers.h"

namespace pylnk_core::testing {
namespace {

using namespace api;

using BridgeValueTest = PythonTest;

TEST_F(BridgeValueTest, FetchResolvesBuiltinsAttributesSubmodules) {
    EXPECT_EQ(fetch::fetch(u"len").get(), evaluate("len").get());
    EXPECT_EQ(fetch::fetch(u"str.join").get(), evaluate("str.join").get());
    run("import sys, types\nalias = types.ModuleType('alias_parent')\n"
        "alias.email = __import__('email')\nsys.modules['alias_parent'] = alias\n");
    PyHolder charset = fetch::fetch(u"alias_parent.email.charset.Charset");
    EXPECT_EQ(type::pyTypeVXName(charset.get()), "py.email.charset.Charset");
    EXPECT_FALSE(exception::pyErrorOccurred());
}

TEST_F(BridgeValueTest, BuiltinTestsExactTypeAndClassNames) {
    PyHolder one = evaluate("1");
    EXPECT_FALSE(primitive::pyIsInt(one.get())) << "the narrow path never applies";
    EXPECT_TRUE(object::pyIsBuiltin(one.get(), "int"));
    EXPECT_FALSE(object::pyIsBuiltin(evaluate("True").get(), "int"));
    EXPECT_FALSE(object::pyIsBuiltin(evaluate("type('L', (list,), {})()").get(), "list"));
    EXPECT_TRUE(type::pyTypeIsBuiltin(evaluate("bool").get(), "bool"));
    EXPECT_FALSE(type::pyTypeIsBuiltin(evaluate("str").get(), "unicode"));
    EXPECT_FALSE(type::pyTypeIsBuiltin(evaluate("int").get(), "long"));
    EXPECT_EQ(type::pyTypeVXName(evaluate("type(int | str)").get()), "py.types.UnionType");
    EXPECT_EQ(object::pyGetVXClassName(evaluate("__import__('datetime').timedelta()").get()),
              "py.datetime.timedelta");
    EXPECT_TRUE(type::pyTypeImplementsCollection(evaluate("list").get(), "MutableSequence"));
    EXPECT_FALSE(type::pyTypeImplementsCollection(evaluate("tuple").get(), "MutableSequence"));
    EXPECT_TRUE(type::pyTypeIsPandasSeries(evaluate("__import__('pandas').Series").get()));
    EXPECT_TRUE(object::pyInspect(evaluate("len"), "isbuiltin"));
}

TEST_F(BridgeValueTest, MappingItemsOfAClassDictionary) {
    run("class Sample:\n    first = 1\n    second = 2\n"
        "def public(items):\n    return [i for i in items if not i[0].startswith('__')]\n");
    PyHolder classDict = evaluate("Sample.__dict__");
    PyHolder items = mapping::pyMappingGetItems(classDict.get());
    EXPECT_EQ(str(object::pyInvoke(evaluate("public").get(), {items}, {}).get()),
              "[('first', 1), ('second', 2)]");
    PyHolder key = primitive::pyCreateString(std::string("second"));
    EXPECT_EQ(str(mapping::pyMappingGetItem(classDict.get(), key.get()).get()), "2");
}

TEST_F(BridgeValueTest, TextKeepsCodePointsLoneSurrogatesAndNuls) {
    const std::u16string wide = u"caf\u00e9 \U0001F600";
    PyHolder text = primitive::pyCreateString(wide);
    EXPECT_EQ(object::get_ustring(text.get()), wide);
    EXPECT_EQ(sequence::pySequenceLength(text.get()), 6u) << "one item per code point";
    EXPECT_STREQ(object::pyGetChars(text.get()), "caf\xc3\xa9 \xf0\x9f\x98\x80");
    const std::u16string lone = {u'a', char16_t(0xD800), u'b', char16_t(0xDC00)};
    EXPECT_EQ(object::get_ustring(primitive::pyCreateString(lone).get()), lone);
    PyHolder bytes = evaluate("b'a\\x00b'");
    EXPECT_EQ(object::get_stdstring(bytes.get()), std::string("a\0b", 3));
    EXPECT_EQ(object::get_bytesview(bytes.get()), std::string_view("a\0b", 3));
    EXPECT_THROW(object::get_bytesview(evaluate("bytearray(b'a')").get()), InternalPyException);
    exception::pyErrorClear();
}

// The commands' tests read numeric data and refuse what cannot be read.
TEST_F(BridgeValueTest, NumericArraysCopyIn) {
    double values[] = {1.5, -2.0, 3.25};
    PyHolder array = primitive::pyCreateNumericArray(sizeof values, 'd', values);
    EXPECT_TRUE(type::pyTypeIsNumericArray(object::pyGetType(array.get()).get()));
    values[0] = 0;  // the array holds a copy
    EXPECT_EQ(str(array.get()), "array('d', [1.5, -2.0, 3.25])");
}

TEST_F(BridgeValueTest, DatesAndDurations) {
    std::vector<double> components = {2024, 2, 29, 10, 30, 15.5, 250.5};
    EXPECT_EQ(str(primitive::pyCreateDatetime(components, false).get()),
              "2024-02-29 10:30:15.750500");
    EXPECT_EQ(object::pyDatetimeGetTimezone(primitive::pyCreateDatetime(components, true).get()),
              "UTC");
    components[0] = std::numeric_limits<double>::quiet_NaN();
    EXPECT_THROW(primitive::pyCreateDatetime(components, false), InternalPyException);
    exception::pyErrorClear();
    EXPECT_EQ(str(primitive::pyCreateTimedelta(90061001.5).get()), "1 day, 1:01:01.001500");

    std::vector<std::string> texts = {
        "2024-01-01", "2024-01-02T03:04:05.006", "NaT", "2024-01-04", "2024-01-05", "2024-01-06"};
    const std::size_t dims[] = {2, 3};
    run("def describe(a):\n    return f'{a.shape} {a.dtype} {a[0, 0]} {a[1, 0]}'\n");
    EXPECT_EQ(str(object::pyInvoke(evaluate("describe").get(),
                                   {primitive::pyCreateDatetime64(texts, 6, 2, dims)}, {})
                      .get()),
              "(2, 3) datetime64[ms] 2024-01-01T00:00:00.000 2024-01-02T03:04:05.006")
        << "filled in column-major order";
}

}  // namespace
}  // namespace pylnk_core::testing
