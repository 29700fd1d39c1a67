// What the operations give: type tests, text, numbers, arrays, dates, names
// and comparisons.
#include <cstring>
#include <limits>

#include "python_fixture.h"

namespace pylnk_core::testing {
namespace {

using namespace api;

using BridgeValueTest = PythonTest;

TEST_F(BridgeValueTest, TypeTestsKeepBoolApartFromInt) {
    PyHolder one = evaluate("1");
    PyHolder yes = evaluate("True");
    EXPECT_TRUE(primitive::pyIsLong(one.get()));
    EXPECT_FALSE(primitive::pyIsLong(yes.get()));
    EXPECT_FALSE(primitive::pyIsInt(one.get())) << "the narrow path never applies";
    EXPECT_TRUE(object::pyIsBuiltin(one.get(), "int"));
    EXPECT_FALSE(object::pyIsBuiltin(yes.get(), "int")) << "exact type only";
    EXPECT_FALSE(object::pyIsBuiltin(evaluate("type('L', (list,), {})()").get(), "list"));
    EXPECT_TRUE(type::pyTypeIsBuiltin(evaluate("bool").get(), "bool"));
    EXPECT_FALSE(type::pyTypeIsBuiltin(evaluate("bool").get(), "int"));
    for (const char* missing : {"unicode", "long"}) {
        EXPECT_FALSE(type::pyTypeIsBuiltin(evaluate("str").get(), missing));
        EXPECT_FALSE(type::pyTypeIsBuiltin(evaluate("int").get(), missing));
        EXPECT_FALSE(exception::pyErrorOccurred());
    }
    PyHolder proxy = evaluate("type('C', (), {}).__dict__");
    EXPECT_TRUE(mapping::pyIsMapping(proxy.get()));
    EXPECT_FALSE(mapping::pyIsDict(proxy.get()));
    EXPECT_FALSE(mapping::pyIsMapping(evaluate("[1]").get()));
    EXPECT_FALSE(sequence::pyIsSequence(evaluate("{}").get()));
    EXPECT_TRUE(type::pyIsExcludedTypeForBuffer("bytes"));
    EXPECT_TRUE(type::pyIsExcludedTypeForBuffer("bytearray"));
    EXPECT_FALSE(type::pyIsExcludedTypeForBuffer("ndarray"));
}

TEST_F(BridgeValueTest, MappingItemsOfModuleAndClassDictionaries) {
    run("class Sample:\n    first = 1\n    second = 2\n    third = 3\n");
    PyHolder classDict = evaluate("Sample.__dict__");
    PyHolder items = mapping::pyMappingGetItems(classDict.get());
    std::vector<std::string> pairs;
    for (unsigned long long i = 0; i < sequence::pySequenceLength(items.get()); ++i) {
        PyHolder pair = sequence::pyGetItem(items.get(), i);
        std::string name = object::pyGetChars(sequence::pyGetItem(pair.get(), 0).get());
        if (name.rfind("__", 0) != 0) {
            pairs.push_back(name + "=" + str(sequence::pyGetItem(pair.get(), 1).get()));
        }
    }
    EXPECT_EQ(pairs, (std::vector<std::string>{"first=1", "second=2", "third=3"}));
    PyHolder key = primitive::pyCreateString(std::string("second"));
    EXPECT_EQ(str(mapping::pyMappingGetItem(classDict.get(), key.get()).get()), "2");

    PyHolder moduleDict = evaluate("__import__('sys').__dict__");
    EXPECT_EQ(sequence::pySequenceLength(mapping::pyMappingGetItems(moduleDict.get()).get()),
              sequence::pySequenceLength(moduleDict.get()));
}

TEST_F(BridgeValueTest, TextAndNumbersRoundTrip) {
    const std::u16string wide = u"caf\u00e9 \u6f22 \U0001F600";
    PyHolder text = primitive::pyCreateString(wide);
    EXPECT_EQ(object::get_ustring(text.get()), wide);
    EXPECT_EQ(sequence::pySequenceLength(text.get()), 8u) << "one item per code point";
    EXPECT_STREQ(object::pyGetChars(text.get()), "caf\xc3\xa9 \xe6\xbc\xa2 \xf0\x9f\x98\x80");
    const std::u16string lone = {u'a', char16_t(0xD800), u'b'};
    EXPECT_EQ(object::get_ustring(primitive::pyCreateString(lone).get()), lone);
    EXPECT_EQ(object::get_stdstring(evaluate("b'a\\x00b'").get()), std::string("a\0b", 3));

    EXPECT_EQ(str(primitive::pyCreateULong(std::numeric_limits<unsigned long long>::max()).get()),
              "18446744073709551615");
    EXPECT_EQ(str(primitive::pyCreateLong(std::numeric_limits<long long>::min()).get()),
              "-9223372036854775808");
    EXPECT_EQ(str(primitive::pyCreateComplex(1, -2).get()), "(1-2j)");
    EXPECT_TRUE(object::pyEqual(object::pyGetHash(evaluate("'key'").get()).get(),
                                evaluate("hash('key')").get()));
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
    primitive::pyNumericArrayGetData(array.get(), &bytes, &itemSize, &code, &data);
    EXPECT_EQ(bytes, sizeof values);
    EXPECT_EQ(itemSize, 8);
    EXPECT_EQ(code, 'd');
    EXPECT_EQ(static_cast<double*>(data)[2], 3.25);

    PyHolder matrix = evaluate("__import__('numpy').arange(6, dtype='>i2').reshape(2, 3)");
    primitive::pyNumericArrayGetData(matrix.get(), &bytes, &itemSize, &code, &data);
    EXPECT_EQ(std::make_tuple(bytes, itemSize, code), std::make_tuple(12ul, 2l, 'h'));
    EXPECT_THROW(
        primitive::pyNumericArrayGetData(evaluate("__import__('numpy').arange(6)[::2]").get(),
                                         &bytes, &itemSize, &code, &data),
        InternalPyException);
    exception::pyErrorClear();
    EXPECT_THROW(primitive::pyCreateNumericArray(7, 'd', values), InternalPyException);
    exception::pyErrorClear();
}

TEST_F(BridgeValueTest, DatesAndDurations) {
    std::vector<double> components = {2024, 2, 29, 10, 30, 15.5, 250.5};
    EXPECT_EQ(str(primitive::pyCreateDatetime(components, false).get()),
              "2024-02-29 10:30:15.750500");
    PyHolder utc = primitive::pyCreateDatetime(components, true);
    EXPECT_EQ(object::pyDatetimeGetTimezone(utc.get()), "UTC");
    EXPECT_EQ(object::pyDatetimeGetTimezone(
                  evaluate("__import__('datetime').datetime(2024, 1, 1, "
                           "tzinfo=__import__('zoneinfo').ZoneInfo('Europe/Paris'))")
                      .get()),
              "Europe/Paris");
    components[0] = std::numeric_limits<double>::quiet_NaN();
    EXPECT_THROW(primitive::pyCreateDatetime(components, false), InternalPyException);
    exception::pyErrorClear();
    EXPECT_EQ(str(primitive::pyCreateTimedelta(90061001.5).get()), "1 day, 1:01:01.001500");

    std::vector<std::string> texts = {
        "2024-01-01", "2024-01-02T03:04:05.006", "NaT", "2024-01-04", "2024-01-05", "2024-01-06"};
    const std::size_t dims[] = {2, 3};
    run("def describe(a, i, j):\n    return f'{a.shape} {a.dtype} {a[i, j]}'\n");
    PyHolder describe = evaluate("describe");
    auto at = [&](const PyHolder& array, long i, long j) {
        return str(object::pyInvoke(describe.get(),
                                    {array, primitive::pyCreateInt(i), primitive::pyCreateInt(j)},
                                    {})
                       .get());
    };
    PyHolder dates = primitive::pyCreateDatetime64(texts, 6, 2, dims);
    EXPECT_EQ(at(dates, 1, 0), "(2, 3) datetime64[ms] 2024-01-02T03:04:05.006")
        << "filled in column-major order";
    double durations[] = {1000, std::numeric_limits<double>::quiet_NaN(), -500, 2, 0, 7};
    EXPECT_EQ(at(primitive::pyCreateTimedelta64(durations, 6, 2, dims), 1, 0),
              "(2, 3) timedelta64[ms] NaT");
    durations[0] = 0.5;
    EXPECT_EQ(at(primitive::pyCreateTimedelta64(durations, 6, 2, dims), 0, 0),
              "(2, 3) timedelta64[us] 500 microseconds");

    std::size_t place = 99;
    EXPECT_TRUE(type::pyEachObjTypeOfListIsDatetime(evaluate("[]").get(), place));
    EXPECT_EQ(place, 99u);
    run("import datetime\nnow = datetime.datetime(2020, 1, 1)\n");
    EXPECT_FALSE(type::pyEachObjTypeOfListIsDatetime(evaluate("(now, now, 3, now)").get(), place));
    EXPECT_EQ(place, 2u);
    EXPECT_TRUE(type::pyEachObjTypeOfListIsTimeDelta(evaluate("[now - now]").get(), place));
}

TEST_F(BridgeValueTest, ClassNamesCallsAndComparisons) {
    EXPECT_EQ(type::pyTypeVXName(evaluate("list").get()), "py.list");
    EXPECT_EQ(type::pyTypeVXName(evaluate("__import__('numpy').datetime64").get()),
              "py.numpy.datetime64");
    EXPECT_EQ(type::pyTypeVXName(evaluate("type(int | str)").get()), "py.types.UnionType");
    EXPECT_EQ(object::pyGetVXClassName(evaluate("__import__('datetime').timedelta()").get()),
              "py.datetime.timedelta");
    EXPECT_TRUE(type::pyTypeImplementsCollection(evaluate("list").get(), "MutableSequence"));
    EXPECT_FALSE(type::pyTypeImplementsCollection(evaluate("tuple").get(), "MutableSequence"));
    EXPECT_TRUE(type::pyTypeIsPandasSeries(evaluate("__import__('pandas').Series").get()));

    PyHolder join = evaluate("lambda *a, sep='-': sep.join(a)");
    EXPECT_EQ(str(object::pyInvoke(join.get(), {evaluate("'a'"), evaluate("'b'")},
                                   {{evaluate("'sep'"), evaluate("'+'")}})
                      .get()),
              "a+b");
    EXPECT_EQ(str(object::pyInvoke(join.get(), evaluate("['x', 'y']").get(),
                                   evaluate("{'sep': ':'}").get())
                      .get()),
              "x:y");

    std::vector<PyHolder> numbers = {evaluate("1"), evaluate("1.0")};
    std::vector<std::pair<PyHolder, PyHolder>> none;
    EXPECT_EQ(str(object::pyIsEqualOperator(numbers, none).get()), "True");
    std::vector<PyHolder> arrays = {evaluate("__import__('numpy').array([1.0, float('nan')])"),
                                    evaluate("__import__('numpy').array([1.0, float('nan')])")};
    EXPECT_FALSE(object::pyIsEqualNumpyArray(arrays, none));
    std::vector<std::pair<PyHolder, PyHolder>> equalNan = {
        {evaluate("'equal_nan'"), evaluate("True")}};
    EXPECT_TRUE(object::pyIsEqualNumpyArray(arrays, equalNan));
    EXPECT_EQ(object::pyGetVXClassName(object::pyIsEqualOperator(arrays, none).get()),
              "py.numpy.ndarray");
    EXPECT_TRUE(object::pyInspect(evaluate("len"), "isbuiltin"));
}

TEST_F(BridgeValueTest, CapsulesThroughNestedAccessors) {
    APIAccessor outer;
    {
        APIAccessor inner;
        EXPECT_NE(inner->importCapsule(u"datetime.datetime_CAPI"), nullptr);
    }
    EXPECT_EQ(outer->importCapsule(u"datetime.no_such_capsule"), nullptr);
    EXPECT_TRUE(exception::pyErrorOccurred());
}

}  // namespace
}  // namespace pylnk_core::testing
