// ArrayFactory: every way of making an array.
#pragma once

#include <complex>
#include <concepts>
#include <cstddef>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "foundation/veltradata/typed_array.h"

namespace foundation::veltradata {

namespace detail {

// The fixed-width element type for a C++ arithmetic type (long long -> int64_t, ...).
template <class T>
struct Normalized {
    using type = T;
};
template <std::integral T>
requires(!std::same_as<T, bool> && !std::same_as<T, char16_t>) struct Normalized<T> {
    using type = std::conditional_t<
        std::is_signed_v<T>,
        std::conditional_t<
            sizeof(T) == 1, std::int8_t,
            std::conditional_t<sizeof(T) == 2, std::int16_t,
                               std::conditional_t<sizeof(T) == 4, std::int32_t, std::int64_t>>>,
        std::conditional_t<
            sizeof(T) == 1, std::uint8_t,
            std::conditional_t<sizeof(T) == 2, std::uint16_t,
                               std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>>>>;
};
template <class T>
struct Normalized<std::complex<T>> {
    using type = std::complex<typename Normalized<T>::type>;
};
template <class T>
using NormalizedT = typename Normalized<std::remove_cvref_t<T>>::type;

// Plain char is left out on purpose: it is text, not a number.
template <class T>
concept ScalarValue = !std::same_as<std::remove_cvref_t<T>, char> && ArrayElement<NormalizedT<T>> &&
                      ElementType<NormalizedT<T>>::plain;

template <class V>
inline constexpr bool isNarrowText =
    std::is_same_v<V, std::string> || std::is_same_v<V, std::string_view> ||
    std::is_same_v<V, const char*> || std::is_same_v<V, char*>;
template <class V>
inline constexpr bool isWideText =
    std::is_same_v<V, std::u16string> || std::is_same_v<V, std::u16string_view> ||
    std::is_same_v<V, const char16_t*> || std::is_same_v<V, char16_t*>;

// The element type that a range of V makes by default.
template <class V>
using RangeElement =
    std::conditional_t<isNarrowText<V> || isWideText<V> || std::is_same_v<V, VELTRAString>,
                       VELTRAString, NormalizedT<V>>;

// Narrow text in a range must be ASCII (NonAsciiCharInInputDataException).
template <class E, class V>
E convertRangeElement(const V& value) {
    if constexpr (std::is_same_v<E, VELTRAString> && isNarrowText<std::decay_t<V>>) {
        return VELTRAString(asciiToUtf16(value));
    } else if constexpr (std::is_same_v<E, VELTRAString> && isWideText<std::decay_t<V>>) {
        return VELTRAString(std::u16string(value));
    } else {
        return static_cast<E>(value);
    }
}

[[noreturn]] void throwRangeCount(std::size_t expected, std::size_t given, bool atLeast);

// A new 1 by n array, as createArray(type, {1, n}) makes it, without a list
// of dimensions to build: scalars and text are made all the time.
Array makeRow(ArrayType type, std::size_t columns);

}  // namespace detail

// Makes arrays. Stateless; cheap to construct on the stack.
//
// Dimensions: a list of a single entry n gives a 1 by n row vector (so the
// two-index rule a[0][k] walks it); trailing singleton dimensions beyond the
// second are dropped; an empty list, or one whose product overflows, throws
// InvalidDimensionsException.
//
// Contents of new arrays: numeric, logical and char elements are zero; every
// element of a VELTRA_STRING array is missing; cell elements are empty 0 by 0
// DOUBLE arrays; struct fields hold empty 0 by 0 DOUBLE arrays until assigned;
// enumerations have an empty name; objects and handles are 0 tokens.
class ArrayFactory {
  public:
    ArrayFactory();
    ArrayFactory(const ArrayFactory&) = default;
    ArrayFactory& operator=(const ArrayFactory&) = default;
    virtual ~ArrayFactory();

    // Any type 1 to 25 or 27 to 32. The sparse types (30 to 32) make opaque
    // arrays with a shape but no element storage and no typed view. UNKNOWN,
    // 26 and values outside 1 to 32 throw InvalidArgumentException.
    Array createArray(ArrayType type, std::vector<std::size_t> dims) const;

    template <ArrayElement T>
    TypedArray<T> createArray(std::vector<std::size_t> dims) const {
        return TypedArray<T>(createArray(arrayTypeOf<T>, std::move(dims)));
    }

    // Elements copied from [begin, end) in storage order; the range must hold
    // exactly as many elements as the dimensions say. T defaults to the
    // range's own type: text (std::string, const char*, std::u16string)
    // makes a VELTRA_STRING array, integers their fixed-width type. Narrow
    // text must be ASCII: a byte of 128 or above throws
    // NonAsciiCharInInputDataException and no array is made.
    template <class T = void, std::input_iterator It>
    auto createArray(std::vector<std::size_t> dims, It begin, It end) const {
        using V = std::iter_value_t<It>;
        using E = std::conditional_t<std::is_void_v<T>, detail::RangeElement<V>, T>;
        TypedArray<E> result = createArray<E>(std::move(dims));
        E* out = detail::ArrayAccess::mutableData<E>(result);  // fresh: no copy
        const std::size_t count = result.getNumberOfElements();
        std::size_t given = 0;
        for (; begin != end; ++begin, ++given) {
            if (given == count) {
                detail::throwRangeCount(count, given + 1, true);
            }
            out[given] = detail::convertRangeElement<E>(*begin);
        }
        if (given != count) {
            detail::throwRangeCount(count, given, false);
        }
        return result;
    }

