// The content of sequences, mappings, strings and buffers, one level deep:
// the reply forms (types, 1 by n shapes, field order), the element rules,
// and the failures that are answers rather than exceptions.
#include <gtest/gtest.h>

#include <complex>
#include <cstdint>

#include "support/session.h"

using namespace vxtest;

namespace {

class Content : public ::testing::Test {
  protected:
    void SetUp() override {
        startSystemPython();
        exec(
            "import array, collections, types, numpy\n"
            "class FakeFloat:\n"
            "    __class__ = property(lambda self: float)\n"
            "    def __float__(self): raise ValueError('no float')\n");
    }
    static vd::Array of(const std::string& command, const std::string& expression) {
        return call(command, {addressArray(eval(expression))});
    }
};

using Shape = std::vector<size_t>;

const std::vector<std::string> kObjectResult{"object", "classProperties", "classMetadata",
                                             "scalarData"};

template <class T>
T valueOf(const vd::Array& array) {
    return vd::TypedArray<T>(array)[0];
}

template <class T>
std::vector<T> valuesOf(const vd::Array& array) {
    const vd::TypedArray<T> view(array);
    return std::vector<T>(view.begin(), view.end());
}

// The string result of a str key or value: its text, nothing retained.
void expectStringResult(const vd::Array& result, const std::string& text) {
    EXPECT_EQ(fieldNames(result), kObjectResult);
    EXPECT_EQ(valueOf<std::uint64_t>(field(result, "object")), 0u);
    EXPECT_EQ(textOf(field(result, "classMetadata")), "");
    EXPECT_EQ(stringsOf(field(result, "scalarData")),
              std::vector<std::optional<std::string>>{text});
}

std::string strOfResult(const vd::Array& result) {
    const Address object = addressOf(field(result, "object"));
    const std::string text = strOf(object);
    release(object);
    return text;
}

}  // namespace

TEST_F(Content, SequencesBecomeRowsOfObjectResultsInTheirOrder) {
    const vd::TypedArray<vd::Array> cell = of("pyConvertSequenceToCell", "(1.5, 'a', None)");
    ASSERT_EQ(cell.getDimensions(), (Shape{1, 3}));
    EXPECT_EQ(fieldNames(cell[0]), kObjectResult);
    EXPECT_EQ(valueOf<double>(field(cell[0], "scalarData")), 1.5);
    EXPECT_EQ(strOfResult(cell[1]), "a");
    EXPECT_EQ(strOfResult(cell[2]), "None");
    EXPECT_EQ(of("pyConvertSequenceToCell", "[]").getDimensions(), (Shape{1, 0}));
}

TEST_F(Content, NumericSequencesKeepEachElementsTypeAndReportTheFirstFailedRead) {
    const auto numeric = [](const std::string& expression) {
        const vd::Array result = of("pyConvertSequenceToNumericArray", expression);
        EXPECT_EQ(fieldNames(result),
                  (std::vector<std::string>{"complexity", "values", "exceptionPosition"}));
        return result;
    };
    const vd::Array real = numeric("[7, 2.5, True]");
    EXPECT_EQ(textOf(field(real, "complexity")), "REAL");
    EXPECT_EQ(stringsOf(field(real, "exceptionPosition")),
              (std::vector<std::optional<std::string>>{"NA"}));
    const vd::TypedArray<vd::Array> values = field(real, "values");
    ASSERT_EQ(values.getDimensions(), (Shape{1, 3}));
    EXPECT_EQ(valueOf<std::int64_t>(values[0]), 7);
    EXPECT_EQ(valueOf<double>(values[1]), 2.5);
    EXPECT_TRUE(valueOf<bool>(values[2])) << "a truth value, not an integer";

    // One complex element makes the whole sequence complex; nothing is widened.
    const vd::Array mixed = numeric("(-(2**63), 1-2j, 'text')");
    EXPECT_EQ(textOf(field(mixed, "complexity")), "COMPLEX");
    const vd::TypedArray<vd::Array> items = field(mixed, "values");
    EXPECT_EQ(valueOf<std::int64_t>(items[0]), INT64_MIN);
    EXPECT_EQ(valueOf<std::complex<double>>(items[1]), std::complex<double>(1, -2));
    EXPECT_EQ(textOf(items[2]), "") << "no number is the empty string, not a failure";

    EXPECT_EQ(field(numeric("[]"), "values").getDimensions(), (Shape{1, 0}));

    // A failed read: its place, no values, and no Python error left behind.
    for (const auto& [expression, place] :
         {std::pair{"[1.0, 2.0, FakeFloat(), 4.0]", 2}, std::pair{"(1, 2**64)", 1}}) {
        const vd::Array failed = numeric(expression);
        EXPECT_EQ(field(failed, "exceptionPosition").getType(), vd::ArrayType::INT64);
        EXPECT_EQ(valueOf<std::int64_t>(field(failed, "exceptionPosition")), place);
        EXPECT_EQ(field(failed, "values").getType(), vd::ArrayType::DOUBLE) << "left unassigned";
        EXPECT_FALSE(errorOccurred()) << expression;
    }
}

