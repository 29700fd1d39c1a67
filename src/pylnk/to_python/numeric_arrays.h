// Numeric and logical host arrays into Python: a scalar for one element, an
// array.array (one copy) for vectors and empty arrays, and a buffer object
// over the host's own storage (no copy) for everything else.
#pragma once

#include <complex>
#include <concepts>
#include <cstdint>

#include <optional>

#include "contracts/host_array.h"
#include "to_python/convert_to_python.h"

namespace pylnk {

// The element types of ArrayType 4 to 15.
template <class T>
concept NumericElement = std::same_as<T, double> || std::same_as<T, float> ||
    std::same_as<T, std::int8_t> || std::same_as<T, std::uint8_t> ||
    std::same_as<T, std::int16_t> || std::same_as<T, std::uint16_t> ||
    std::same_as<T, std::int32_t> || std::same_as<T, std::uint32_t> ||
    std::same_as<T, std::int64_t> || std::same_as<T, std::uint64_t> ||
    std::same_as<T, std::complex<double>> || std::same_as<T, std::complex<float>>;

template <NumericElement T>
ConversionResult convertNumericArray(foundation::veltradata::TypedArray<T> array);
ConversionResult convertLogicalArray(foundation::veltradata::TypedArray<bool> array);

// The real numeric host type of the items that Python's array module keeps
// under a fixed-width type code ('d', 'f', 'b', 'B', 'h', 'H', 'i', 'I', 'q',
// 'Q'); none for any other character.
std::optional<foundation::veltradata::ArrayType> realTypeOfCode(char code);
// The array module's type code of a real numeric type; 0 for every other type.
char typeCodeOf(foundation::veltradata::ArrayType type);

// A new array.array from a byte count, a type code and the data of any
// numeric, logical or char array.

}  // namespace pylnk
