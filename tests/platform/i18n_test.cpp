#include "fl/i18n.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using fl::i18n::ConversionError;

TEST(Utf, EveryCodePointRoundTripsWithExactSequenceLengths) {
    std::u16string all;
    for (char32_t c = 0; c <= 0x10FFFF; ++c) {
        if (c >= 0xD800 && c <= 0xDFFF)
            continue;
        if (c < 0x10000) {
            all += static_cast<char16_t>(c);
        } else {
            all += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
            all += static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
        }
    }
    const std::string narrow = fl::i18n::to_string_strict(all);
    EXPECT_EQ(narrow.size(), 128u + 1920u * 2 + 61440u * 3 + 1048576u * 4);
    EXPECT_EQ(fl::i18n::to_ustring_strict(narrow), all);
    EXPECT_EQ(fl::i18n::to_string(u"\U0001F600\u20ac"), "\xf0\x9f\x98\x80\xe2\x82\xac");
}

TEST(Utf, LoneSurrogatesAreReplacedOrRejected) {
    const char16_t hi = 0xD800, lo = 0xDC00;
    EXPECT_EQ(fl::i18n::to_string(u"a" + std::u16string(1, hi) + u"b"),
              "a\xef\xbf\xbd"
              "b");
    EXPECT_EQ(fl::i18n::to_string(u"end" + std::u16string(1, hi)), "end\xef\xbf\xbd");
    // A pair in the wrong order is two lone surrogates.
    EXPECT_EQ(fl::i18n::to_string({lo, hi}), "\xef\xbf\xbd\xef\xbf\xbd");
    EXPECT_THROW(fl::i18n::to_string_strict({u'x', lo}), ConversionError);
}

TEST(Utf, IllFormedUtf8IsReplacedPerMaximalPartOrRejected) {
    const std::pair<std::string, std::u16string> cases[] = {
        {"a\x80z", u"a\ufffdz"},                            // stray continuation byte
        {"\xc0\xaf", u"\ufffd\ufffd"},                      // overlong
        {"\xe0\x80\xaf", u"\ufffd\ufffd\ufffd"},            // overlong
        {"ok\xe2\x82", u"ok\ufffd"},                        // truncated at the end
        {"\xf0\x9f\x98(", u"\ufffd("},                      // truncated in the middle
        {"\xed\xa0\x80", u"\ufffd\ufffd\ufffd"},            // encoded surrogate
        {"\xf4\x90\x80\x80", u"\ufffd\ufffd\ufffd\ufffd"},  // beyond U+10FFFF
    };
    for (const auto& [utf8, replaced] : cases) {
        SCOPED_TRACE(testing::PrintToString(utf8));
        EXPECT_EQ(fl::i18n::to_ustring(utf8), replaced);
        EXPECT_THROW(fl::i18n::to_ustring_strict(utf8), ConversionError);
    }
}

TEST(Utf, ConverterAppliesTheCodecvtItWasGiven) {
    using namespace fl::i18n;
    const std::u16string text = std::u16string(u"\U0001F600 ") + char16_t(0xDFFF);
    EXPECT_EQ(
        converter<codecvt_ustring_to_string>(codecvt_ustring_to_string("", true)).convert(text),
        "\xf0\x9f\x98\x80 \xef\xbf\xbd");
    converter<codecvt_ustring_to_string> strict(codecvt_ustring_to_string("UTF-8", false));
    EXPECT_THROW(strict.convert(text), ConversionError);
    EXPECT_EQ(converter<codecvt_string_to_ustring>(codecvt_string_to_ustring("utf8", true))
                  .convert("\xf0\x9f\x98\x80 \xff"),
              u"\U0001F600 \ufffd");
    EXPECT_THROW(codecvt_ustring_to_string("latin-1", true), ConversionError);
}

}  // namespace
