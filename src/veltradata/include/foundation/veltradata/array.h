// Array: a value type and a handle onto shared, copy-on-write element storage.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "foundation/veltradata/exceptions.h"
#include "foundation/veltradata/types.h"

namespace foundation::veltradata {

class Array;
class StructElement;
class Enumeration;
class ValueObject;
class HandleObjectRef;
template <bool Const>
class ArrayElementRef;

namespace detail {

// Names of a struct array's fields with their lookup table; shared by the
// array and every StructElement taken from it.
struct FieldTable;

// The dimensions of an array, at least two. Those of a matrix, which nearly
// every array is, are held inline; an array of more keeps them all in `more_`.
class Dims {
  public:
    Dims() noexcept = default;
    Dims(std::size_t rows, std::size_t columns) noexcept : two_{rows, columns} {}
    Dims& operator=(std::vector<std::size_t> dims) {
        if (dims.size() == 2) {
            two_[0] = dims[0];
            two_[1] = dims[1];
            more_.clear();
        } else {
            more_ = std::move(dims);
        }
        return *this;
    }
    std::size_t size() const noexcept { return more_.empty() ? 2 : more_.size(); }
    std::size_t operator[](std::size_t k) const noexcept {
        return more_.empty() ? two_[k] : more_[k];
    }
    std::vector<std::size_t> toVector() const {
        return more_.empty() ? std::vector<std::size_t>{two_[0], two_[1]} : more_;
    }

