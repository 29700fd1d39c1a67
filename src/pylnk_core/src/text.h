// Conversions between the text forms that meet at the bridge's edge.
#pragma once

#include <algorithm>
#include <boost/locale/encoding_utf.hpp>
#include <string>

namespace pylnk_core::detail {

// UTF-16 to UTF-8; an unpaired surrogate is dropped.
inline std::string toUtf8(const std::u16string& text) {
    if (std::all_of(text.begin(), text.end(), [](char16_t unit) { return unit < 0x80; })) {
        return std::string(text.begin(), text.end());  // names are mostly ASCII
    }
    return boost::locale::conv::utf_to_utf<char>(text);
}

// UTF-16 to the platform's wide text, for the interpreter's start-up settings.
inline std::wstring toWide(const std::u16string& text) {
    return boost::locale::conv::utf_to_utf<wchar_t>(text);
}

}  // namespace pylnk_core::detail
