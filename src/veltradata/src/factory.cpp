// ArrayFactory: making arrays, buffers, and arrays over buffers.
#include <algorithm>
#include <cstring>

#include "internal.h"

namespace foundation::veltradata {

namespace {

using detail::ArrayAccess;

void requireMakeable(int type, const char* operation) {
    const bool sparse = type >= static_cast<int>(ArrayType::SPARSE_LOGICAL) &&
                        type <= static_cast<int>(ArrayType::SPARSE_COMPLEX_DOUBLE);
    if (!detail::hasStorage(type) && !sparse) {
        throw InvalidArgumentException(std::string(operation) + " cannot make an array of type " +
                                       toString(static_cast<ArrayType>(type)) + ".");
    }
}

TypedArray<VELTRAString> stringScalar(VELTRAString value) {
    Array array = ArrayAccess::adopt(
        detail::makeImpl(static_cast<int>(ArrayType::VELTRA_STRING), detail::Dims(1, 1), 1));
    TypedArray<VELTRAString> result(std::move(array));
    ArrayAccess::mutableData<VELTRAString>(result)[0] = std::move(value);
    return result;
}

// Reorders a row-major buffer (last subscript fastest) into column-major order.
template <class T>
void rowToColumnMajor(const T* in, T* out, const std::vector<std::size_t>& dims,
                      std::size_t numel) {
    const std::size_t rank = dims.size();
    std::vector<std::size_t> rowStride(rank, 1);
    for (std::size_t k = rank - 1; k-- > 0;) {
        rowStride[k] = rowStride[k + 1] * dims[k + 1];
    }
    std::vector<std::size_t> subscript(rank, 0);
    std::size_t offset = 0;  // row-major offset of `subscript`
    for (std::size_t c = 0; c < numel; ++c) {
        out[c] = in[offset];
        for (std::size_t k = 0; k < rank; ++k) {  // column-major odometer
            if (++subscript[k] < dims[k]) {
                offset += rowStride[k];
                break;
            }
            offset -= (dims[k] - 1) * rowStride[k];
            subscript[k] = 0;
        }
    }
}

}  // namespace

ArrayFactory::ArrayFactory() = default;
ArrayFactory::~ArrayFactory() = default;

Array detail::makeRow(ArrayType type, std::size_t columns) {
    const int raw = static_cast<int>(type);
    requireMakeable(raw, "createArray");
    return ArrayAccess::adopt(detail::makeImpl(raw, detail::Dims(1, columns), columns));
}

Array ArrayFactory::createArray(ArrayType type, std::vector<std::size_t> dims) const {
    const int raw = static_cast<int>(type);
    requireMakeable(raw, "createArray");
    std::size_t numel = 0;
    dims = detail::normalizeDims(std::move(dims), &numel);
    return ArrayAccess::adopt(detail::makeImpl(raw, std::move(dims), numel));
}

TypedArray<VELTRAString> ArrayFactory::createScalar(const char* text) const {
    if (text == nullptr) {
        throw InvalidArgumentException("createScalar was given a null text pointer.");
    }
    return stringScalar(utf8ToUtf16(text));
}

TypedArray<VELTRAString> ArrayFactory::createScalar(const std::string& text) const {
    return stringScalar(utf8ToUtf16(text));
}

TypedArray<VELTRAString> ArrayFactory::createScalar(const char16_t* text) const {
    if (text == nullptr) {
        throw InvalidArgumentException("createScalar was given a null text pointer.");
    }
    return stringScalar(std::u16string(text));
}

TypedArray<VELTRAString> ArrayFactory::createScalar(const std::u16string& text) const {
    return stringScalar(text);
}

TypedArray<VELTRAString> ArrayFactory::createScalar(const VELTRAString& value) const {
    return stringScalar(value);
}

CharArray ArrayFactory::createCharArray(const std::string& text) const {
    return createCharArray(utf8ToUtf16(text));
}

CharArray ArrayFactory::createCharArray(const std::u16string& text) const {
    CharArray result(detail::makeRow(ArrayType::CHAR, text.size()));
    if (!text.empty()) {
        std::memcpy(ArrayAccess::mutableData<char16_t>(result), text.data(),
                    text.size() * sizeof(char16_t));
    }
    return result;
}

StructArray ArrayFactory::createStructArray(std::vector<std::size_t> dims,
                                            std::vector<std::string> fieldNames) const {
    std::size_t numel = 0;
    dims = detail::normalizeDims(std::move(dims), &numel);
    auto fields = detail::makeFieldTable(std::move(fieldNames));
    return StructArray(ArrayAccess::adopt(detail::makeImpl(
        static_cast<int>(ArrayType::STRUCT), std::move(dims), numel, std::move(fields))));
}

TypedArray<Array> ArrayFactory::createCellArray(std::vector<std::size_t> dims,
                                                const std::vector<Array>& elements) const {
    TypedArray<Array> result(createArray(ArrayType::CELL, std::move(dims)));
    if (elements.size() != result.getNumberOfElements()) {
        throw InvalidDimensionsException(
            "A " + detail::describeDims(result.getDimensions()) + " cell array holds " +
            std::to_string(result.getNumberOfElements()) + " elements, but " +
            std::to_string(elements.size()) + " were given.");
    }
    std::copy(elements.begin(), elements.end(), ArrayAccess::mutableData<Array>(result));
    return result;
}

Array ArrayFactory::createEmptyArray() const {
    return Array();
}

std::unique_ptr<void, void (*)(void*)> ArrayFactory::createBuffer(ArrayType type,
                                                                  std::size_t count) const {
    const int raw = static_cast<int>(type);
    if (!detail::hasStorage(raw)) {
        throw InvalidArgumentException("createBuffer cannot make a buffer of type " +
                                       toString(type) + ".");
    }
    return {detail::allocateElements(raw, count), &detail::freeElementBuffer};
}

std::unique_ptr<void, void (*)(void*)> ArrayFactory::createUninitialisedBuffer(
    ArrayType type, std::size_t count) const {
    const int raw = static_cast<int>(type);
    if (!detail::isPlain(raw)) {
        throw InvalidArgumentException("createUninitialisedBuffer cannot make a buffer of type " +
                                       toString(type) + ".");
    }
    return {detail::allocateElements(raw, count, detail::Fill::Uninitialised),
            &detail::freeElementBuffer};
}

void ArrayFactory::createBuffer(void** buffer, void (**deleter)(void*), int type,
                                std::size_t count) const {
    if (buffer == nullptr || deleter == nullptr) {
        throw InvalidArgumentException("createBuffer was given a null output pointer.");
    }
    auto made = createBuffer(static_cast<ArrayType>(type), count);
    *deleter = made.get_deleter();
    *buffer = made.release();
}

Array ArrayFactory::createArrayFromBuffer(std::vector<std::size_t> dims, ArrayType type,
                                          std::unique_ptr<void, void (*)(void*)> buffer,
                                          MemoryLayout layout) const {
    const int raw = static_cast<int>(type);
    if (!detail::hasStorage(raw)) {
        throw InvalidArgumentException("createArrayFromBuffer cannot make an array of type " +
                                       toString(type) + ".");
    }
    if (layout != MemoryLayout::COLUMN_MAJOR && layout != MemoryLayout::ROW_MAJOR) {
        throw InvalidArgumentException("Unknown memory layout " +
                                       std::to_string(static_cast<int>(layout)) + ".");
    }
    std::size_t numel = 0;
    dims = detail::normalizeDims(std::move(dims), &numel);
    if (buffer == nullptr) {
        if (numel != 0) {
            throw InvalidBufferException("A null buffer cannot hold the " + std::to_string(numel) +
                                         " elements of a " + detail::describeDims(dims) +
                                         " array.");
        }
        return ArrayAccess::adopt(detail::makeImpl(raw, std::move(dims), 0));
    }
    if (buffer.get_deleter() == nullptr) {
        throw InvalidBufferException("A buffer handed to createArrayFromBuffer needs a deleter.");
    }
    if (buffer.get_deleter() == &detail::freeElementBuffer) {
        const detail::BufferHeader* head = detail::headerOf(buffer.get());
        if (!detail::madeHere(head)) {
            throw InvalidBufferException("The buffer was not made by this library.");
        }
        if (head->type != raw || head->count != numel) {
            throw InvalidBufferException(
                "A buffer of " + std::to_string(head->count) + " elements of type " +
                toString(static_cast<ArrayType>(head->type)) + " cannot become a " +
                detail::describeDims(dims) + " array of type " + toString(type) + ".");
        }
    } else if (!detail::isPlain(raw)) {
        throw InvalidBufferException("Arrays of type " + toString(type) +
                                     " take only buffers made by createBuffer or release.");
    }

    auto impl = std::make_unique<detail::ArrayImpl>();
    impl->type = raw;
    impl->numel = numel;
    if (type == ArrayType::STRUCT) {
        // Elements of a buffer carry no field table: only field-less structs fit.
        impl->fields = detail::makeFieldTable({});
        auto* elements = static_cast<StructElement*>(buffer.get());
        for (std::size_t i = 0; i < numel; ++i) {
            if (StructElementAccess::fields(elements[i]) &&
                !StructElementAccess::fields(elements[i])->names.empty()) {
                throw InvalidBufferException(
                    "Struct elements with fields cannot be taken over from a buffer.");
            }
            StructElementAccess::init(elements[i], impl->fields);
        }
    }
    if (type == ArrayType::LOGICAL) {
        // Any byte other than 0 or 1 would not be a valid bool.
        auto* bytes = static_cast<unsigned char*>(buffer.get());
        for (std::size_t i = 0; i < numel; ++i) {
            bytes[i] = bytes[i] != 0 ? 1 : 0;
        }
    }
    if (layout == MemoryLayout::ROW_MAJOR && numel > 1) {
        void* reordered = detail::allocateElements(raw, numel);
        std::unique_ptr<void, void (*)(void*)> guard(reordered, &detail::freeElementBuffer);
        detail::dispatchElement(raw, [&]<class T>(std::type_identity<T>) {
            rowToColumnMajor(static_cast<const T*>(buffer.get()), static_cast<T*>(reordered), dims,
                             numel);
        });
        buffer = std::move(guard);
    }
    impl->dims = std::move(dims);
    impl->deleter = buffer.get_deleter();
    impl->data = buffer.release();
    return ArrayAccess::adopt(impl.release());
}

Array ArrayFactory::createOpaqueArray(int rawType, std::vector<std::size_t> dims) const {
    if (detail::hasStorage(rawType)) {
        throw InvalidArgumentException("createOpaqueArray refuses type " +
                                       toString(static_cast<ArrayType>(rawType)) +
                                       ", which has a typed view.");
    }
    std::size_t numel = 0;
    dims = detail::normalizeDims(std::move(dims), &numel);
    return ArrayAccess::adopt(detail::makeImpl(rawType, std::move(dims), numel));
}

namespace standalone {
ArrayFactory::ArrayFactory() = default;
ArrayFactory::~ArrayFactory() = default;
}  // namespace standalone

}  // namespace foundation::veltradata
