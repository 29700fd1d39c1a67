// Array type codes, memory layouts, the optional text element and text helpers.
#pragma once

#include <complex>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace foundation::veltradata {

// The numeric values are load-bearing (switches and lookup tables key on them).
// 26 is a hole: no enumerator uses it, and every switch treats it as unknown.
enum class ArrayType : int {
    UNKNOWN = 0,
    LOGICAL = 1,
    CHAR = 2,
    VELTRA_STRING = 3,
    DOUBLE = 4,
    SINGLE = 5,
    INT8 = 6,
    UINT8 = 7,
    INT16 = 8,
    UINT16 = 9,
    INT32 = 10,
    UINT32 = 11,
    INT64 = 12,
    UINT64 = 13,
    COMPLEX_DOUBLE = 14,
    COMPLEX_SINGLE = 15,
    COMPLEX_INT8 = 16,
    COMPLEX_UINT8 = 17,
    COMPLEX_INT16 = 18,
    COMPLEX_UINT16 = 19,
    COMPLEX_INT32 = 20,
    COMPLEX_UINT32 = 21,
    COMPLEX_INT64 = 22,
    COMPLEX_UINT64 = 23,
    CELL = 24,
    STRUCT = 25,
    VALUE_OBJECT = 27,
    HANDLE_OBJECT_REF = 28,
    ENUM = 29,
    SPARSE_LOGICAL = 30,
    SPARSE_DOUBLE = 31,
    SPARSE_COMPLEX_DOUBLE = 32,
};

// Order of the elements in a buffer handed to createArrayFromBuffer. Arrays
// always store column-major; a ROW_MAJOR buffer is reordered (one copy).
enum class MemoryLayout : int {
    COLUMN_MAJOR = 0,
    ROW_MAJOR = 1,
};

// What every table of host array types needs of one type, in one place: the
// bytes of an element stored as raw bytes (0 where elements are objects or
// absent), its format code in Python's buffer protocol ("" where that has
// none), and whether its elements are numbers, and complex ones.
struct TypeDescription {
    std::size_t elementSize = 0;
    const char* bufferFormat = "";
    bool numeric = false;
    bool complex = false;
};

constexpr TypeDescription describe(ArrayType type) noexcept {
    switch (type) {
        case ArrayType::LOGICAL:
            return {1, "?"};
        case ArrayType::CHAR:
            return {2};
        case ArrayType::DOUBLE:
            return {8, "d", true};
        case ArrayType::SINGLE:
            return {4, "f", true};
        case ArrayType::INT8:
            return {1, "b", true};
        case ArrayType::UINT8:
            return {1, "B", true};
        case ArrayType::INT16:
            return {2, "h", true};
        case ArrayType::UINT16:
            return {2, "H", true};
        case ArrayType::INT32:
            return {4, "i", true};
        case ArrayType::UINT32:
            return {4, "I", true};
        case ArrayType::INT64:
            return {8, "q", true};
        case ArrayType::UINT64:
            return {8, "Q", true};
        case ArrayType::COMPLEX_DOUBLE:
            return {16, "Zd", true, true};
        case ArrayType::COMPLEX_SINGLE:
            return {8, "Zf", true, true};
        case ArrayType::COMPLEX_INT8:
        case ArrayType::COMPLEX_UINT8:
            return {2, "", true, true};
        case ArrayType::COMPLEX_INT16:
        case ArrayType::COMPLEX_UINT16:
            return {4, "", true, true};
        case ArrayType::COMPLEX_INT32:
        case ArrayType::COMPLEX_UINT32:
            return {8, "", true, true};
        case ArrayType::COMPLEX_INT64:
        case ArrayType::COMPLEX_UINT64:
            return {16, "", true, true};
        default:
            return {};
    }
}

