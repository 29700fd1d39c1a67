#include "fl/i18n.h"

#include <cctype>

namespace fl::i18n {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool isSurrogate(char32_t c) {
    return c >= 0xD800 && c <= 0xDFFF;
}

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

std::string utf16ToUtf8(const std::u16string& in, bool replace) {
    std::string out;
    out.reserve(in.size());
    for (std::size_t i = 0; i < in.size(); ++i) {
        char32_t c = in[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < in.size() && in[i + 1] >= 0xDC00 &&
            in[i + 1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (in[i + 1] - 0xDC00);
            ++i;
        } else if (isSurrogate(c)) {
            if (!replace) {
                throw ConversionError("text holds a lone UTF-16 surrogate at position " +
                                      std::to_string(i));
            }
            c = kReplacement;
        }
        appendUtf8(out, c);
    }
    return out;
}

// Decodes one well-formed UTF-8 sequence at in[i]. Returns the number of bytes
// of the sequence, or, when it is ill-formed, 0 with bad set to the length of
// its maximal ill-formed part (at least 1), which is what one replacement
// character stands for.
std::size_t decodeUtf8(const std::string& in, std::size_t i, char32_t& c, std::size_t& bad) {
    const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(in[k]); };
    const unsigned char lead = byte(i);
    if (lead < 0x80) {
        c = lead;
        return 1;
    }
    std::size_t need;
    unsigned char lo = 0x80, hi = 0xBF;  // allowed range of the second byte
    if (lead >= 0xC2 && lead <= 0xDF) {
        need = 1;
        c = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        need = 2;
        c = lead & 0x0F;
        if (lead == 0xE0)
            lo = 0xA0;  // overlong
        if (lead == 0xED)
            hi = 0x9F;  // surrogates
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        need = 3;
        c = lead & 0x07;
        if (lead == 0xF0)
            lo = 0x90;  // overlong
        if (lead == 0xF4)
            hi = 0x8F;  // beyond U+10FFFF
    } else {
        bad = 1;
        return 0;
    }
    for (std::size_t k = 1; k <= need; ++k) {
        if (i + k >= in.size()) {
            bad = k;
            return 0;
        }
        const unsigned char b = byte(i + k);
        const bool ok = k == 1 ? (b >= lo && b <= hi) : (b >= 0x80 && b <= 0xBF);
        if (!ok) {
            bad = k;
            return 0;
        }
        c = (c << 6) | (b & 0x3F);
    }
    return need + 1;
}

std::u16string utf8ToUtf16(const std::string& in, bool replace) {
    std::u16string out;
    out.reserve(in.size());
    std::size_t i = 0;
    while (i < in.size()) {
        char32_t c = 0;
        std::size_t bad = 0;
        if (const std::size_t n = decodeUtf8(in, i, c, bad)) {
            appendUtf16(out, c);
            i += n;
            continue;
        }
        if (!replace) {
            throw ConversionError("text is not valid UTF-8 at byte " + std::to_string(i));
        }
        appendUtf16(out, kReplacement);
        i += bad;
    }
    return out;
}

}  // namespace

std::u16string to_ustring(const std::string& text) {
    return utf8ToUtf16(text, true);
}
std::string to_string(const std::u16string& text) {
    return utf16ToUtf8(text, true);
}
std::u16string to_ustring_strict(const std::string& text) {
    return utf8ToUtf16(text, false);
}
std::string to_string_strict(const std::u16string& text) {
    return utf16ToUtf8(text, false);
}

namespace detail {
void require_utf8(const std::string& encodingName) {
    std::string name;
    for (const char ch : encodingName) {
        if (ch != '-' && ch != '_') {
            name += static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
        }
    }
    if (!name.empty() && name != "utf8") {
        throw ConversionError("unsupported text encoding '" + encodingName +
                              "': only UTF-8 is provided");
    }
}
}  // namespace detail

}  // namespace fl::i18n