TEST_F(Content, TextOfListsTuplesAndSingleObjects) {
    const vd::Array list = of("pyConvertToString", "[1, '\\u00e9t\\u00e9', None, b'x']");
    EXPECT_EQ(list.getDimensions(), (Shape{1, 4}));
    EXPECT_EQ(stringsOf(list),
              (std::vector<std::optional<std::string>>{"1", "\xc3\xa9t\xc3\xa9", "None", "b'x'"}));
    EXPECT_EQ(of("pyConvertToString", "()").getDimensions(), (Shape{1, 0}));
    // Anything but an exact list or tuple is one string, its str.
    const vd::Array one = of("pyConvertToString", "collections.deque([2**70])");
    EXPECT_EQ(one.getDimensions(), (Shape{1, 1}));
    EXPECT_EQ(stringsOf(one),
              (std::vector<std::optional<std::string>>{"deque([1180591620717411303424])"}));
}

TEST_F(Content, MappingsToStructsStopAtTheFirstKeyThatIsNoText) {
    const vd::Array plain = of("pyConvertMappingToStruct", "{'a': 1.5, 2: 'x', 'c': 3}");
    EXPECT_EQ(fieldNames(plain),
              (std::vector<std::string>{"a", "VELTRA::Cell2Struct::NonStringFieldNames"}));
    EXPECT_EQ(valueOf<double>(field(field(plain, "a"), "scalarData")), 1.5);
    EXPECT_EQ(field(plain, "VELTRA::Cell2Struct::NonStringFieldNames").getType(),
              vd::ArrayType::CHAR);

    EXPECT_EQ(fieldNames(of("pyConvertMappingToStruct",
                            "collections.OrderedDict([('z', 1), ('\\u00fc', 2)])")),
              (std::vector<std::string>{"z", "\xc3\xbc"}));
}

TEST_F(Content, DictionaryDataHoldsEveryItemTextByValueAndTheRestByAddress) {
    for (const char* command : {"pyConvertMappingToDictionary", "pyDictGetData"}) {
        const vd::Array data = of(command, "{'a': 1.5, 2: 'x', 'c': [3]}");
        EXPECT_EQ(fieldNames(data),
                  (std::vector<std::string>{"VELTRAPyHost_pyKeyData", "VELTRAPyHost_pyValueData"}));
        const vd::TypedArray<vd::Array> keys = field(data, "VELTRAPyHost_pyKeyData");
        const vd::TypedArray<vd::Array> values = field(data, "VELTRAPyHost_pyValueData");
        ASSERT_EQ(keys.getDimensions(), (Shape{1, 3})) << command;
        ASSERT_EQ(values.getDimensions(), (Shape{1, 3})) << command;
        expectStringResult(keys[0], "a");
        EXPECT_EQ(strOfResult(keys[1]), "2");
        expectStringResult(keys[2], "c");
        EXPECT_EQ(valueOf<double>(field(values[0], "scalarData")), 1.5);
        expectStringResult(values[1], "x");
        EXPECT_EQ(strOfResult(values[2]), "[3]");
    }
    const vd::Array empty = of("pyDictGetData", "types.MappingProxyType({})");
    EXPECT_EQ(field(empty, "VELTRAPyHost_pyKeyData").getDimensions(), (Shape{1, 0}));
}