  private:
    std::size_t two_[2] = {0, 0};
    std::vector<std::size_t> more_;
};

// The shared state behind every holder of one array. Element storage is one
// buffer of `numel` elements in column-major order, owned through `deleter`,
// but for a scalar of a plain type: its element lives in `scalar`, `data`
// points there and `deleter` is null, so that the commonest array takes one
// allocation.
struct ArrayImpl {
    std::atomic<std::size_t> refs{1};
    int type = 0;  // raw value: arrays of unknown types report it unchanged
    // The elements are another process's, mapped read-only: never written
    // in place, whoever holds them.
    bool borrowed = false;
    std::size_t numel = 0;
    Dims dims;
    void* data = nullptr;
    void (*deleter)(void*) = nullptr;
    std::shared_ptr<const FieldTable> fields;   // struct arrays only
    alignas(16) unsigned char scalar[16] = {};  // the largest plain element
};

void destroyImpl(ArrayImpl* impl) noexcept;
[[noreturn]] void throwWrongType(ArrayType actual, ArrayType expected);

// ElementType<T>::value is the ArrayType whose elements are T; `plain` marks
// trivially copyable elements stored as raw bytes, as many bytes as the
// type's description says.
template <class T>
struct ElementType;

#define VX_VELTRADATA_ELEMENT(T, Type, Plain)               \
    template <>                                             \
    struct ElementType<T> {                                 \
        static constexpr ArrayType value = ArrayType::Type; \
        static constexpr bool plain = Plain;                \
    }
VX_VELTRADATA_ELEMENT(bool, LOGICAL, true);
VX_VELTRADATA_ELEMENT(char16_t, CHAR, true);
VX_VELTRADATA_ELEMENT(VELTRAString, VELTRA_STRING, false);
VX_VELTRADATA_ELEMENT(double, DOUBLE, true);
VX_VELTRADATA_ELEMENT(float, SINGLE, true);
VX_VELTRADATA_ELEMENT(std::int8_t, INT8, true);
VX_VELTRADATA_ELEMENT(std::uint8_t, UINT8, true);
VX_VELTRADATA_ELEMENT(std::int16_t, INT16, true);
VX_VELTRADATA_ELEMENT(std::uint16_t, UINT16, true);
VX_VELTRADATA_ELEMENT(std::int32_t, INT32, true);
VX_VELTRADATA_ELEMENT(std::uint32_t, UINT32, true);
VX_VELTRADATA_ELEMENT(std::int64_t, INT64, true);
VX_VELTRADATA_ELEMENT(std::uint64_t, UINT64, true);
VX_VELTRADATA_ELEMENT(std::complex<double>, COMPLEX_DOUBLE, true);
VX_VELTRADATA_ELEMENT(std::complex<float>, COMPLEX_SINGLE, true);
VX_VELTRADATA_ELEMENT(std::complex<std::int8_t>, COMPLEX_INT8, true);
VX_VELTRADATA_ELEMENT(std::complex<std::uint8_t>, COMPLEX_UINT8, true);
VX_VELTRADATA_ELEMENT(std::complex<std::int16_t>, COMPLEX_INT16, true);
VX_VELTRADATA_ELEMENT(std::complex<std::uint16_t>, COMPLEX_UINT16, true);
VX_VELTRADATA_ELEMENT(std::complex<std::int32_t>, COMPLEX_INT32, true);
VX_VELTRADATA_ELEMENT(std::complex<std::uint32_t>, COMPLEX_UINT32, true);
VX_VELTRADATA_ELEMENT(std::complex<std::int64_t>, COMPLEX_INT64, true);
VX_VELTRADATA_ELEMENT(std::complex<std::uint64_t>, COMPLEX_UINT64, true);
VX_VELTRADATA_ELEMENT(Array, CELL, false);
VX_VELTRADATA_ELEMENT(StructElement, STRUCT, false);
VX_VELTRADATA_ELEMENT(ValueObject, VALUE_OBJECT, false);
VX_VELTRADATA_ELEMENT(HandleObjectRef, HANDLE_OBJECT_REF, false);
VX_VELTRADATA_ELEMENT(Enumeration, ENUM, false);
#undef VX_VELTRADATA_ELEMENT

struct ArrayAccess;

}  // namespace detail

// The element types of rows 1 to 29 of ArrayType.
template <class T>
concept ArrayElement = requires {
    detail::ElementType<T>::value;
};

// The ArrayType whose elements are T.
template <ArrayElement T>
inline constexpr ArrayType arrayTypeOf = detail::ElementType<T>::value;

// A host array. Copies share the elements (an atomic count, constant cost
// whatever the size); every holder is an independent value: writing through
// one holder, or release() on it, detaches that holder first when the storage
// is shared, so no other holder ever sees the change. Elements are stored in
// column-major order (first dimension fastest).
//
// Array() is an empty 0 by 0 DOUBLE array; so is a moved-from array.
//
// Thread safety: distinct holders may be used on distinct threads at once,
// even when they share storage. One holder is not to be used by two threads
// at once when one of them writes.
class Array {
  public:
    Array() noexcept = default;
    Array(const Array& other) noexcept : impl_(other.impl_) { retain(); }
    Array(Array&& other) noexcept : impl_(std::exchange(other.impl_, nullptr)) {}
    Array& operator=(const Array& other) noexcept {
        Array copy(other);
        std::swap(impl_, copy.impl_);
        return *this;
    }
    Array& operator=(Array&& other) noexcept {
        Array moved(std::move(other));
        std::swap(impl_, moved.impl_);
        return *this;
    }
    virtual ~Array();

    // The type of the held data, also on a typed view. An array made by
    // ArrayFactory::createOpaqueArray reports its raw value unchanged.
    ArrayType getType() const noexcept {
        return impl_ ? static_cast<ArrayType>(impl_->type) : ArrayType::DOUBLE;
    }
    std::size_t getNumberOfElements() const noexcept { return impl_ ? impl_->numel : 0; }
    // At least two entries; trailing singleton dimensions beyond the second are dropped.
    std::vector<std::size_t> getDimensions() const;
    bool isEmpty() const noexcept { return getNumberOfElements() == 0; }

    // Element references; see ArrayElementRef for the index rules.
    ArrayElementRef<false> operator[](std::size_t index);
    ArrayElementRef<true> operator[](std::size_t index) const;

    // The contiguous element storage of LOGICAL, CHAR and numeric arrays
    // (types 1, 2, 4 to 23), without copying and without detaching. nullptr
    // for empty arrays and for every other type. The pointer stays valid as
    // long as any holder of this storage lives: a write through another
    // holder detaches that holder and leaves this storage alone. A write
    // through this holder while it is the only one changes the storage in place.
    const void* getReadOnlyData() const noexcept;
    // Bytes per element for the types that getReadOnlyData serves, else 0.
    std::size_t getElementSize() const noexcept;
    // True when both holders share one element storage (test and diagnostics aid).
    bool sharesDataWith(const Array& other) const noexcept {
        return impl_ != nullptr && impl_ == other.impl_;
    }

