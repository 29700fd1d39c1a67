// The one dispatch over ArrayType: every switch on an array's type goes here.
#pragma once

#include <utility>

#include "foundation/veltradata/typed_array.h"

namespace foundation::veltradata {

namespace detail {
// Raises EArrayUnknownDataType: kind "SparseLogical", "SparseDouble",
// "SparseComplexDouble" for 30 to 32, empty for anything else.
[[noreturn]] void throwUnknownDataType(ArrayType type);
}  // namespace detail

// Calls visitor(view) with the typed view of the array's type:
//   1 TypedArray<bool>, 2 CharArray, 3 TypedArray<VELTRAString>,
//   4-23 TypedArray<double>, <float>, <int8_t> ... <std::complex<uint64_t>>,
//   24 TypedArray<Array> (cell), 25 StructArray, 27 ValueObjectArray,
//   28 TypedArray<HandleObjectRef>, 29 EnumArray.
// Every other value (30-32, 26, 0, outside 1 to 32) raises EArrayUnknownDataType.
// Every call of the visitor must return the same type.
template <class V>
decltype(auto) visit(const Array& array, V&& visitor) {
    switch (array.getType()) {
        case ArrayType::LOGICAL:
            return std::forward<V>(visitor)(TypedArray<bool>(array));
        case ArrayType::CHAR:
            return std::forward<V>(visitor)(CharArray(array));
        case ArrayType::VELTRA_STRING:
            return std::forward<V>(visitor)(TypedArray<VELTRAString>(array));
        case ArrayType::DOUBLE:
            return std::forward<V>(visitor)(TypedArray<double>(array));
        case ArrayType::SINGLE:
            return std::forward<V>(visitor)(TypedArray<float>(array));
        case ArrayType::INT8:
            return std::forward<V>(visitor)(TypedArray<std::int8_t>(array));
        case ArrayType::UINT8:
            return std::forward<V>(visitor)(TypedArray<std::uint8_t>(array));
        case ArrayType::INT16:
            return std::forward<V>(visitor)(TypedArray<std::int16_t>(array));
        case ArrayType::UINT16:
            return std::forward<V>(visitor)(TypedArray<std::uint16_t>(array));
        case ArrayType::INT32:
            return std::forward<V>(visitor)(TypedArray<std::int32_t>(array));
        case ArrayType::UINT32:
            return std::forward<V>(visitor)(TypedArray<std::uint32_t>(array));
        case ArrayType::INT64:
            return std::forward<V>(visitor)(TypedArray<std::int64_t>(array));
        case ArrayType::UINT64:
            return std::forward<V>(visitor)(TypedArray<std::uint64_t>(array));
        case ArrayType::COMPLEX_DOUBLE:
            return std::forward<V>(visitor)(TypedArray<std::complex<double>>(array));
        case ArrayType::COMPLEX_SINGLE:
            return std::forward<V>(visitor)(TypedArray<std::complex<float>>(array));
        case ArrayType::COMPLEX_INT8:
            return std::forward<V>(visitor)(TypedArray<std::complex<std::int8_t>>(array));
        case ArrayType::COMPLEX_UINT8:
            return std::forward<V>(visitor)(TypedArray<std::complex<std::uint8_t>>(array));
        case ArrayType::COMPLEX_INT16:
            return std::forward<V>(visitor)(TypedArray<std::complex<std::int16_t>>(array));
        case ArrayType::COMPLEX_UINT16:
            return std::forward<V>(visitor)(TypedArray<std::complex<std::uint16_t>>(array));
        case ArrayType::COMPLEX_INT32:
            return std::forward<V>(visitor)(TypedArray<std::complex<std::int32_t>>(array));
        case ArrayType::COMPLEX_UINT32:
            return std::forward<V>(visitor)(TypedArray<std::complex<std::uint32_t>>(array));
        case ArrayType::COMPLEX_INT64:
            return std::forward<V>(visitor)(TypedArray<std::complex<std::int64_t>>(array));
        case ArrayType::COMPLEX_UINT64:
            return std::forward<V>(visitor)(TypedArray<std::complex<std::uint64_t>>(array));
        case ArrayType::CELL:
            return std::forward<V>(visitor)(TypedArray<Array>(array));
        case ArrayType::STRUCT:
            return std::forward<V>(visitor)(StructArray(array));
        case ArrayType::VALUE_OBJECT:
            return std::forward<V>(visitor)(ValueObjectArray(array));
        case ArrayType::HANDLE_OBJECT_REF:
            return std::forward<V>(visitor)(TypedArray<HandleObjectRef>(array));
        case ArrayType::ENUM:
            return std::forward<V>(visitor)(EnumArray(array));
        default:
            break;
    }
    detail::throwUnknownDataType(array.getType());
}

}  // namespace foundation::veltradata
