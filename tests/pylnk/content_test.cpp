// The content of sequences, mappings, strings and buffers, one level deep:
// the reply forms (types, 1 by n shapes, field order), the element rules,
// and the failures that are answers rather than exceptions.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/session.h"

using namespace vxtest;

namespace {

using Strings = std::vector<std::string>;

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

const Strings kObjectResult{"object", "classProperties", "classMetadata", "scalarData"};

// An object result as its copied value, or as "str: <str of its object>"
// for an object the host holds (released here); a string's result holds
// nothing and no class description.
std::string result(const vd::Array& cell) {
    EXPECT_EQ(fieldNames(cell), kObjectResult);
    const Address object = addressOf(field(cell, "object"));
    if (object == 0) {
        EXPECT_EQ(textOf(field(cell, "classMetadata")), "");
        return show(field(cell, "scalarData"));
    }
    const vd::Array value = field(cell, "scalarData");
    const std::string text = value.isEmpty() ? "str: " + strOf(object) : show(value);
    release(object);
    return text;
}

std::string results(const vd::Array& cells) {
    std::string text;
    for (const vd::Array& cell : valuesOf<vd::Array>(cells)) {
        text += (text.empty() ? "" : " | ") + result(cell);
    }
    return text;
}

}  // namespace

TEST_F(Content, SequencesBecomeRowsOfObjectResultsInTheirOrder) {
    const vd::Array cell = of("pyConvertSequenceToCell", "(1.5, 'a', None)");
    EXPECT_EQ(show(cell), "CELL 1x3:");
    EXPECT_EQ(results(cell), "DOUBLE 1x1: 1.5 | str: a | str: None");
    EXPECT_EQ(show(of("pyConvertSequenceToCell", "[]")), "CELL 1x0:");
}

TEST_F(Content, NumericSequencesKeepEachElementsTypeAndReportTheFirstFailedRead) {
    const auto numeric = [](const std::string& expression) {
        const vd::Array result = of("pyConvertSequenceToNumericArray", expression);
        EXPECT_EQ(fieldNames(result), (Strings{"complexity", "values", "exceptionPosition"}));
        std::string text = textOf(field(result, "complexity")) + " " +
                           show(field(result, "exceptionPosition")) + " " +
                           show(field(result, "values"));
        if (field(result, "values").getType() == vd::ArrayType::CELL) {
            for (const vd::Array& value : valuesOf<vd::Array>(field(result, "values"))) {
                text += " | " + show(value);
            }
        }
        return text;
    };
    // A truth value stays one, not an integer; one complex element makes the
    // whole sequence complex, and nothing is widened; no number is the empty
    // string, not a failure.
    EXPECT_EQ(numeric("[7, 2.5, True]"),
              "REAL VELTRA_STRING 1x1: NA CELL 1x3: | INT64 1x1: 7 | DOUBLE 1x1: 2.5 | "
              "LOGICAL 1x1: 1");
    EXPECT_EQ(numeric("(-(2**63), 1-2j, 'text')"),
              "COMPLEX VELTRA_STRING 1x1: NA CELL 1x3: | INT64 1x1: -9223372036854775808 | "
              "COMPLEX_DOUBLE 1x1: (1,-2) | VELTRA_STRING 1x1: ");
    EXPECT_EQ(numeric("[]"), "REAL VELTRA_STRING 1x1: NA CELL 1x0:");

    // A failed read: its place, values left unassigned, and no Python error
    // left behind.
    EXPECT_EQ(numeric("[1.0, 2.0, FakeFloat(), 4.0]"), "REAL INT64 1x1: 2 DOUBLE 0x0:");
    EXPECT_FALSE(errorOccurred());
    EXPECT_EQ(numeric("(1, 2**64)"), "REAL INT64 1x1: 1 DOUBLE 0x0:");
    EXPECT_FALSE(errorOccurred());
}

TEST_F(Content, TextOfListsTuplesAndSingleObjects) {
    EXPECT_EQ(show(of("pyConvertToString", "[1, '\\u00e9t\\u00e9', None, b'x']")),
              "VELTRA_STRING 1x4: 1 \xc3\xa9t\xc3\xa9 None b'x'");
    EXPECT_EQ(show(of("pyConvertToString", "()")), "VELTRA_STRING 1x0:");
    // Anything but an exact list or tuple is one string, its str.
    EXPECT_EQ(show(of("pyConvertToString", "collections.deque([2**70])")),
              "VELTRA_STRING 1x1: deque([1180591620717411303424])");
}

