// What the operations give where the commands do not reach: dotted names,
// exact builtin types, class dictionaries, UTF-16 edges, numeric arrays,
// dates, class names and comparisons.
#include <limits>

#include "python_helpers.h"

namespace pylnk_core::testing {
namespace {

using namespace api;

using BridgeValueTest = PythonTest;

TEST_F(BridgeValueTest, FetchResolvesBuiltinsClassAttributesAndSubmodulesOfAliases) {
    EXPECT_EQ(fetch::fetch(u"len").get(), evaluate("len").get());
    EXPECT_EQ(fetch::fetch(u"str.join").get(), evaluate("str.join").get());
    run("import sys, types\nalias = types.ModuleType('alias_parent')\n"
        "alias.email = __import__('email')\nsys.modules['alias_parent'] = alias\n");
    PyHolder charset = fetch::fetch(u"alias_parent.email.charset.Charset");
    EXPECT_EQ(type::pyTypeVXName(charset.get()), "py.email.charset.Charset");
    EXPECT_FALSE(exception::pyErrorOccurred());
}

TEST_F(BridgeValueTest, BuiltinTestsTakeTheExactTypeAndNoOldNames) {
    PyHolder one = evaluate("1");
    EXPECT_FALSE(primitive::pyIsInt(one.get())) << "the narrow path never applies";
    EXPECT_TRUE(object::pyIsBuiltin(one.get(), "int"));
    EXPECT_FALSE(object::pyIsBuiltin(evaluate("True").get(), "int"));
    EXPECT_FALSE(object::pyIsBuiltin(evaluate("type('L', (list,), {})()").get(), "list"));
    EXPECT_TRUE(type::pyTypeIsBuiltin(evaluate("bool").get(), "bool"));
    EXPECT_FALSE(type::pyTypeIsBuiltin(evaluate("str").get(), "unicode"));
    EXPECT_FALSE(type::pyTypeIsBuiltin(evaluate("int").get(), "long"));
}

TEST_F(BridgeValueTest, MappingItemsOfAClassDictionary) {
    run("class Sample:\n    first = 1\n    second = 2\n");
    PyHolder classDict = evaluate("Sample.__dict__");
    run("def public(items):\n    return [i for i in items if not i[0].startswith('__')]\n");
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

TEST_F(BridgeValueTest, NumericArraysCopyInAndShowTheirData) {
    double values[] = {1.5, -2.0, 3.25};
    PyHolder array = primitive::pyCreateNumericArray(sizeof values, 'd', values);
    EXPECT_TRUE(type::pyTypeIsNumericArray(object::pyGetType(array.get()).get()));
    values[0] = 0;  // the array holds a copy
    EXPECT_EQ(str(array.get()), "array('d', [1.5, -2.0, 3.25])");

    std::size_t bytes = 0;
    long itemSize = 0;
    char code = 0;
    void* data = nullptr;
    PyHolder matrix = evaluate("__import__('numpy').arange(6, dtype='<i2').reshape(2, 3)");
    primitive::pyNumericArrayGetData(matrix.get(), &bytes, &itemSize, &code, &data);
    EXPECT_EQ(std::make_tuple(bytes, itemSize, code), std::make_tuple(12ul, 2l, 'h'));
    // Neither strided data nor items in the other byte order can be read.
    for (const char* refused :
         {"__import__('numpy').arange(6)[::2]", "__import__('numpy').arange(6, dtype='>i2')"}) {
        EXPECT_THROW(primitive::pyNumericArrayGetData(evaluate(refused).get(), &bytes, &itemSize,
                                                      &code, &data),
                     InternalPyException)
            << refused;
        exception::pyErrorClear();
    }
    EXPECT_THROW(primitive::pyCreateNumericArray(7, 'd', values), InternalPyException);
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
    auto describe = [](const PyHolder& array) {
        return str(object::pyInvoke(evaluate("describe").get(), {array}, {}).get());
    };
    EXPECT_EQ(describe(primitive::pyCreateDatetime64(texts, 6, 2, dims)),
              "(2, 3) datetime64[ms] 2024-01-01T00:00:00.000 2024-01-02T03:04:05.006")
        << "filled in column-major order";
    double durations[] = {1000, std::numeric_limits<double>::quiet_NaN(), -500, 2, 0, 7};
    EXPECT_EQ(describe(primitive::pyCreateTimedelta64(durations, 6, 2, dims)),
              "(2, 3) timedelta64[ms] 1000 milliseconds NaT");
    durations[0] = 0.5;
    EXPECT_EQ(describe(primitive::pyCreateTimedelta64(durations, 6, 2, dims)),
              "(2, 3) timedelta64[us] 500 microseconds NaT");

    std::size_t place = 99;
    EXPECT_TRUE(type::pyEachObjTypeOfListIsDatetime(evaluate("[]").get(), place));
    EXPECT_EQ(place, 99u);
    run("import datetime\nnow = datetime.datetime(2020, 1, 1)\n");
    EXPECT_FALSE(type::pyEachObjTypeOfListIsDatetime(evaluate("(now, now, 3, now)").get(), place));
    EXPECT_EQ(place, 2u);
    EXPECT_TRUE(type::pyEachObjTypeOfListIsTimeDelta(evaluate("[now - now]").get(), place));
}

TEST_F(BridgeValueTest, ClassNamesCallsAndComparisons) {
    EXPECT_EQ(type::pyTypeVXName(evaluate("type(int | str)").get()), "py.types.UnionType");
    EXPECT_EQ(object::pyGetVXClassName(evaluate("__import__('datetime').timedelta()").get()),
              "py.datetime.timedelta");
    EXPECT_TRUE(type::pyTypeImplementsCollection(evaluate("list").get(), "MutableSequence"));
    EXPECT_FALSE(type::pyTypeImplementsCollection(evaluate("tuple").get(), "MutableSequence"));
    EXPECT_TRUE(type::pyTypeIsPandasSeries(evaluate("__import__('pandas').Series").get()));
    EXPECT_TRUE(object::pyInspect(evaluate("len"), "isbuiltin"));

    PyHolder join = evaluate("lambda *a, sep='-': sep.join(a)");
    EXPECT_EQ(str(object::pyInvoke(join.get(), {evaluate("'a'"), evaluate("'b'")},
                                   {{evaluate("'sep'"), evaluate("'+'")}})
                      .get()),
              "a+b");

    std::vector<PyHolder> arrays = {evaluate("__import__('numpy').array([1.0, float('nan')])"),
                                    evaluate("__import__('numpy').array([1.0, float('nan')])")};
    std::vector<std::pair<PyHolder, PyHolder>> none;
    EXPECT_FALSE(object::pyIsEqualNumpyArray(arrays, none));
    std::vector<std::pair<PyHolder, PyHolder>> equalNan = {
        {evaluate("'equal_nan'"), evaluate("True")}};
    EXPECT_TRUE(object::pyIsEqualNumpyArray(arrays, equalNan));
    EXPECT_EQ(object::pyGetVXClassName(object::pyIsEqualOperator(arrays, none).get()),
              "py.numpy.ndarray");
}

}  // namespace
}  // namespace pylnk_core::testing
