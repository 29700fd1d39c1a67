// Typed views of an Array: TypedArray<T>, CharArray, StructArray, EnumArray,
// ValueObjectArray, with their iterators.
#pragma once

#include <compare>
#include <cstddef>
#include <iterator>
#include <memory>
#include <string>
#include <utility>

#include "foundation/veltradata/references.h"

namespace foundation::veltradata {

// Read-only iterator over all elements in storage order: a plain pointer walk.
// Valid while the array it came from lives and is neither written nor released.
template <class T>
class TypedIterator {
  public:
    using iterator_category = std::random_access_iterator_tag;
    using iterator_concept = std::contiguous_iterator_tag;
    using value_type = T;
    using element_type = const T;
    using difference_type = std::ptrdiff_t;
    using pointer = const T*;
    using reference = const T&;

    TypedIterator() noexcept = default;
    explicit TypedIterator(const T* position) noexcept : p_(position) {}

    reference operator*() const noexcept { return *p_; }
    pointer operator->() const noexcept { return p_; }
    reference operator[](difference_type n) const noexcept { return p_[n]; }
    TypedIterator& operator++() noexcept {
        ++p_;
        return *this;
    }
    TypedIterator operator++(int) noexcept { return TypedIterator(p_++); }
    TypedIterator& operator--() noexcept {
        --p_;
        return *this;
    }
    TypedIterator operator--(int) noexcept { return TypedIterator(p_--); }
    TypedIterator& operator+=(difference_type n) noexcept {
        p_ += n;
        return *this;
    }
    TypedIterator& operator-=(difference_type n) noexcept {
        p_ -= n;
        return *this;
    }
    friend TypedIterator operator+(TypedIterator it, difference_type n) noexcept { return it += n; }
    friend TypedIterator operator+(difference_type n, TypedIterator it) noexcept { return it += n; }
    friend TypedIterator operator-(TypedIterator it, difference_type n) noexcept { return it -= n; }
    friend difference_type operator-(TypedIterator a, TypedIterator b) noexcept {
        return a.p_ - b.p_;
    }
    friend bool operator==(TypedIterator a, TypedIterator b) noexcept { return a.p_ == b.p_; }
    friend auto operator<=>(TypedIterator a, TypedIterator b) noexcept { return a.p_ <=> b.p_; }

    // The same operations by name, for class-type elements.
    const T& getRef() const noexcept { return *p_; }
    void increment() noexcept { ++p_; }
    bool isEqual(const TypedIterator& other) const noexcept { return p_ == other.p_; }

  private:
    const T* p_ = nullptr;
};

// Typed view of an array whose elements are T. Constructing it from an array
// of another type throws InvalidArrayTypeException naming both types (the
// source array is left untouched, also for the moving form).
template <ArrayElement T>
class TypedArray : public Array {
  public:
    using element_type = T;
    using iterator = TypedIterator<T>;
    using const_iterator = TypedIterator<T>;

    TypedArray(const Array& other) : Array(checked(other)) {}
    TypedArray(Array&& other) : Array(std::move(checked(other))) {}
    TypedArray(const TypedArray&) noexcept = default;
    TypedArray(TypedArray&&) noexcept = default;
    TypedArray& operator=(const TypedArray&) noexcept = default;
    TypedArray& operator=(TypedArray&&) noexcept = default;
    ~TypedArray() override = default;

    ArrayElementTypedRef<T, false> operator[](std::size_t index) { return {this, index}; }
    ArrayElementTypedRef<T, true> operator[](std::size_t index) const { return {this, index}; }

    TypedIterator<T> begin() const { return TypedIterator<T>(detail::ArrayAccess::data<T>(*this)); }
    TypedIterator<T> end() const {
        const T* first = detail::ArrayAccess::data<T>(*this);
        return TypedIterator<T>(first ? first + getNumberOfElements() : first);
    }
    TypedIterator<T> cbegin() const { return begin(); }
    TypedIterator<T> cend() const { return end(); }

    // The elements in storage order, getNumberOfElements() of them, owned by
    // the caller and freed by the deleter that comes with them. Hands over the
    // storage without a copy when this holder is its only one; otherwise the
    // caller gets a copy and the other holders keep theirs. Either way this
    // holder is left empty (0 by 0, same type).
    std::unique_ptr<T[], void (*)(void*)> release() {
        detail::checkType(*this, arrayTypeOf<T>);
        void (*deleter)(void*) = nullptr;
        T* data = static_cast<T*>(detail::ArrayAccess::releaseBuffer(*this, &deleter));
        return std::unique_ptr<T[], void (*)(void*)>(data, deleter);
    }

    // Writes element `index` in storage order (throws past the end).
    void setElement(std::size_t index, const T& value) { (*this)[index] = value; }

