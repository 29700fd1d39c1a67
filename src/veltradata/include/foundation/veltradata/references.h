// Element references: small objects that record a path into an array and
// read or write the element on demand.
//
// Index rules, the same for every reference:
//  - one index, a[k]: element k in storage (column-major) order;
//  - two or more, a[i][j]...: subscripts, one per dimension, where the last
//    subscript spans all remaining dimensions and subscripts beyond the last
//    dimension must be 0. So a[i][j] is row i, column j of a matrix, and a
//    1 by n row vector is walked as a[0][k];
//  - a struct element by field name, s[i]["field"] (after its indexes).
// An index past the end, or an unknown field name, throws. References keep a
// pointer to the array they came from: use them while that array lives, as
// with an iterator. Writing through a reference detaches that array first
// when its storage is shared.
#pragma once

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <string>
#include <type_traits>

#include "foundation/veltradata/array.h"

namespace foundation::veltradata {

template <class T, bool Const>
class ArrayElementTypedRef;
template <class A>
class Reference;
template <ArrayElement T>
class TypedArray;

namespace detail {

inline constexpr std::size_t kMaxIndexes = 16;

// The array and the list of indexes so far.
class ReferenceImpl {
  public:
    ReferenceImpl(const Array* array, std::size_t first) noexcept : array_(array), count_(1) {
        indexes_[0] = first;
    }
    ReferenceImpl(const ReferenceImpl& other) noexcept
        : array_(other.array_), count_(other.count_) {
        std::copy_n(other.indexes_, count_, indexes_);
    }
    ReferenceImpl& operator=(const ReferenceImpl& other) noexcept {
        array_ = other.array_;
        count_ = other.count_;
        std::copy_n(other.indexes_, count_, indexes_);
        return *this;
    }
    const Array& array() const noexcept { return *array_; }
    // Only references obtained from a non-const array write.
    Array& mutableArray() const noexcept { return const_cast<Array&>(*array_); }
    std::size_t count() const noexcept { return count_; }
    const std::size_t* indexes() const noexcept { return indexes_; }
    void add(std::size_t index);

  private:
    const Array* array_;
    std::size_t count_;
    std::size_t indexes_[kMaxIndexes];
};

inline void addIndex(ReferenceImpl& impl, std::size_t index) {
    impl.add(index);
}

// Storage position of the element a reference names; throws past the end.
std::size_t linearIndex(const ReferenceImpl& impl);

[[noreturn]] void throwMissingString();
std::u16string asciiToUtf16(std::string_view text);  // throws NonAsciiCharInInputDataException

// A field of a struct element (shared copy) and its assignment.
Array getField(const ReferenceImpl& impl, const std::string& field);
void setField(const ReferenceImpl& impl, const std::string& field, const Array& value);
void setStructElement(const ReferenceImpl& impl, const StructElement& value);

template <class>
inline constexpr bool alwaysFalse = false;

// Read the element as T: an element type of the array, std::u16string or
// std::string (UTF-8) for a present string element, or an Array (or a view
// of one) held in a cell.
template <class T>
T getValue(const ReferenceImpl& impl) {
    const Array& array = impl.array();
    if constexpr (std::is_same_v<T, std::u16string>) {
        const VELTRAString& value = ArrayAccess::data<VELTRAString>(array)[linearIndex(impl)];
        if (!value) {
            throwMissingString();
        }
        return *value;
    } else if constexpr (std::is_same_v<T, std::string>) {
        return utf16ToUtf8(getValue<std::u16string>(impl));
    } else if constexpr (std::derived_from<T, Array>) {
        return T(ArrayAccess::data<Array>(array)[linearIndex(impl)]);
    } else if constexpr (ArrayElement<T>) {
        return ArrayAccess::data<T>(array)[linearIndex(impl)];
    } else {
        static_assert(alwaysFalse<T>, "not a type that an array element can be read as");
    }
}

inline std::string castToString(const ReferenceImpl& impl) {
    return getValue<std::string>(impl);
}

template <class V>
requires std::derived_from<V, Array> V castTo(const ReferenceImpl& impl) {
    return getValue<V>(impl);
}

// Write one element. Text (std::u16string, std::string as UTF-8, C strings)
// goes to string arrays.
template <class T>
void setElement(const ReferenceImpl& impl, const T& value) {
    if constexpr (std::is_same_v<T, std::u16string> || std::is_same_v<T, const char16_t*>) {
        setElement<VELTRAString>(impl, VELTRAString(std::u16string(value)));
    } else if constexpr (std::is_same_v<T, std::string> || std::is_same_v<T, const char*>) {
        setElement<VELTRAString>(impl, VELTRAString(utf8ToUtf16(value)));
    } else if constexpr (std::is_same_v<T, StructElement>) {
        setStructElement(impl, value);
    } else if constexpr (ArrayElement<T>) {
        Array& array = impl.mutableArray();
        checkType(array, arrayTypeOf<T>);
        const std::size_t index =
            linearIndex(impl);  // before detaching: a bad index copies nothing
        ArrayAccess::mutableData<T>(array)[index] = value;
    } else {
        static_assert(alwaysFalse<T>, "not a type that an array element can be set to");
    }
}

}  // namespace detail

class ReferenceHolder {
  protected:
    ReferenceHolder(const Array* array, std::size_t index) noexcept : pImpl(array, index) {}
    detail::ReferenceImpl pImpl;
};

// A field of a struct element: converts to an Array (or a view of one) and,
// unless A is const, takes an assignment of an Array.
template <class A>
class Reference : public ReferenceHolder {
  public:
    Reference(const Reference&) = default;

