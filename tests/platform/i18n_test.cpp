// UTF-16 and UTF-8 at their edges, and the current folder changed by a UTF-16
// path (the commands' tests cover only a plain folder and a missing one).
#include "fl/i18n.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "fl/filesystem.h"

namespace {

using fl::i18n::ConversionError;
namespace fs = std::filesystem;

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
}

// Each lone surrogate and each maximal ill-formed UTF-8 part becomes one
// U+FFFD; the strict forms throw instead.
TEST(Utf, IllFormedInputIsReplacedPerMaximalPartOrRejected) {
    const char16_t hi = 0xD800, lo = 0xDC00;
    const std::pair<std::u16string, std::string> utf16[] = {
        {u"a" + std::u16string(1, hi) + u"b",
         "a\xef\xbf\xbd"
         "b"},
        {u"end" + std::u16string(1, hi), "end\xef\xbf\xbd"},
        {{lo, hi}, "\xef\xbf\xbd\xef\xbf\xbd"},  // a pair in the wrong order: two lone ones
    };
    for (const auto& [wide, replaced] : utf16) {
        EXPECT_EQ(fl::i18n::to_string(wide), replaced);
        EXPECT_THROW(fl::i18n::to_string_strict(wide), ConversionError);
    }
    const std::pair<std::string, std::u16string> utf8[] = {
        {"a\x80z", u"a\ufffdz"},                            // stray continuation byte
        {"\xc0\xaf", u"\ufffd\ufffd"},                      // overlong
        {"\xe0\x80\xaf", u"\ufffd\ufffd\ufffd"},            // overlong
        {"ok\xe2\x82", u"ok\ufffd"},                        // truncated at the end
        {"\xf0\x9f\x98(", u"\ufffd("},                      // truncated in the middle
        {"\xed\xa0\x80", u"\ufffd\ufffd\ufffd"},            // encoded surrogate
        {"\xf4\x90\x80\x80", u"\ufffd\ufffd\ufffd\ufffd"},  // beyond U+10FFFF
    };
    for (const auto& [narrow, replaced] : utf8) {
        SCOPED_TRACE(testing::PrintToString(narrow));
        EXPECT_EQ(fl::i18n::to_ustring(narrow), replaced);
        EXPECT_THROW(fl::i18n::to_ustring_strict(narrow), ConversionError);
    }
}

TEST(ChangeCurrentPath, EntersFoldersByUtf16PathsAndOtherwiseFailsWithoutMoving) {
    const fs::path start = fs::current_path();
    const fs::path root = fs::temp_directory_path() /
                          ("vx_cwd_" + std::to_string(::getpid()) + "_\xc3\xa9\xf0\x9f\x98\x80");
    fs::create_directories(root);
    std::ofstream(root / "file.txt") << "x";
    const std::u16string folder = fl::i18n::to_ustring(root.string());
    const std::u16string parent = fl::i18n::to_ustring(root.parent_path().string());

    EXPECT_TRUE(fl::filesystem::change_current_path(folder));
    EXPECT_TRUE(fs::equivalent(fs::current_path(), root));
    // Cut at the NUL, the third would name a folder; the last is no text.
    for (const std::u16string& bad : {std::u16string(), folder + u"/file.txt",
                                      parent + u'\0' + u"x", parent + u"/" + char16_t(0xD800)}) {
        EXPECT_FALSE(fl::filesystem::change_current_path(bad)) << fl::i18n::to_string(bad);
        EXPECT_TRUE(fs::equivalent(fs::current_path(), root));
    }
    EXPECT_TRUE(fl::filesystem::change_current_path(u".."));  // relative to the new folder
    EXPECT_TRUE(fs::equivalent(fs::current_path(), root.parent_path()));

    fs::current_path(start);
    fs::remove_all(root);
}

}  // namespace
