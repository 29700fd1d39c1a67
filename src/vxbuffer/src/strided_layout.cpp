#include "strided_layout.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <numeric>
#include <stdexcept>

namespace vxbuffer {

std::vector<std::ptrdiff_t> denseStrides(std::span<const std::ptrdiff_t> shape,
                                         std::size_t itemSize, char order) {
    std::vector<std::ptrdiff_t> strides(shape.size());
    auto step = static_cast<std::ptrdiff_t>(itemSize);
    const std::size_t n = shape.size();
    for (std::size_t k = 0; k < n; ++k) {
        const std::size_t d = order == 'F' ? k : n - 1 - k;
        strides[d] = step;
        step *= shape[d];
    }
    return strides;
}

bool isContiguous(std::span<const std::ptrdiff_t> shape, std::span<const std::ptrdiff_t> strides,
                  std::size_t itemSize, char order) {
    const std::size_t n = shape.size();
    if (std::find(shape.begin(), shape.end(), 0) != shape.end()) {
        return true;
    }
    auto step = static_cast<std::ptrdiff_t>(itemSize);
    for (std::size_t k = 0; k < n; ++k) {
        const std::size_t d = order == 'F' ? k : n - 1 - k;
        if (shape[d] > 1 && strides[d] != step) {
            return false;
        }
        step *= shape[d];
    }
    return true;
}

namespace {

// Walks the elements in column-major order: the first dimension is the
// inner loop, the others advance like an odometer.
template <class CopyOne>
void walkColumnMajor(const std::byte* first, std::span<const std::ptrdiff_t> shape,
                     std::span<const std::ptrdiff_t> strides, std::size_t itemSize, std::byte* out,
                     CopyOne copyOne) {
    const std::size_t n = shape.size();
    if (n == 0) {
        copyOne(out, first);
        return;
    }
    std::vector<std::ptrdiff_t> index(n, 0);
    const std::byte* column = first;  // element (0, index[1], ..., index[n-1])
    for (;;) {
        const std::byte* in = column;
        for (std::ptrdiff_t i = 0; i < shape[0]; ++i, in += strides[0], out += itemSize) {
            copyOne(out, in);
        }
        std::size_t d = 1;
        for (; d < n; ++d) {
            if (++index[d] < shape[d]) {
                column += strides[d];
                break;
            }
            column -= strides[d] * (shape[d] - 1);
            index[d] = 0;
        }
        if (d == n) {
            return;
        }
    }
}

// Copies the 2-D slab spanned by dimension 0 (contiguous in the output) and
// dimension m (the one with the smallest input stride) in square tiles, so
// that reads and writes both stay within cache lines already fetched. The
// element-by-element walk above would read every input cache line once per
// output column: a C-ordered matrix would cost as many passes over memory
// as it has columns.
template <std::size_t Size>
void copyTile(const std::byte* in, std::byte* out, std::ptrdiff_t n0, std::ptrdiff_t in0,
              std::ptrdiff_t nm, std::ptrdiff_t inm, std::ptrdiff_t outm) {
    constexpr std::ptrdiff_t kTile = 32;
    for (std::ptrdiff_t i0 = 0; i0 < n0; i0 += kTile) {
        const std::ptrdiff_t rows = std::min(kTile, n0 - i0);
        for (std::ptrdiff_t j0 = 0; j0 < nm; j0 += kTile) {
            const std::ptrdiff_t j1 = std::min(nm, j0 + kTile);
            for (std::ptrdiff_t j = j0; j < j1; ++j) {
                const std::byte* from = in + j * inm + i0 * in0;
                std::byte* to = out + j * outm + i0 * static_cast<std::ptrdiff_t>(Size);
                for (std::ptrdiff_t i = 0; i < rows; ++i, from += in0, to += Size) {
                    std::memcpy(to, from, Size);
                }
            }
        }
    }
}

template <std::size_t Size>
void copyFixed(const std::byte* first, std::span<const std::ptrdiff_t> shape,
               std::span<const std::ptrdiff_t> strides, std::byte* out) {
    const std::size_t n = shape.size();
    // The dimension whose input stride is smallest, if it is not dimension 0.
    std::size_t m = 0;
    std::ptrdiff_t smallest = n > 0 ? std::abs(strides[0]) : 0;
    for (std::size_t d = 1; d < n; ++d) {
        if (shape[d] > 1 && std::abs(strides[d]) < smallest) {
            m = d;
            smallest = std::abs(strides[d]);
        }
    }
    if (m == 0 || shape[0] <= 1) {
        walkColumnMajor(first, shape, strides, Size, out,
                        [](std::byte* to, const std::byte* from) { std::memcpy(to, from, Size); });
        return;
    }
    std::vector<std::ptrdiff_t> outStrides(n);
    std::ptrdiff_t step = static_cast<std::ptrdiff_t>(Size);
    for (std::size_t d = 0; d < n; ++d) {
        outStrides[d] = step;
        step *= shape[d];
    }
    // Odometer over the dimensions other than 0 and m.
    std::vector<std::ptrdiff_t> index(n, 0);
    const std::byte* in = first;
    std::byte* to = out;
    for (;;) {
        copyTile<Size>(in, to, shape[0], strides[0], shape[m], strides[m], outStrides[m]);
        std::size_t d = 1;
        for (; d < n; ++d) {
            if (d == m) {
                continue;
            }
            if (++index[d] < shape[d]) {
                in += strides[d];
                to += outStrides[d];
                break;
            }
            in -= strides[d] * (shape[d] - 1);
            to -= outStrides[d] * (shape[d] - 1);
            index[d] = 0;
        }
        if (d == n) {
            return;
        }
    }
}

}  // namespace

void copyToColumnMajor(const std::byte* first, std::span<const std::ptrdiff_t> shape,
                       std::span<const std::ptrdiff_t> strides, std::size_t itemSize,
                       std::byte* out) {
    if (shape.size() != strides.size()) {
        throw std::invalid_argument("copyToColumnMajor: shape and strides differ in length");
    }
    if (std::find(shape.begin(), shape.end(), 0) != shape.end()) {
        return;
    }
    const std::ptrdiff_t count =
        std::accumulate(shape.begin(), shape.end(), std::ptrdiff_t{1}, std::multiplies<>());
    if (isContiguous(shape, strides, itemSize, 'F')) {
        std::memcpy(out, first, static_cast<std::size_t>(count) * itemSize);
        return;
    }
    // A fixed item size lets the compiler turn each element's copy into one move.
    switch (itemSize) {
        case 1:
            return copyFixed<1>(first, shape, strides, out);
        case 2:
            return copyFixed<2>(first, shape, strides, out);
        case 4:
            return copyFixed<4>(first, shape, strides, out);
        case 8:
            return copyFixed<8>(first, shape, strides, out);
        case 16:
            return copyFixed<16>(first, shape, strides, out);
        default:
            walkColumnMajor(first, shape, strides, itemSize, out,
                            [itemSize](std::byte* to, const std::byte* from) {
                                std::memcpy(to, from, itemSize);
                            });
    }
}

}  // namespace vxbuffer
