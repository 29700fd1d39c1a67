// Text conversion between narrow text and UTF-16. Narrow text is UTF-8
// throughout the worker.
//
// Ill-formed input (a lone surrogate in UTF-16; a stray, truncated, overlong
// or out-of-range sequence in UTF-8) is either replaced, each maximal
// ill-formed part by one U+FFFD, or reported with ConversionError.
#pragma once

#include <string>
#include <utility>

#include "foundation/core/except.h"

namespace fl::i18n {

class ConversionError
    : public foundation::core::except::Exception<foundation::core::except::IException> {
  public:
    using Exception::Exception;
};

// UTF-8 to UTF-16 and back, replacing ill-formed input: they never throw on
// content, since what they convert is mostly on its way to a human reader.
std::u16string to_ustring(const std::string& text);
std::string to_string(const std::u16string& text);

// The strict forms: throw ConversionError on ill-formed input.
std::u16string to_ustring_strict(const std::string& text);
std::string to_string_strict(const std::u16string& text);

namespace detail {
// Throws ConversionError unless name is empty or names UTF-8.
void require_utf8(const std::string& encodingName);
}  // namespace detail

// UTF-16 to narrow text in the named encoding. Only UTF-8 is provided; an
// empty name means UTF-8. With replaceInvalid, ill-formed input is replaced
// instead of reported.
class codecvt_ustring_to_string {
  public:
    using from_type = std::u16string;
    using to_type = std::string;

    codecvt_ustring_to_string(const std::string& encodingName, bool replaceInvalid)
        : replace_(replaceInvalid) {
        detail::require_utf8(encodingName);
    }
    to_type convert(const from_type& text) const {
        return replace_ ? to_string(text) : to_string_strict(text);
    }

  private:
    bool replace_;
};

// Narrow text in the named encoding to UTF-16; the counterpart of the above.
class codecvt_string_to_ustring {
  public:
    using from_type = std::string;
    using to_type = std::u16string;

    codecvt_string_to_ustring(const std::string& encodingName, bool replaceInvalid)
        : replace_(replaceInvalid) {
        detail::require_utf8(encodingName);
    }
    to_type convert(const from_type& text) const {
        return replace_ ? to_ustring(text) : to_ustring_strict(text);
    }

  private:
    bool replace_;
};

// Applies one codecvt_* object:
//   converter<codecvt_ustring_to_string>(codecvt_ustring_to_string("", true)).convert(u);
template <class Codecvt>
class converter {
  public:
    explicit converter(Codecvt codecvt) : codecvt_(std::move(codecvt)) {}

    typename Codecvt::to_type convert(const typename Codecvt::from_type& text) const {
        return codecvt_.convert(text);
    }

  private:
    Codecvt codecvt_;
};

}  // namespace fl::i18n