TEST_F(Content, MappingsToStructsStopAtTheFirstKeyThatIsNoText) {
    const vd::Array plain = of("pyConvertMappingToStruct", "{'a': 1.5, 2: 'x', 'c': 3}");
    EXPECT_EQ(fieldNames(plain), (Strings{"a", "VELTRA::Cell2Struct::NonStringFieldNames"}));
    EXPECT_EQ(result(field(plain, "a")), "DOUBLE 1x1: 1.5");
    EXPECT_EQ(field(plain, "VELTRA::Cell2Struct::NonStringFieldNames").getType(),
              vd::ArrayType::CHAR);

    EXPECT_EQ(fieldNames(of("pyConvertMappingToStruct",
                            "collections.OrderedDict([('z', 1), ('\\u00fc', 2)])")),
              (Strings{"z", "\xc3\xbc"}));
}

TEST_F(Content, DictionaryDataHoldsEveryItemTextByValueAndTheRestByAddress) {
    for (const char* command : {"pyConvertMappingToDictionary", "pyDictGetData"}) {
        const vd::Array data = of(command, "{'a': 1.5, 2: 'x', 'c': [3]}");
        EXPECT_EQ(fieldNames(data),
                  (Strings{"VELTRAPyHost_pyKeyData", "VELTRAPyHost_pyValueData"}));
        EXPECT_EQ(results(field(data, "VELTRAPyHost_pyKeyData")),
                  "VELTRA_STRING 1x1: a | str: 2 | VELTRA_STRING 1x1: c")
            << command;
        EXPECT_EQ(results(field(data, "VELTRAPyHost_pyValueData")),
                  "DOUBLE 1x1: 1.5 | VELTRA_STRING 1x1: x | str: [3]")
            << command;
    }
    const vd::Array empty = of("pyDictGetData", "types.MappingProxyType({})");
    EXPECT_EQ(show(field(empty, "VELTRAPyHost_pyKeyData")), "CELL 1x0:");
}

TEST_F(Content, StringsEndAtNulAndBytesKeepEveryByte) {
    EXPECT_EQ(show(of("pyStringGetString", "'ab\\x00cd'")), "CHAR 1x2: ab");
    EXPECT_EQ(vd::CharArray(of("pyStringGetString", "'caf\\u00e9'")).toUTF16(), u"caf\u00e9");

    vd::StructArray request = vd::ArrayFactory().createStructArray({1, 1}, {"second", "first"});
    request[0]["second"] = addressArray(eval("'\\U0001F600'"));
    request[0]["first"] = addressArray(eval("'x'"));
    const vd::Array texts = call("pyStringGetStringArray", {request});
    EXPECT_EQ(fieldNames(texts), (Strings{"second", "first"}));
    EXPECT_EQ(vd::CharArray(field(texts, "second")).toUTF16(), u"\U0001F600");
    EXPECT_EQ(textOf(field(texts, "first")), "x");

    EXPECT_EQ(show(of("pyGetBytes", "b'a\\x00\\xffz'")), "UINT8 1x4: 97 0 255 122");
    EXPECT_EQ(show(of("pyGetBytes", "b''")), "UINT8 1x0:");
}

TEST_F(Content, NumericDataIsCopiedIntoARowOfTheFormatsType) {
    exec("source = array.array('d', [1.5, -2.0])");
    const vd::Array doubles = of("pyNumericConversion", "source");
    exec("source[0] = 9.0");
    EXPECT_EQ(show(doubles), "DOUBLE 1x2: 1.5 -2") << "a copy";
    // A matrix comes as one row in its own storage order.
    const std::pair<const char*, const char*> converted[] = {
        {"array.array('l', [-3, 1 << 40])", "INT64 1x2: -3 1099511627776"},
        {"numpy.array([2**64 - 1], dtype=numpy.uint64)", "UINT64 1x1: 18446744073709551615"},
        {"array.array('b', [-1])", "INT8 1x1: -1"},
        {"array.array('f')", "SINGLE 1x0:"},
        {"numpy.arange(6, dtype=numpy.int16).reshape(2, 3)", "INT16 1x6: 0 1 2 3 4 5"},
    };
    for (const auto& [expression, expected] : converted) {
        EXPECT_EQ(show(of("pyNumericConversion", expression)), expected);
    }

    // No numeric data, or a format without a host type: a stored exception
    // that names the type or the format, and no Python error left set.
    for (const auto& [expression, named] :
         {std::pair{"[1.0, 2.0]", "'list'"}, std::pair{"numpy.zeros(2, dtype=bool)", "'?'"},
          std::pair{"numpy.zeros(2, dtype=complex)", "'Z'"},
          std::pair{"numpy.arange(6.0)[::2]", "contiguous"},
          std::pair{"numpy.arange(3, dtype='>i2')", "byte order"}}) {
        EXPECT_THAT(
            failureOf<std::invalid_argument>([&] { of("pyNumericConversion", expression); }),
            ::testing::HasSubstr(named));
        EXPECT_FALSE(errorOccurred()) << expression;
    }
}
