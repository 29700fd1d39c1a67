#include "fl/i18n.h"

#include <foundation/veltradata.h>

#include <cctype>

namespace fl::i18n {
namespace {

namespace vd = foundation::veltradata;

// The project's one transcoder, with the strict form's failure reported as
// this layer's exception.
template <class Convert>
auto strictly(Convert convert) {
    try {
        return convert(vd::IllFormedText::Throw);
    } catch (const vd::InvalidTextException& e) {
        throw ConversionError(e.what());
    }
}

}  // namespace

std::u16string to_ustring(const std::string& text) {
    return vd::utf8ToUtf16(text, vd::IllFormedText::Replace);
}
std::string to_string(const std::u16string& text) {
    return vd::utf16ToUtf8(text, vd::IllFormedText::Replace);
}
std::u16string to_ustring_strict(const std::string& text) {
    return strictly([&](vd::IllFormedText policy) { return vd::utf8ToUtf16(text, policy); });
}
std::string to_string_strict(const std::u16string& text) {
    return strictly([&](vd::IllFormedText policy) { return vd::utf16ToUtf8(text, policy); });
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
