#include "fl/filesystem.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "fl/i18n.h"

namespace {

namespace fs = std::filesystem;

std::u16string u(const fs::path& p) {
    return fl::i18n::to_ustring(p.string());
}

TEST(ChangeCurrentPath, EntersFoldersAndOtherwiseFailsWithoutThrowingOrMoving) {
    const fs::path start = fs::current_path();
    const fs::path root = fs::temp_directory_path() /
                          ("vx_cwd_" + std::to_string(::getpid()) + "_\xc3\xa9\xf0\x9f\x98\x80");
    fs::create_directories(root);
    std::ofstream(root / "file.txt") << "x";

    EXPECT_TRUE(fl::filesystem::change_current_path(u(root)));
    EXPECT_TRUE(fs::equivalent(fs::current_path(), root));
    const std::u16string bad[] = {
        u"",
        u(root / "no_such_folder"),
        u(root / "file.txt"),
        u(root.parent_path()) + u'\0' + u"x",  // cut at the NUL it would name a folder
        u(root.parent_path()) + u"/" + char16_t(0xD800),
    };
    for (const auto& path : bad) {
        EXPECT_FALSE(fl::filesystem::change_current_path(path)) << fl::i18n::to_string(path);
        EXPECT_TRUE(fs::equivalent(fs::current_path(), root));
    }
    EXPECT_TRUE(fl::filesystem::change_current_path(u".."));  // relative to the new folder
    EXPECT_TRUE(fs::equivalent(fs::current_path(), root.parent_path()));

    fs::current_path(start);
    fs::remove_all(root);
}

}  // namespace
