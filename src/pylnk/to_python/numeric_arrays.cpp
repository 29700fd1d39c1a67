#include "to_python/numeric_arrays.h"

#include <array>
#include <stdexcept>
#include <type_traits>

#include "base/handler_support.h"
#include "buffer/buffer_bridge.h"

namespace pylnk {

namespace vd = foundation::veltradata;

namespace {

// The real numeric types and their codes in Python's array module; logical
// and complex arrays have none.
template <class T>
constexpr bool kIsComplex = false;
template <class T>
constexpr bool kIsComplex<std::complex<T>> = true;

template <NumericElement T>
H scalarOf(T value) {
    if constexpr (kIsComplex<T>) {
        return primitive::pyCreateComplex(value.real(), value.imag());
    } else if constexpr (std::is_floating_point_v<T>) {
        return primitive::pyCreateFloat(value);
    } else if constexpr (std::is_same_v<T, std::uint64_t>) {
        return primitive::pyCreateULong(value);
    } else if constexpr (std::is_same_v<T, std::int64_t> || std::is_same_v<T, std::uint32_t>) {
        return primitive::pyCreateLong(value);
    } else {
        return primitive::pyCreateInt(value);
    }
}

}  // namespace

std::optional<vd::ArrayType> realTypeOfCode(char code) {
    for (vd::ArrayType type : vd::kArrayTypes) {
        if (code != 0 && typeCodeOf(type) == code) {
            return type;
        }
    }
    return std::nullopt;
}

char typeCodeOf(vd::ArrayType type) {
    // The array module's codes are the buffer protocol's one-letter ones.
    const vd::TypeDescription described = vd::describe(type);
    return described.numeric && !described.complex ? described.bufferFormat[0] : 0;
}

template <NumericElement T>
ConversionResult convertNumericArray(vd::TypedArray<T> array) {
    const size_t count = array.getNumberOfElements();
    if (count == 1) {
        return guarded([&] { return made(scalarOf<T>(array[0])); });
    }
    const std::vector<size_t> dims = array.getDimensions();
    const bool vectorOrEmpty = dims.size() < 3 && (dims[0] < 2 || dims[1] < 2);
    if (!vectorOrEmpty) {
        return guarded([&] { return made(createBufferFromArray(array)); });
    }
    if constexpr (kIsComplex<T>) {
        // array.array has no complex items: complex vectors stand on the
        // host's storage as well.
        return made(createBufferFromArray(array));
    } else {
        // The storage is read in place, so the array.array's copy is the only one.
        return guarded([&] {
            return made(
                primitive::pyCreateNumericArray(count * sizeof(T), typeCodeOf(vd::arrayTypeOf<T>),
                                                const_cast<void*>(array.getReadOnlyData())));
        });
    }
}

template ConversionResult convertNumericArray(vd::TypedArray<double>);
template ConversionResult convertNumericArray(vd::TypedArray<float>);
template ConversionResult convertNumericArray(vd::TypedArray<std::int8_t>);
template ConversionResult convertNumericArray(vd::TypedArray<std::uint8_t>);
template ConversionResult convertNumericArray(vd::TypedArray<std::int16_t>);
template ConversionResult convertNumericArray(vd::TypedArray<std::uint16_t>);
template ConversionResult convertNumericArray(vd::TypedArray<std::int32_t>);
template ConversionResult convertNumericArray(vd::TypedArray<std::uint32_t>);
template ConversionResult convertNumericArray(vd::TypedArray<std::int64_t>);
template ConversionResult convertNumericArray(vd::TypedArray<std::uint64_t>);
template ConversionResult convertNumericArray(vd::TypedArray<std::complex<double>>);
template ConversionResult convertNumericArray(vd::TypedArray<std::complex<float>>);

ConversionResult convertLogicalArray(vd::TypedArray<bool> array) {
    return guarded([&] {
        // Logical arrays have no type code: every shape but a scalar is a buffer.
        if (array.getNumberOfElements() == 1) {
            return made(primitive::pyCreateBool(array[0]));
        }
        return made(createBufferFromArray(array));
    });
}

// The byte count and the type code are the host's; they are checked against
// the data, so that no request reads past it.
VX_COMMAND(pyCreateNumericArrayHandler, "pyCreateNumericArray", 3) {
    const std::uint64_t byteCount = scalarArg<std::uint64_t>(prhs, 0);
    const char typeCode = static_cast<char>(scalarArg<std::uint8_t>(prhs, 1));
    const vd::Array& data = prhs[2];
    // Sparse and unknown types raise the array layer's EArrayUnknownDataType.
    vd::visit(data, [](const auto&) {});
    const size_t elementSize = data.getElementSize();
    if (elementSize == 0) {
        throw std::invalid_argument(
            "pyCreateNumericArray takes numeric, logical or char data, not " +
            vd::toString(data.getType()) + ".");
    }
    const std::optional<vd::ArrayType> itemType = realTypeOfCode(typeCode);
    if (!itemType) {
        throw std::invalid_argument(std::string("pyCreateNumericArray: type code '") + typeCode +
                                    "' is not one of dfbBhHiIqQ.");
    }
    const size_t available = data.getNumberOfElements() * elementSize;
    const size_t itemSize = vd::describe(*itemType).elementSize;
    if (byteCount > available || byteCount % itemSize != 0) {
        throw std::invalid_argument(
            "pyCreateNumericArray: " + std::to_string(byteCount) + " bytes of type code '" +
            typeCode + "' (items of " + std::to_string(itemSize) + " bytes) from data of " +
            std::to_string(available) +
            " bytes; the count must be a whole number of items within the data.");
    }
    reply(promise, objectAddress(primitive::pyCreateNumericArray(
                       byteCount, typeCode, const_cast<void*>(data.getReadOnlyData()))));
}

}  // namespace pylnk
