// Shape and strides of a buffer: contiguity tests and the one copy into
// column-major order. Python-free, shared by every build of the extension.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace vxbuffer {

// Strides of a dense array in column-major ('F') or row-major ('C') order.
std::vector<std::ptrdiff_t> denseStrides(std::span<const std::ptrdiff_t> shape,
                                         std::size_t itemSize, char order);

// Whether the elements lie densely in that order. As in the buffer protocol,
// dimensions of extent 1 don't count and empty data is contiguous in both,
// so 0-d and dense 1-d data are both orders at once.
bool isContiguous(std::span<const std::ptrdiff_t> shape, std::span<const std::ptrdiff_t> strides,
                  std::size_t itemSize, char order);

// Copies every element of the strided buffer at `first` (the address of
// element 0, strides may be negative) to `out` in column-major order.
void copyToColumnMajor(const std::byte* first, std::span<const std::ptrdiff_t> shape,
                       std::span<const std::ptrdiff_t> strides, std::size_t itemSize,
                       std::byte* out);

}  // namespace vxbuffer