    // 1 by 1 array of the value's element type (int -> INT32, long long ->
    // INT64, bool -> LOGICAL, std::complex<double> -> COMPLEX_DOUBLE, ...).
    template <class T>
    requires detail::ScalarValue<T> TypedArray<detail::NormalizedT<T>> createScalar(const T& value)
    const {
        using E = detail::NormalizedT<T>;
        TypedArray<E> result(detail::makeRow(arrayTypeOf<E>, 1));
        detail::ArrayAccess::mutableData<E>(result)[0] = static_cast<E>(value);
        return result;
    }
    // 1 by 1 VELTRA_STRING array. Narrow text is UTF-8; a null pointer throws
    // InvalidArgumentException.
    TypedArray<VELTRAString> createScalar(const char* text) const;
    TypedArray<VELTRAString> createScalar(const std::string& text) const;
    TypedArray<VELTRAString> createScalar(const char16_t* text) const;
    TypedArray<VELTRAString> createScalar(const std::u16string& text) const;
    TypedArray<VELTRAString> createScalar(const VELTRAString& value) const;  // may be missing

    // 1 by n char array (1 by 0 for empty text). Narrow text is UTF-8.
    CharArray createCharArray(const std::string& text) const;
    CharArray createCharArray(const std::u16string& text) const;

    // Fields in the given order. Any text is a valid name ("0", "a::b", ...);
    // a duplicate name throws InvalidFieldNameException.
    StructArray createStructArray(std::vector<std::size_t> dims,
                                  std::vector<std::string> fieldNames) const;

    // Cell array holding the given arrays in storage order (shared copies);
    // their count must equal the number of elements (InvalidDimensionsException).
    TypedArray<Array> createCellArray(std::vector<std::size_t> dims,
                                      const std::vector<Array>& elements) const;

    // Empty 0 by 0 DOUBLE array.
    Array createEmptyArray() const;

    // Room for `count` elements of that type (zeroed; class-type elements
    // default-constructed), freed by the deleter that comes with it. Buffers
    // from here (and from release) carry their type and count, which
    // createArrayFromBuffer checks.
    std::unique_ptr<void, void (*)(void*)> createBuffer(ArrayType type, std::size_t count) const;
    // The same, filling a raw pointer and its deleter; `type` is an ArrayType value.
    void createBuffer(void** buffer, void (**deleter)(void*), int type, std::size_t count) const;
    // Room for `count` elements of type 1, 2 or 4 to 23 that are not cleared,
    // for a caller that writes every element before anything reads them.
    std::unique_ptr<void, void (*)(void*)> createUninitialisedBuffer(ArrayType type,
                                                                     std::size_t count) const;
    template <ArrayElement T>
    std::unique_ptr<T[], void (*)(void*)> createBuffer(std::size_t count) const {
        auto buffer = createBuffer(arrayTypeOf<T>, count);
        void (*deleter)(void*) = buffer.get_deleter();
        return std::unique_ptr<T[], void (*)(void*)>(static_cast<T*>(buffer.release()), deleter);
    }

    // Takes the buffer over without copying (except that a ROW_MAJOR buffer
    // is reordered into a new one). A buffer from createBuffer or release must
    // have this type and exactly as many elements as the dimensions say
    // (InvalidBufferException). A buffer with a foreign deleter is accepted
    // for types 1, 2 and 4 to 23 and trusted to hold that many elements;
    // LOGICAL bytes are normalised to 0 and 1. A null buffer is accepted only
    // for an empty array. Opaque types (sparse, unknown) throw InvalidArgumentException.
    Array createArrayFromBuffer(std::vector<std::size_t> dims, ArrayType type,
                                std::unique_ptr<void, void (*)(void*)> buffer,
                                MemoryLayout layout = MemoryLayout::COLUMN_MAJOR) const;
    template <ArrayElement T>
    TypedArray<T> createArrayFromBuffer(std::vector<std::size_t> dims,
                                        std::unique_ptr<T[], void (*)(void*)> buffer,
                                        MemoryLayout layout = MemoryLayout::COLUMN_MAJOR) const {
        void (*deleter)(void*) = buffer.get_deleter();
        std::unique_ptr<void, void (*)(void*)> raw(buffer.release(), deleter);
        return TypedArray<T>(
            createArrayFromBuffer(std::move(dims), arrayTypeOf<T>, std::move(raw), layout));
    }

    // An array with a shape but no element storage that reports any raw type
    // value without a typed view (0, 26, 30 to 32, below 0 or above 32), so
    // that the refusals of visit() can be exercised. Values with a typed view
    // throw InvalidArgumentException.
    Array createOpaqueArray(int rawType, std::vector<std::size_t> dims) const;
};

namespace standalone {

// The factory for code that runs outside the host's own process.
class ArrayFactory : public foundation::veltradata::ArrayFactory {
  public:
    ArrayFactory();
    ~ArrayFactory() override;
};

}  // namespace standalone

}  // namespace foundation::veltradata
