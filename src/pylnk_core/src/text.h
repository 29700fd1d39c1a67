// Conversions between the text forms that meet at the bridge's edge.
#pragma once

#include <boost/locale/encoding_utf.hpp>
#include <string>

namespace pylnk_core::detail {

// UTF-16 to UTF-8; an unpaired surrogate is dropped.
inline std::string toUtf8(const std::u16string& text) {
    return boost::locale::conv::utf_to_utf<char>(text);
}

// UTF-16 to the platform's wide text, for the interpreter's start-up settings.
inline std::wstring toWide(const std::u16string& text) {
    return boost::locale::conv::utf_to_utf<wchar_t>(text);
}

}  // namespace pylnk_core::detail