    template <class V>
    requires std::derived_from<V, Array>
    operator V() const { return V(detail::getField(pImpl, field_)); }
    Reference& operator=(const Array& value) {
        static_assert(!std::is_const_v<A>, "a reference into a const array is read-only");
        detail::setField(pImpl, field_, value);
        return *this;
    }
    Reference& operator=(const Reference& other) { return *this = Array(other); }

  private:
    template <class, bool>
    friend class ArrayElementTypedRef;
    template <bool>
    friend class ArrayElementRef;
    Reference(const ReferenceHolder& element, std::string field)
        : ReferenceHolder(element), field_(std::move(field)) {}
    std::string field_;
};

// Reference from Array::operator[]: takes further indexes and reads as a value
// of the element type (or std::u16string / std::string for a present string,
// or an Array for a cell element), e.g. `double x = a[0][0];`.
template <bool Const>
class ArrayElementRef : public ReferenceHolder {
  public:
    ArrayElementRef operator[](std::size_t index) const {
        ArrayElementRef next(*this);
        detail::addIndex(next.pImpl, index);
        return next;
    }
    Reference<std::conditional_t<Const, const Array, Array>> operator[](
        const std::string& field) const {
        return {*this, field};
    }
    template <class T>
    operator T() const {
        return detail::getValue<T>(pImpl);
    }

  private:
    friend class Array;
    ArrayElementRef(const Array* array, std::size_t index) noexcept
        : ReferenceHolder(array, index) {}
};

// Reference from TypedArray<T>::operator[]: further indexes, conversion to T,
// and (unless Const) assignment of a T. Extras by element type:
//  - Array (cell elements): converts to Array or any view of one;
//  - VELTRAString: converts to std::u16string / std::string (UTF-8), throwing
//    MissingStringException for a missing element; takes text;
//  - StructElement: ["field"] gives a Reference to that field's Array.
template <class T, bool Const>
class ArrayElementTypedRef : public ReferenceHolder {
  public:
    ArrayElementTypedRef(const ArrayElementTypedRef&) = default;

    ArrayElementTypedRef operator[](std::size_t index) const {
        ArrayElementTypedRef next(*this);
        detail::addIndex(next.pImpl, index);
        return next;
    }

    operator T() const requires(!std::same_as<T, Array>) { return detail::getValue<T>(pImpl); }
    template <class V>
    requires(std::same_as<T, Array>&& std::derived_from<V, Array>) operator V() const {
        return detail::castTo<V>(pImpl);
    }

    operator std::u16string() const requires std::same_as<T, VELTRAString> {
        return detail::getValue<std::u16string>(pImpl);
    }
    operator std::string() const requires std::same_as<T, VELTRAString> {
        return detail::castToString(pImpl);
    }

    Reference<std::conditional_t<Const, const Array, Array>> operator[](
        const std::string& field) const requires std::same_as<T, StructElement> {
        return {*this, field};
    }

    ArrayElementTypedRef& operator=(const T& value) {
        static_assert(!Const, "a reference into a const array is read-only");
        detail::setElement<T>(pImpl, value);
        return *this;
    }
    // Copies the element's value, not the reference.
    ArrayElementTypedRef& operator=(const ArrayElementTypedRef& other) {
        return *this = detail::getValue<T>(other.pImpl);
    }
    ArrayElementTypedRef& operator=(
        const std::u16string& text) requires std::same_as<T, VELTRAString> {
        return *this = VELTRAString(text);
    }
    ArrayElementTypedRef& operator=(const char16_t* text) requires std::same_as<T, VELTRAString> {
        return *this = VELTRAString(std::u16string(text));
    }
    // UTF-8 text.
    ArrayElementTypedRef& operator=(
        const std::string& text) requires std::same_as<T, VELTRAString> {
        return *this = VELTRAString(utf8ToUtf16(text));
    }
    ArrayElementTypedRef& operator=(const char* text) requires std::same_as<T, VELTRAString> {
        return *this = std::string(text);
    }

  private:
    friend class TypedArray<T>;
    ArrayElementTypedRef(const Array* array, std::size_t index) noexcept
        : ReferenceHolder(array, index) {}
};

using StructRefExt = ArrayElementTypedRef<StructElement, false>;
using ArrayReferenceExt = ArrayElementTypedRef<Array, false>;
using VELTRAStringReferenceExt = ArrayElementTypedRef<VELTRAString, false>;
using HandleRef = ArrayElementTypedRef<HandleObjectRef, false>;

inline ArrayElementRef<false> Array::operator[](std::size_t index) {
    return {this, index};
}
inline ArrayElementRef<true> Array::operator[](std::size_t index) const {
    return {this, index};
}

}  // namespace foundation::veltradata
