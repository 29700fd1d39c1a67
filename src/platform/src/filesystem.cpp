#include "fl/filesystem.h"

#include <filesystem>
#include <system_error>

#include "fl/i18n.h"

namespace fl::filesystem {

bool change_current_path(const std::u16string& path) {
    // The system call would stop at a NUL and enter some other folder.
    if (path.empty() || path.find(u'\0') != std::u16string::npos) {
        return false;
    }
    std::string narrow;
    try {
        narrow = i18n::to_string_strict(path);
    } catch (const i18n::ConversionError&) {
        return false;
    }
    std::error_code error;
    std::filesystem::current_path(std::filesystem::path(narrow), error);
    return !error;
}

}  // namespace fl::filesystem
