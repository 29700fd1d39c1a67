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

namespace {

constexpr char32_t kReplacement = 0xFFFD;

void appendUtf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
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

void appendUtf16(std::u16string& out, char32_t c) {
    if (c < 0x10000) {
        out += static_cast<char16_t>(c);
    } else {
        c -= 0x10000;
        out += static_cast<char16_t>(0xD800 | (c >> 10));
        out += static_cast<char16_t>(0xDC00 | (c & 0x3FF));
    }
}

// Decodes the sequence at text[i]. Returns its length in bytes, or 0 when it
// is ill-formed, with `bad` set to the length of its maximal ill-formed part
// (at least 1): what one replacement character stands for. With
// `surrogates`, the three-byte form of a surrogate code is well formed.
std::size_t decodeUtf8(std::string_view text, std::size_t i, bool surrogates, char32_t& c,
                       std::size_t& bad) {
    const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
    const unsigned char lead = byte(i);
    if (lead < 0x80) {
        c = lead;
        return 1;
    }
    std::size_t need = 0;
    unsigned char lo = 0x80, hi = 0xBF;  // allowed range of the second byte
    if (lead >= 0xC2 && lead <= 0xDF) {
        need = 1, c = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        need = 2, c = lead & 0x0F;
        lo = lead == 0xE0 ? 0xA0 : lo;                 // overlong
        hi = lead == 0xED && !surrogates ? 0x9F : hi;  // surrogate codes
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        need = 3, c = lead & 0x07;
        lo = lead == 0xF0 ? 0x90 : lo;  // overlong
        hi = lead == 0xF4 ? 0x8F : hi;  // beyond U+10FFFF
    } else {
        bad = 1;
        return 0;
    }
    for (std::size_t k = 1; k <= need; ++k) {
        const bool ok = i + k < text.size() && byte(i + k) >= (k == 1 ? lo : 0x80) &&
                        byte(i + k) <= (k == 1 ? hi : 0xBF);
        if (!ok) {
            bad = k;
            return 0;
        }
        c = (c << 6) | (byte(i + k) & 0x3F);
    }
    return need + 1;
}

}  // namespace

std::string utf16ToUtf8(std::u16string_view text, IllFormedText policy) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t c = text[i];
        const bool high = c >= 0xD800 && c <= 0xDBFF;
        if (high && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (text[i + 1] - 0xDC00);
            ++i;
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            if (policy == IllFormedText::Throw) {
                throw InvalidTextException("The text holds a lone UTF-16 surrogate (code unit " +
                                           std::to_string(i) + ").");
            }
            c = policy == IllFormedText::Replace ? kReplacement : c;
        }
        appendUtf8(out, c);
    }
    return out;
}

std::u16string utf8ToUtf16(std::string_view text, IllFormedText policy) {
    std::u16string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        char32_t c = 0;
        std::size_t bad = 0;
        if (const std::size_t n = decodeUtf8(text, i, policy == IllFormedText::Keep, c, bad)) {
            appendUtf16(out, c);
            i += n;
        } else if (policy == IllFormedText::Replace) {
            appendUtf16(out, kReplacement);
            i += bad;
        } else {
            throw InvalidTextException("The text is not valid UTF-8 (byte " + std::to_string(i) +
                                       ").");
        }
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