TEST_F(Content, StringsEndAtNulAndBytesKeepEveryByte) {
    EXPECT_EQ(textOf(of("pyStringGetString", "'ab\\x00cd'")), "ab");
    EXPECT_EQ(vd::CharArray(of("pyStringGetString", "'caf\\u00e9'")).toUTF16(), u"caf\u00e9");

    vd::StructArray request = vd::ArrayFactory().createStructArray({1, 1}, {"second", "first"});
    request[0]["second"] = addressArray(eval("'\\U0001F600'"));
    request[0]["first"] = addressArray(eval("'x'"));
    const vd::Array texts = call("pyStringGetStringArray", {request});
    EXPECT_EQ(fieldNames(texts), (std::vector<std::string>{"second", "first"}));
    EXPECT_EQ(vd::CharArray(field(texts, "second")).toUTF16(), u"\U0001F600");
    EXPECT_EQ(textOf(field(texts, "first")), "x");

    const vd::Array bytes = of("pyGetBytes", "b'a\\x00\\xffz'");
    EXPECT_EQ(bytes.getDimensions(), (Shape{1, 4}));
    EXPECT_EQ(valuesOf<std::uint8_t>(bytes), (std::vector<std::uint8_t>{'a', 0, 0xff, 'z'}));
    EXPECT_EQ(of("pyGetBytes", "b''").getDimensions(), (Shape{1, 0}));
}

TEST_F(Content, NumericDataIsCopiedIntoARowOfTheFormatsType) {
    const auto converted = [](const std::string& expression, vd::ArrayType type) {
        const vd::Array row = of("pyNumericConversion", expression);
        EXPECT_EQ(row.getType(), type) << expression;
        EXPECT_EQ(row.getDimensions()[0], 1u) << expression;
        return row;
    };
    exec("source = array.array('d', [1.5, -2.0])");
    const vd::Array doubles = converted("source", vd::ArrayType::DOUBLE);
    exec("source[0] = 9.0");
    EXPECT_EQ(valuesOf<double>(doubles), (std::vector<double>{1.5, -2.0})) << "a copy";
    EXPECT_EQ(
        valuesOf<std::int64_t>(converted("array.array('l', [-3, 1 << 40])", vd::ArrayType::INT64)),
        (std::vector<std::int64_t>{-3, std::int64_t{1} << 40}));
    EXPECT_EQ(valuesOf<std::uint64_t>(
                  converted("numpy.array([2**64 - 1], dtype=numpy.uint64)", vd::ArrayType::UINT64)),
              (std::vector<std::uint64_t>{UINT64_MAX}));
    converted("array.array('b', [-1])", vd::ArrayType::INT8);
    converted("array.array('f')", vd::ArrayType::SINGLE);
    // A matrix comes as one row in its own storage order.
    EXPECT_EQ(valuesOf<std::int16_t>(converted("numpy.arange(6, dtype=numpy.int16).reshape(2, 3)",
                                               vd::ArrayType::INT16)),
              (std::vector<std::int16_t>{0, 1, 2, 3, 4, 5}));

    // No numeric data, or a format without a host type: a stored exception
    // that names the type or the format, and no Python error left set.
    for (const auto& [expression, named] :
         {std::pair{"[1.0, 2.0]", "'list'"}, std::pair{"numpy.zeros(2, dtype=bool)", "'?'"},
          std::pair{"numpy.zeros(2, dtype=complex)", "'Z'"},
          std::pair{"numpy.arange(6.0)[::2]", "contiguous"},
          std::pair{"numpy.arange(3, dtype='>i2')", "byte order"}}) {
        try {
            of("pyNumericConversion", expression);
            ADD_FAILURE() << expression << " was converted";
        } catch (const std::invalid_argument& failure) {
            EXPECT_NE(std::string(failure.what()).find(named), std::string::npos) << failure.what();
        }
        EXPECT_FALSE(errorOccurred()) << expression;
    }
}
