// Buffer format text <-> host element type. Python-free, shared by every build
// of the extension.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include <foundation/veltradata.h>

namespace vxbuffer {

struct ElementFormat {
    const char* format;  // buffer-protocol format text
    std::size_t itemSize;
};

// The format under which arrays of this type are exported; nullopt for types
// that have none (char, complex integers, cells, structs, objects, ...).
std::optional<ElementFormat> formatOfType(foundation::veltradata::ArrayType type);

// The host type for a buffer's format and item size, or nullopt when there is
// none. Integers go by item size and signedness, so the native and the
// standard sizes of "l" both map; byte-order prefixes other than
// little-endian are refused.
std::optional<foundation::veltradata::ArrayType> typeOfFormat(std::string_view format,
                                                              std::size_t itemSize);

}  // namespace vxbuffer