  protected:
    explicit Array(detail::ArrayImpl* impl) noexcept : impl_(impl) {}
    void retain() const noexcept {
        if (impl_) {
            impl_->refs.fetch_add(1, std::memory_order_relaxed);
        }
    }
    // Gives this holder storage of its own when another holder shares it
    // (or the storage is borrowed).
    void detach() {
        // Acquire pairs with the release of the other holders' counts, so their
        // last reads of the storage happen before this holder writes to it.
        if (impl_ && (impl_->refs.load(std::memory_order_acquire) != 1 || impl_->borrowed)) {
            detachSlow();
        }
    }
    // Hands the element buffer to the caller (a copy when shared) and leaves
    // this holder empty (0 by 0, same type).
    void* releaseBuffer(void (**deleter)(void*));

    detail::ArrayImpl* impl_ = nullptr;

  private:
    void detachSlow();
    friend struct detail::ArrayAccess;
};

namespace detail {

inline void checkType(const Array& array, ArrayType expected) {
    if (array.getType() != expected) {
        throwWrongType(array.getType(), expected);
    }
}

// The library's own door into an Array's storage, for the inline views and
// references. Not for use outside the library's headers.
struct ArrayAccess {
    static ArrayImpl* impl(const Array& array) noexcept { return array.impl_; }
    static Array adopt(ArrayImpl* impl) noexcept { return Array(impl); }
    static void* releaseBuffer(Array& array, void (**deleter)(void*)) {
        return array.releaseBuffer(deleter);
    }
    template <class T>
    static const T* data(const Array& array) {
        checkType(array, ElementType<T>::value);
        return array.impl_ ? static_cast<const T*>(array.impl_->data) : nullptr;
    }
    template <class T>
    static T* mutableData(Array& array) {
        checkType(array, ElementType<T>::value);
        array.detach();
        return array.impl_ ? static_cast<T*>(array.impl_->data) : nullptr;
    }
};

}  // namespace detail

// Element of a struct array: one Array for each field of the array, in the
// array's field order. Reading a field gives a shared copy of its array.
class StructElement {
  public:
    StructElement() = default;
    std::size_t getNumberOfFields() const noexcept { return values_.size(); }
    std::vector<std::string> getFieldNames() const;
    // Throws InvalidFieldNameException for a name the element does not have.
    const Array& operator[](const std::string& fieldName) const;
    // Throws IndexOutOfBoundsException past the last field.
    const Array& operator[](std::size_t fieldIndex) const;

  private:
    friend struct detail::ArrayAccess;
    friend struct StructElementAccess;
    std::shared_ptr<const detail::FieldTable> fields_;
    std::vector<Array> values_;
};

// Element of an enumeration array: the name of its member.
class Enumeration {
  public:
    Enumeration() = default;
    explicit Enumeration(std::string name) : name_(std::move(name)) {}
    const std::string& getName() const noexcept { return name_; }
    friend bool operator==(const Enumeration&, const Enumeration&) = default;

  private:
    std::string name_;
};

// Element of a value object array: an opaque token (0 until set).
class ValueObject {
  public:
    ValueObject() = default;
    explicit ValueObject(std::uint64_t id) : id_(id) {}
    std::uint64_t getId() const noexcept { return id_; }
    friend bool operator==(const ValueObject&, const ValueObject&) = default;

  private:
    std::uint64_t id_ = 0;
};

// Element of a handle object array: an opaque token (0 until set).
class HandleObjectRef {
  public:
    HandleObjectRef() = default;
    explicit HandleObjectRef(std::uint64_t id) : id_(id) {}
    std::uint64_t getId() const noexcept { return id_; }
    friend bool operator==(const HandleObjectRef&, const HandleObjectRef&) = default;

  private:
    std::uint64_t id_ = 0;
};

}  // namespace foundation::veltradata