  private:
    static const Array& checked(const Array& array) {
        detail::checkType(array, arrayTypeOf<T>);
        return array;
    }
    static Array& checked(Array& array) {
        detail::checkType(array, arrayTypeOf<T>);
        return array;
    }
};

// Char array: UTF-16 code units.
class CharArray : public TypedArray<char16_t> {
  public:
    CharArray(const Array& other) : TypedArray<char16_t>(other) {}
    CharArray(Array&& other) : TypedArray<char16_t>(std::move(other)) {}
    CharArray(const CharArray&) noexcept = default;
    CharArray(CharArray&&) noexcept = default;
    CharArray& operator=(const CharArray&) noexcept = default;
    CharArray& operator=(CharArray&&) noexcept = default;
    ~CharArray() override = default;

    // All code units in storage order, whatever the dimensions.
    std::u16string toUTF16() const { return std::u16string(begin(), end()); }
    // The same as UTF-8: ASCII is unchanged, code units above 127 are encoded
    // (surrogate pairs combined), nothing is lost.
    std::string toAscii() const;
};

// One field name of a struct array.
class VeltraFieldIdentifier {
  public:
    explicit VeltraFieldIdentifier(std::string name) : name_(std::move(name)) {}
    operator std::string() const { return name_; }
    const std::string& str() const noexcept { return name_; }

  private:
    std::string name_;
};

template <class T>
class ForwardIterator;

// Iterator over the field names of a struct array, in declared order. It
// keeps the names alive by itself.
template <>
class ForwardIterator<VeltraFieldIdentifier const> {
  public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = VeltraFieldIdentifier;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = VeltraFieldIdentifier;

    ForwardIterator() = default;
    ForwardIterator(std::shared_ptr<const detail::FieldTable> table, std::size_t position)
        : table_(std::move(table)), position_(position) {}
    ForwardIterator(const ForwardIterator&) = default;
    ForwardIterator(ForwardIterator&&) noexcept = default;
    ForwardIterator& operator=(const ForwardIterator&) = default;
    ForwardIterator& operator=(ForwardIterator&&) noexcept = default;

    VeltraFieldIdentifier operator*() const;  // throws past the end
    ForwardIterator& operator++() noexcept {
        ++position_;
        return *this;
    }
    ForwardIterator operator++(int) noexcept {
        ForwardIterator previous(*this);
        ++position_;
        return previous;
    }
    friend bool operator==(const ForwardIterator& a, const ForwardIterator& b) noexcept {
        return a.table_ == b.table_ && a.position_ == b.position_;
    }

  private:
    std::shared_ptr<const detail::FieldTable> table_;
    std::size_t position_ = 0;
};

template <template <class> class It, class T>
class Range {
  public:
    Range(It<T> first, It<T> last) : begin_(std::move(first)), end_(std::move(last)) {}
    It<T> begin() const { return begin_; }
    It<T> end() const { return end_; }

  private:
    It<T> begin_;
    It<T> end_;
};

// Struct array: field names in declared order, one Array per field per
// element. A field of a new struct array holds an empty 0 by 0 DOUBLE array
// until it is assigned: s[i]["field"] = array.
class StructArray : public TypedArray<StructElement> {
  public:
    StructArray(const Array& other) : TypedArray<StructElement>(other) {}
    StructArray(Array&& other) : TypedArray<StructElement>(std::move(other)) {}
    StructArray(const StructArray&) noexcept = default;
    StructArray(StructArray&&) noexcept = default;
    StructArray& operator=(const StructArray&) noexcept = default;
    StructArray& operator=(StructArray&&) noexcept = default;
    ~StructArray() override = default;

    std::size_t getNumberOfFields() const;
    Range<ForwardIterator, VeltraFieldIdentifier const> getFieldNames() const;
};

class EnumArray : public TypedArray<Enumeration> {
  public:
    EnumArray(const Array& other) : TypedArray<Enumeration>(other) {}
    EnumArray(Array&& other) : TypedArray<Enumeration>(std::move(other)) {}
    EnumArray(const EnumArray&) noexcept = default;
    EnumArray(EnumArray&&) noexcept = default;
    EnumArray& operator=(const EnumArray&) noexcept = default;
    EnumArray& operator=(EnumArray&&) noexcept = default;
    ~EnumArray() override = default;
};

class ValueObjectArray : public TypedArray<ValueObject> {
  public:
    ValueObjectArray(const Array& other) : TypedArray<ValueObject>(other) {}
    ValueObjectArray(Array&& other) : TypedArray<ValueObject>(std::move(other)) {}
    ValueObjectArray(const ValueObjectArray&) noexcept = default;
    ValueObjectArray(ValueObjectArray&&) noexcept = default;
    ValueObjectArray& operator=(const ValueObjectArray&) noexcept = default;
    ValueObjectArray& operator=(ValueObjectArray&&) noexcept = default;
    ~ValueObjectArray() override = default;
};

}  // namespace foundation::veltradata
