// Storage internals shared by the library's sources.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "foundation/veltradata.h"

namespace foundation::veltradata {

namespace detail {

struct FieldTable {
    std::vector<std::string> names;
    // Filled only for structs with many fields; a few are found by a scan.
    std::unordered_map<std::string, std::size_t> positions;

    // Position of a field, or throws InvalidFieldNameException.
    std::size_t find(const std::string& name) const;
    std::string describe() const;  // "(a, b, c)" for messages
};

std::shared_ptr<const FieldTable> makeFieldTable(std::vector<std::string> names);

// Types with element storage (and a typed view), and those stored as raw bytes.
inline bool hasStorage(int type) noexcept {
    return (type >= 1 && type <= 25) || (type >= 27 && type <= 29);
}
inline bool isPlain(int type) noexcept {
    return describe(static_cast<ArrayType>(type)).elementSize != 0;
}

// Calls f(std::type_identity<T>{}) for the element type T of a type with storage.
template <class F>
decltype(auto) dispatchElement(int type, F&& f) {
    using std::type_identity;
    switch (static_cast<ArrayType>(type)) {
        case ArrayType::LOGICAL:
            return f(type_identity<bool>{});
        case ArrayType::CHAR:
            return f(type_identity<char16_t>{});
        case ArrayType::VELTRA_STRING:
            return f(type_identity<VELTRAString>{});
        case ArrayType::DOUBLE:
            return f(type_identity<double>{});
        case ArrayType::SINGLE:
            return f(type_identity<float>{});
        case ArrayType::INT8:
            return f(type_identity<std::int8_t>{});
        case ArrayType::UINT8:
            return f(type_identity<std::uint8_t>{});
        case ArrayType::INT16:
            return f(type_identity<std::int16_t>{});
        case ArrayType::UINT16:
            return f(type_identity<std::uint16_t>{});
        case ArrayType::INT32:
            return f(type_identity<std::int32_t>{});
        case ArrayType::UINT32:
            return f(type_identity<std::uint32_t>{});
        case ArrayType::INT64:
            return f(type_identity<std::int64_t>{});
        case ArrayType::UINT64:
            return f(type_identity<std::uint64_t>{});
        case ArrayType::COMPLEX_DOUBLE:
            return f(type_identity<std::complex<double>>{});
        case ArrayType::COMPLEX_SINGLE:
            return f(type_identity<std::complex<float>>{});
        case ArrayType::COMPLEX_INT8:
            return f(type_identity<std::complex<std::int8_t>>{});
        case ArrayType::COMPLEX_UINT8:
            return f(type_identity<std::complex<std::uint8_t>>{});
        case ArrayType::COMPLEX_INT16:
            return f(type_identity<std::complex<std::int16_t>>{});
        case ArrayType::COMPLEX_UINT16:
            return f(type_identity<std::complex<std::uint16_t>>{});
        case ArrayType::COMPLEX_INT32:
            return f(type_identity<std::complex<std::int32_t>>{});
        case ArrayType::COMPLEX_UINT32:
            return f(type_identity<std::complex<std::uint32_t>>{});
        case ArrayType::COMPLEX_INT64:
            return f(type_identity<std::complex<std::int64_t>>{});
        case ArrayType::COMPLEX_UINT64:
            return f(type_identity<std::complex<std::uint64_t>>{});
        case ArrayType::CELL:
            return f(type_identity<Array>{});
        case ArrayType::STRUCT:
            return f(type_identity<StructElement>{});
        case ArrayType::VALUE_OBJECT:
            return f(type_identity<ValueObject>{});
        case ArrayType::HANDLE_OBJECT_REF:
            return f(type_identity<HandleObjectRef>{});
        case ArrayType::ENUM:
            return f(type_identity<Enumeration>{});
        default:
            break;
    }
    throw InvalidArgumentException("Arrays of type " + toString(static_cast<ArrayType>(type)) +
                                   " have no element storage.");
}

// Element buffers carry a header with their type and count, so that the one
// deleter destroys class-type elements correctly and createArrayFromBuffer
// can check a buffer it is given.
struct alignas(16) BufferHeader {
    std::uint32_t magic;
    std::int32_t type;
    std::uint64_t count;
};
inline constexpr std::uint32_t kBufferMagic = 0x56584231u;
// A large buffer: pages of its own, in anonymous or shareable memory
// (large_buffers.cpp).
inline constexpr std::uint32_t kLargeBufferMagic = 0x56584232u;

inline bool madeHere(const BufferHeader* head) noexcept {
    return head->magic == kBufferMagic || head->magic == kLargeBufferMagic;
}

// Zeroed (plain types) or default-constructed elements; never null.
// Uninitialised skips the zeroing of plain elements, for callers that write
// every element before anyone reads it.
enum class Fill { Zeroed, Uninitialised };
void* allocateElements(int type, std::size_t count, Fill fill = Fill::Zeroed);
void freeElementBuffer(void* data) noexcept;
const BufferHeader* headerOf(const void* data) noexcept;

// Large buffers: `bytes` of elements with their header in front; the data
// pointer comes back, or nullptr when no such memory can be had (the caller
// then takes the heap's).
void* allocateLarge(std::size_t bytes, bool zeroed);
void freeLarge(BufferHeader* head) noexcept;

// A new, unshared impl with fresh storage for types that have it (zeroed or
// default-constructed elements).
ArrayImpl* makeImpl(int type, std::vector<std::size_t> dims, std::size_t numel,
                    std::shared_ptr<const FieldTable> fields = nullptr);
ArrayImpl* makeImpl(int type, Dims dims, std::size_t numel,
                    std::shared_ptr<const FieldTable> fields = nullptr);
// Copy of the dimensions in canonical form, with their element count.
std::vector<std::size_t> normalizeDims(std::vector<std::size_t> dims, std::size_t* numel);
std::string describeDims(const std::vector<std::size_t>& dims);  // "2x3"

}  // namespace detail

struct StructElementAccess {
    static void init(StructElement& element,
                     const std::shared_ptr<const detail::FieldTable>& fields) {
        element.fields_ = fields;
        element.values_.assign(fields ? fields->names.size() : 0, Array());
    }
    static const std::shared_ptr<const detail::FieldTable>& fields(const StructElement& element) {
        return element.fields_;
    }
    static std::vector<Array>& values(StructElement& element) { return element.values_; }
    static const std::vector<Array>& values(const StructElement& element) {
        return element.values_;
    }
};

}  // namespace foundation::veltradata
