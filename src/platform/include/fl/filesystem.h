#pragma once

#include <string>

namespace fl::filesystem {

// Makes path the process's working folder. Returns false, and leaves the
// working folder as it was, when the path is empty, cannot be encoded, holds a
// NUL character, or names no folder that the process may enter.
bool change_current_path(const std::u16string& path);

}  // namespace fl::filesystem