// Every type value that has an enumerator, in order.
inline constexpr ArrayType kArrayTypes[] = {
    ArrayType::UNKNOWN,        ArrayType::LOGICAL,
    ArrayType::CHAR,           ArrayType::VELTRA_STRING,
    ArrayType::DOUBLE,         ArrayType::SINGLE,
    ArrayType::INT8,           ArrayType::UINT8,
    ArrayType::INT16,          ArrayType::UINT16,
    ArrayType::INT32,          ArrayType::UINT32,
    ArrayType::INT64,          ArrayType::UINT64,
    ArrayType::COMPLEX_DOUBLE, ArrayType::COMPLEX_SINGLE,
    ArrayType::COMPLEX_INT8,   ArrayType::COMPLEX_UINT8,
    ArrayType::COMPLEX_INT16,  ArrayType::COMPLEX_UINT16,
    ArrayType::COMPLEX_INT32,  ArrayType::COMPLEX_UINT32,
    ArrayType::COMPLEX_INT64,  ArrayType::COMPLEX_UINT64,
    ArrayType::CELL,           ArrayType::STRUCT,
    ArrayType::VALUE_OBJECT,   ArrayType::HANDLE_OBJECT_REF,
    ArrayType::ENUM,           ArrayType::SPARSE_LOGICAL,
    ArrayType::SPARSE_DOUBLE,  ArrayType::SPARSE_COMPLEX_DOUBLE,
};

// Enumerator name of a type ("DOUBLE", "VELTRA_STRING", ...), or
// "UNKNOWN(<value>)" for a value without an enumerator (26, 33, -1, ...).
std::string toString(ArrayType type);

// An optional value that converts from T, from std::nullopt and from plain
// non-class values that T accepts (u"text"), but never implicitly from other
// class types: a string element reference therefore converts to it through
// its own conversion (which tells a missing element) and never by way of
// std::u16string (which would throw on a missing element).
template <class T>
class optional : public std::optional<T> {
    using Base = std::optional<T>;

  public:
    constexpr optional() noexcept = default;
    constexpr optional(std::nullopt_t) noexcept {}
    optional(const T& value) : Base(value) {}
    optional(T&& value) : Base(std::move(value)) {}
    optional(const Base& other) : Base(other) {}
    optional(Base&& other) : Base(std::move(other)) {}
    template <class U>
    requires(!std::is_class_v<std::remove_cvref_t<U>> && std::is_convertible_v<U, T>)
        optional(U&& value)
        : Base(T(std::forward<U>(value))) {}
};

// Two missing values are equal; a missing value never equals a present one.
// Both sides deduced, so nothing converts implicitly into this comparison.
template <class T, class U>
bool operator==(const optional<T>& a, const optional<U>& b) {
    return static_cast<const std::optional<T>&>(a) == static_cast<const std::optional<U>&>(b);
}

// One element of a string array: UTF-16 text, or missing (no value). A missing
// element is not the same as an empty one.
using VELTRAString = optional<std::u16string>;

// Narrow text is UTF-8 throughout the library. These two conversions are
// the only UTF transcoder of the project; the policy says what happens to
// ill-formed input: a lone surrogate in UTF-16, or a stray, truncated,
// overlong or out-of-range sequence in UTF-8.
enum class IllFormedText {
    // The library's own choice: a lone surrogate is encoded as its own three
    // bytes, so nothing is lost and decoding gives it back; any other
    // ill-formed UTF-8 raises InvalidTextException.
    Keep,
    // Each maximal ill-formed part becomes one U+FFFD (text on its way to a
    // human reader).
    Replace,
    // InvalidTextException.
    Throw,
};
std::string utf16ToUtf8(std::u16string_view text, IllFormedText policy = IllFormedText::Keep);
std::u16string utf8ToUtf16(std::string_view text, IllFormedText policy = IllFormedText::Keep);

}  // namespace foundation::veltradata

// The library's own spelling of its namespace, as used in messages and in the
// element type `veltra::data::optional<std::u16string>`.
namespace veltra {
namespace data = ::foundation::veltradata;
}  // namespace veltra
