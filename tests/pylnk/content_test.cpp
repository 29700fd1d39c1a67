// The content of sequences, mappings, strings and buffers, one level deep:
// the reply forms (types, 1 by n shapes, field order), the element rules,
// and the failures that are answers rather than exceptions.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/conversion.h"

using namespace vxtest;

namespace {

using Strings = std::vector<std::string>;

struct Content : SessionTest {
    Content()
        : SessionTest(
              "import array, collections, types, numpy\n"
              "class FakeFloat:\n"
              "    __class__ = property(lambda self: float)\n"
              "    def __float__(self): raise ValueError('no float')\n") {}
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

TEST_F(Content, SequencesBecomeRowsOfResultsOrNumbers) {
    const vd::Array cell = callOn("pyConvertSequenceToCell", "(1.5, 'a', None)");
    EXPECT_EQ(show(cell), "CELL 1x3:");
    EXPECT_EQ(results(cell), "DOUBLE 1x1: 1.5 | str: a | str: None");
    EXPECT_EQ(show(callOn("pyConvertSequenceToCell", "[]")), "CELL 1x0:");

    // Numeric sequences keep each element's type and report the first failed read.
    const auto numeric = [](const std::string& expression) {
        const vd::Array result = callOn("pyConvertSequenceToNumericArray", expression);
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
    for (const auto& [expression, expected] :
         {std::pair{"[1.0, 2.0, FakeFloat(), 4.0]", "REAL INT64 1x1: 2 DOUBLE 0x0:"},
          std::pair{"(1, 2**64)", "REAL INT64 1x1: 1 DOUBLE 0x0:"}}) {
        EXPECT_EQ(numeric(expression), expected);
        EXPECT_FALSE(errorOccurred()) << expression;
    }

    // Text of lists and tuples element by element, of anything else as one.
    EXPECT_EQ(show(callOn("pyConvertToString", "[1, '\\u00e9t\\u00e9', None, b'x']")),
              "VELTRA_STRING 1x4: 1 \xc3\xa9t\xc3\xa9 None b'x'");
    EXPECT_EQ(show(callOn("pyConvertToString", "()")), "VELTRA_STRING 1x0:");
    EXPECT_EQ(show(callOn("pyConvertToString", "collections.deque([2**70])")),
              "VELTRA_STRING 1x1: deque([1180591620717411303424])");
}

TEST_F(Content, MappingsAsStructsAndAsDictionaryData) {
    // A struct stops at the first key that is no text.
    const vd::Array plain = callOn("pyConvertMappingToStruct", "{'a': 1.5, 2: 'x', 'c': 3}");
    EXPECT_EQ(fieldNames(plain), (Strings{"a", "VELTRA::Cell2Struct::NonStringFieldNames"}));
    EXPECT_EQ(result(field(plain, "a")), "DOUBLE 1x1: 1.5");
    EXPECT_EQ(field(plain, "VELTRA::Cell2Struct::NonStringFieldNames").getType(),
              vd::ArrayType::CHAR);

    EXPECT_EQ(fieldNames(callOn("pyConvertMappingToStruct",
                                "collections.OrderedDict([('z', 1), ('\\u00fc', 2)])")),
              (Strings{"z", "\xc3\xbc"}));

    // Dictionary data holds every item, text by value and the rest by address.
    for (const char* command : {"pyConvertMappingToDictionary", "pyDictGetData"}) {
        const vd::Array data = callOn(command, "{'a': 1.5, 2: 'x', 'c': [3]}");
        EXPECT_EQ(fieldNames(data),
                  (Strings{"VELTRAPyHost_pyKeyData", "VELTRAPyHost_pyValueData"}));
        EXPECT_EQ(results(field(data, "VELTRAPyHost_pyKeyData")),
                  "VELTRA_STRING 1x1: a | str: 2 | VELTRA_STRING 1x1: c")
            << command;
        EXPECT_EQ(results(field(data, "VELTRAPyHost_pyValueData")),
                  "DOUBLE 1x1: 1.5 | VELTRA_STRING 1x1: x | str: [3]")
            << command;
    }
    const vd::Array empty = callOn("pyDictGetData", "types.MappingProxyType({})");
    EXPECT_EQ(show(field(empty, "VELTRAPyHost_pyKeyData")), "CELL 1x0:");
}

TEST_F(Content, TextEndsAtNulNumbersCopiedWhole) {
    EXPECT_EQ(show(callOn("pyStringGetString", "'ab\\x00cd'")), "CHAR 1x2: ab");
    EXPECT_EQ(vd::CharArray(callOn("pyStringGetString", "'caf\\u00e9'")).toUTF16(), u"caf\u00e9");

    const vd::Array texts =
        call("pyStringGetStringArray", {structOf({{"second", addressArray(eval("'\\U0001F600'"))},
                                                  {"first", addressArray(eval("'x'"))}})});
    EXPECT_EQ(fieldNames(texts), (Strings{"second", "first"}));
    EXPECT_EQ(vd::CharArray(field(texts, "second")).toUTF16(), u"\U0001F600");
    EXPECT_EQ(textOf(field(texts, "first")), "x");

    EXPECT_EQ(show(callOn("pyGetBytes", "b'a\\x00\\xffz'")), "UINT8 1x4: 97 0 255 122");
    EXPECT_EQ(show(callOn("pyGetBytes", "b''")), "UINT8 1x0:");

    // Numeric data is copied into a row of the format's type.
    exec("source = array.array('d', [1.5, -2.0])");
    const vd::Array doubles = callOn("pyNumericConversion", "source");
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
        EXPECT_EQ(show(callOn("pyNumericConversion", expression)), expected);
    }

    // No numeric data, or a format without a host type: a stored exception
    // that names the type or the format, and no Python error left set.
    for (const auto& [expression, named] :
         {std::pair{"[1.0, 2.0]", "'list'"}, std::pair{"numpy.zeros(2, dtype=bool)", "'?'"},
          std::pair{"numpy.zeros(2, dtype=complex)", "'Z'"},
          std::pair{"numpy.arange(6.0)[::2]", "contiguous"},
          std::pair{"numpy.arange(3, dtype='>i2')", "byte order"}}) {
        EXPECT_THAT(
            failureOf<std::invalid_argument>([&] { callOn("pyNumericConversion", expression); }),
            ::testing::HasSubstr(named));
        EXPECT_FALSE(errorOccurred()) << expression;
    }
}
