// UTF-8 / UTF-16 conversion and type names.
#include <array>

#include "internal.h"

namespace foundation::veltradata {

std::string toString(ArrayType type) {
    static constexpr std::array<const char*, 33> names = {"UNKNOWN",
                                                          "LOGICAL",
                                                          "CHAR",
                                                          "VELTRA_STRING",
                                                          "DOUBLE",
                                                          "SINGLE",
                                                          "INT8",
                                                          "UINT8",
                                                          "INT16",
                                                          "UINT16",
                                                          "INT32",
                                                          "UINT32",
                                                          "INT64",
                                                          "UINT64",
                                                          "COMPLEX_DOUBLE",
                                                          "COMPLEX_SINGLE",
                                                          "COMPLEX_INT8",
                                                          "COMPLEX_UINT8",
                                                          "COMPLEX_INT16",
                                                          "COMPLEX_UINT16",
                                                          "COMPLEX_INT32",
                                                          "COMPLEX_UINT32",
                                                          "COMPLEX_INT64",
                                                          "COMPLEX_UINT64",
                                                          "CELL",
                                                          "STRUCT",
                                                          nullptr,
                                                          "VALUE_OBJECT",
                                                          "HANDLE_OBJECT_REF",
                                                          "ENUM",
                                                          "SPARSE_LOGICAL",
                                                          "SPARSE_DOUBLE",
                                                          "SPARSE_COMPLEX_DOUBLE"};
    const int value = static_cast<int>(type);
    if (value > 0 && value < static_cast<int>(names.size()) && names[value] != nullptr) {
        return names[value];
    }
    return value == 0 ? "UNKNOWN" : "UNKNOWN(" + std::to_string(value) + ")";
}

std::string utf16ToUtf8(std::u16string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t c = text[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
            text[i + 1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (text[i + 1] - 0xDC00);
            ++i;
        }
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {  // includes lone surrogates, kept as their own code
            out += static_cast<char>(0xE0 | (c >> 12));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (c >> 18));
            out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

std::u16string utf8ToUtf16(std::string_view text) {
    std::u16string out;
    out.reserve(text.size());
    auto fail = [&](std::size_t at) {
        throw InvalidTextException("The text is not valid UTF-8 (byte " + std::to_string(at) +
                                   ").");
    };
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        std::size_t length = 0;
        char32_t c = 0;
        char32_t minimum = 0;
        if (lead < 0x80) {
            out += static_cast<char16_t>(lead);
            ++i;
            continue;
        } else if ((lead & 0xE0) == 0xC0) {
            length = 2, c = lead & 0x1F, minimum = 0x80;
        } else if ((lead & 0xF0) == 0xE0) {
            length = 3, c = lead & 0x0F, minimum = 0x800;
        } else if ((lead & 0xF8) == 0xF0) {
            length = 4, c = lead & 0x07, minimum = 0x10000;
        } else {
            fail(i);
        }
        if (i + length > text.size()) {
            fail(i);
        }
        for (std::size_t k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80) {
                fail(i + k);
            }
            c = (c << 6) | (next & 0x3F);
        }
        if (c < minimum || c > 0x10FFFF) {
            fail(i);
        }
        if (c >= 0x10000) {
            c -= 0x10000;
            out += static_cast<char16_t>(0xD800 + (c >> 10));
            out += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
        } else {
            out += static_cast<char16_t>(c);
        }
        i += length;
    }
    return out;
}

namespace detail {

std::u16string asciiToUtf16(std::string_view text) {
    std::u16string out(text.size(), u'\0');
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte > 0x7F) {
            throw NonAsciiCharInInputDataException();
        }
        out[i] = static_cast<char16_t>(byte);
    }
    return out;
}

}  // namespace detail

std::string CharArray::toAscii() const {
    const char16_t* first = detail::ArrayAccess::data<char16_t>(*this);
    return utf16ToUtf8(std::u16string_view(first, first ? getNumberOfElements() : 0));
}

}  // namespace foundation::veltradata
