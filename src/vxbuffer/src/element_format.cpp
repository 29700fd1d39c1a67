#include "element_format.h"

#include <array>
#include <bit>

namespace vxbuffer {

namespace vd = foundation::veltradata;
using vd::ArrayType;

// "@", "=" and "<" all mean little-endian here; a big-endian machine would need ">" and "!".
static_assert(std::endian::native == std::endian::little);

std::optional<ElementFormat> formatOfType(ArrayType type) {
    const vd::TypeDescription described = vd::describe(type);
    if (*described.bufferFormat == '\0') {
        return std::nullopt;
    }
    return ElementFormat{described.bufferFormat, described.elementSize};
}

namespace {

ArrayType integerType(bool isSigned, std::size_t itemSize) {
    switch (itemSize) {
        case 1:
            return isSigned ? ArrayType::INT8 : ArrayType::UINT8;
        case 2:
            return isSigned ? ArrayType::INT16 : ArrayType::UINT16;
        case 4:
            return isSigned ? ArrayType::INT32 : ArrayType::UINT32;
        default:
            return isSigned ? ArrayType::INT64 : ArrayType::UINT64;
    }
}

struct IntegerCode {
    char code;
    bool isSigned;
    std::size_t nativeSize;
    std::size_t standardSize;  // the size under "=" and "<"
};

// "c" is one byte of text: it has no host type of its own, so it reads as UINT8.
const std::array<IntegerCode, 13> kIntegerCodes{{
    {'b', true, 1, 1},
    {'B', false, 1, 1},
    {'c', false, 1, 1},
    {'h', true, 2, 2},
    {'H', false, 2, 2},
    {'i', true, 4, 4},
    {'I', false, 4, 4},
    {'l', true, sizeof(long), 4},
    {'L', false, sizeof(long), 4},
    {'q', true, 8, 8},
    {'Q', false, 8, 8},
    {'n', true, sizeof(std::ptrdiff_t), sizeof(std::ptrdiff_t)},
    {'N', false, sizeof(std::size_t), sizeof(std::size_t)},
}};

}  // namespace

std::optional<ArrayType> typeOfFormat(std::string_view format, std::size_t itemSize) {
    if (!format.empty() && (format[0] == '@' || format[0] == '=' || format[0] == '<')) {
        format.remove_prefix(1);
    }
    for (ArrayType type : vd::kArrayTypes) {
        const vd::TypeDescription described = vd::describe(type);
        if (*described.bufferFormat != '\0' && format == described.bufferFormat &&
            itemSize == described.elementSize) {
            return type;
        }
    }
    if (format.size() == 1) {
        for (const IntegerCode& entry : kIntegerCodes) {
            if (entry.code == format[0] &&
                (itemSize == entry.nativeSize || itemSize == entry.standardSize)) {
                return integerType(entry.isSigned, itemSize);
            }
        }
    }
    return std::nullopt;
}

}  // namespace vxbuffer
