#include "element_format.h"

#include <array>
#include <bit>

namespace vxbuffer {

namespace vd = foundation::veltradata;
using vd::ArrayType;

// "@", "=" and "<" all mean little-endian here; a big-endian machine would need ">" and "!".
static_assert(std::endian::native == std::endian::little);

std::optional<ElementFormat> formatOfType(ArrayType type) {
    switch (type) {
        case ArrayType::LOGICAL:
            return ElementFormat{"?", 1};
        case ArrayType::DOUBLE:
            return ElementFormat{"d", 8};
        case ArrayType::SINGLE:
            return ElementFormat{"f", 4};
        case ArrayType::INT8:
            return ElementFormat{"b", 1};
        case ArrayType::UINT8:
            return ElementFormat{"B", 1};
        case ArrayType::INT16:
            return ElementFormat{"h", 2};
        case ArrayType::UINT16:
            return ElementFormat{"H", 2};
        case ArrayType::INT32:
            return ElementFormat{"i", 4};
        case ArrayType::UINT32:
            return ElementFormat{"I", 4};
        case ArrayType::INT64:
            return ElementFormat{"q", 8};
        case ArrayType::UINT64:
            return ElementFormat{"Q", 8};
        case ArrayType::COMPLEX_DOUBLE:
            return ElementFormat{"Zd", 16};
        case ArrayType::COMPLEX_SINGLE:
            return ElementFormat{"Zf", 8};
        default:
            return std::nullopt;
    }
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
    if (format == "?" && itemSize == 1) {
        return ArrayType::LOGICAL;
    }
    if (format == "f" && itemSize == 4) {
        return ArrayType::SINGLE;
    }
    if (format == "d" && itemSize == 8) {
        return ArrayType::DOUBLE;
    }
    if (format == "Zf" && itemSize == 8) {
        return ArrayType::COMPLEX_SINGLE;
    }
    if (format == "Zd" && itemSize == 16) {
        return ArrayType::COMPLEX_DOUBLE;
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
