// Strings (missing versus empty, UTF-8, the ASCII check) and struct fields.
#include <gtest/gtest.h>

#include <list>
#include <string>
#include <vector>

#include "foundation/veltradata.h"

namespace {

using namespace foundation::veltradata;

class TextTest : public ::testing::Test {
  protected:
    ArrayFactory factory;
};

TEST_F(TextTest, MissingStringIsToldFromEmptyAndStringRangesAcceptOnlyAscii) {
    TypedArray<VELTRAString> s = factory.createArray<VELTRAString>({1, 3});
    s[0][1] = u"";
    s[0][2] = "caf\xC3\xA9";         // UTF-8
    VELTRAString missing = s[0][0];  // as every new element
    VELTRAString empty = s[0][1];
    EXPECT_TRUE(empty.has_value() && empty->empty());
    EXPECT_NE(missing, empty);
    EXPECT_EQ(std::u16string(s[0][2]), u"caf\u00e9");
    EXPECT_EQ(std::string(s[0][2]), "caf\xC3\xA9");

    // Reading a missing element as text throws; assignment keeps it missing.
    EXPECT_THROW((void)std::u16string(s[0][0]), MissingStringException);
    EXPECT_THROW((void)std::string(s[0][0]), MissingStringException);
    VELTRAString target = u"old";
    target = s[0][0];
    EXPECT_FALSE(target.has_value());
    s[0][1] = std::nullopt;
    EXPECT_FALSE(VELTRAString(s[1]).has_value());

    Array untyped = s;
    EXPECT_THROW(untyped[0].operator std::u16string(), MissingStringException);
    EXPECT_EQ(untyped[2].operator std::u16string(), u"caf\u00e9");

    std::vector<std::string> ascii{"alpha", "", "x y"};
    TypedArray<VELTRAString> made = factory.createArray({1, 3}, ascii.begin(), ascii.end());
    EXPECT_EQ(std::u16string(made[0][0]), u"alpha");
    EXPECT_EQ(std::u16string(made[0][1]), u"");

    // Any input range, refused by its first byte outside ASCII.
    std::list<std::string> bad{"fine", std::string("bad\x80"), std::string(1, '\xFF')};
    EXPECT_THROW(factory.createArray({1, 3}, bad.begin(), bad.end()),
                 NonAsciiCharInInputDataException);
    EXPECT_THROW(factory.createArray({1, 2}, ascii.begin(), ascii.end()),
                 InvalidDimensionsException);
    EXPECT_THROW(factory.createArray({1, 4}, ascii.begin(), ascii.end()),
                 InvalidDimensionsException);
}

TEST_F(TextTest, NarrowTextIsUtf8BothWays) {
    // U+00E9, U+20AC and U+1F600 (a surrogate pair).
    const std::u16string wide = u"a\u00e9\u20ac\U0001F600";
    const std::string narrow = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
    CharArray fromWide = factory.createCharArray(wide);
    EXPECT_EQ(fromWide.toAscii(), narrow);
    CharArray fromNarrow = factory.createCharArray(narrow);
    EXPECT_EQ(fromNarrow.toUTF16(), wide);
    EXPECT_EQ(fromNarrow.getDimensions(), (std::vector<std::size_t>{1, wide.size()}));

    // A lone surrogate survives the round trip.
    const std::u16string lone = u"x\xD800y";
    EXPECT_EQ(factory.createCharArray(factory.createCharArray(lone).toAscii()).toUTF16(), lone);

    EXPECT_EQ(factory.createCharArray("").getDimensions(), (std::vector<std::size_t>{1, 0}));
    EXPECT_THROW(factory.createCharArray(std::string("\xC3")), InvalidTextException);
    EXPECT_THROW(factory.createCharArray(std::string("\xC0\x80")), InvalidTextException);
    EXPECT_THROW(factory.createScalar(static_cast<const char*>(nullptr)), InvalidArgumentException);
}

TEST_F(TextTest, StructFieldsKeepDeclaredOrderAndAcceptAnyName) {
    const std::vector<std::string> names{"zeta", "0", "1", "a::b", "", "alpha"};
    StructArray s = factory.createStructArray({1, 2}, names);
    std::vector<std::string> seen;
    for (const auto& field : s.getFieldNames()) {
        seen.push_back(field);
    }
    EXPECT_EQ(seen, names);

    // Fresh fields hold 0 by 0 DOUBLE arrays.
    Array fresh = s[0][1]["a::b"];
    EXPECT_EQ(fresh.getType(), ArrayType::DOUBLE);
    EXPECT_EQ(fresh.getDimensions(), (std::vector<std::size_t>{0, 0}));

    s[0]["1"] = factory.createScalar(true);
    s[1]["a::b"] = factory.createCharArray("v");
    EXPECT_EQ(CharArray(s[0][1]["a::b"]).toAscii(), "v");
    s[0]["zeta"] = s[1]["a::b"];
    EXPECT_EQ(CharArray(s[0]["zeta"]).toAscii(), "v");

    const StructElement& element = *s.begin();
    EXPECT_EQ(element.getFieldNames(), names);
    EXPECT_EQ(element["1"].getType(), ArrayType::LOGICAL);

    // Field names are matched exactly.
    EXPECT_THROW(s[0]["Alpha"] = Array(), InvalidFieldNameException);
    EXPECT_THROW((void)Array(s[0]["missing"]), InvalidFieldNameException);
    EXPECT_THROW((void)element["missing"], InvalidFieldNameException);
    EXPECT_THROW(factory.createStructArray({1, 1}, {"a", "b", "a"}), InvalidFieldNameException);

    // Struct elements move between arrays with the same fields only.
    StructArray twin = factory.createStructArray({1, 1}, names);
    twin[0] = StructElement(s[0][1]);
    EXPECT_EQ(CharArray(twin[0]["a::b"]).toAscii(), "v");
    StructArray other = factory.createStructArray({1, 1}, {"q"});
    EXPECT_THROW(other[0] = StructElement(s[0]), InvalidFieldNameException);
}

}  // namespace
