// Array storage: allocation, sharing, copy on write and release.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include "foundation/veltradata/shared_memory.h"
#include "internal.h"

namespace foundation::veltradata {

namespace detail {

namespace {

template <class T>
constexpr bool plainElement = ElementType<T>::plain;

template <class... T>
constexpr bool sizesAsDescribed() {
    return ((describe(ElementType<T>::value).elementSize == sizeof(T)) && ...);
}
static_assert(
    sizesAsDescribed<
        bool, char16_t, double, float, std::int8_t, std::uint8_t, std::int16_t, std::uint16_t,
        std::int32_t, std::uint32_t, std::int64_t, std::uint64_t, std::complex<double>,
        std::complex<float>, std::complex<std::int8_t>, std::complex<std::uint8_t>,
        std::complex<std::int16_t>, std::complex<std::uint16_t>, std::complex<std::int32_t>,
        std::complex<std::uint32_t>, std::complex<std::int64_t>, std::complex<std::uint64_t>>(),
    "a plain element takes the bytes its type's description says");

template <class T>
void* allocateTyped(int type, std::size_t count, Fill fill) {
    static_assert(!plainElement<T> || std::is_trivially_copyable_v<T>,
                  "plain elements are copied as bytes");
    constexpr std::size_t header = sizeof(BufferHeader);
    if (count > (std::numeric_limits<std::size_t>::max() - header) / sizeof(T)) {
        throw InvalidDimensionsException("An array of " + std::to_string(count) +
                                         " elements does not fit in memory.");
    }
    if constexpr (plainElement<T>) {
        if (count * sizeof(T) >= shared_memory::kLargeBufferBytes) {
            if (void* large = allocateLarge(count * sizeof(T), fill == Fill::Zeroed)) {
                auto* head = const_cast<BufferHeader*>(headerOf(large));
                *head = BufferHeader{kLargeBufferMagic, type, count};
                return large;
            }
        }
    }
    const std::size_t bytes = header + count * sizeof(T);
    // calloc: new numeric elements read as zero.
    void* raw =
        plainElement<T> && fill == Fill::Zeroed ? std::calloc(1, bytes) : std::malloc(bytes);
    if (raw == nullptr) {
        throw std::bad_alloc();
    }
    auto* head = static_cast<BufferHeader*>(raw);
    head->magic = kBufferMagic;
    head->type = type;
    head->count = count;
    T* data = reinterpret_cast<T*>(static_cast<char*>(raw) + header);
    if constexpr (!plainElement<T>) {
        try {
            std::uninitialized_value_construct_n(data, count);
        } catch (...) {
            std::free(raw);
            throw;
        }
    }
    return data;
}

}  // namespace

const BufferHeader* headerOf(const void* data) noexcept {
    return reinterpret_cast<const BufferHeader*>(static_cast<const char*>(data) -
                                                 sizeof(BufferHeader));
}

void* allocateElements(int type, std::size_t count, Fill fill) {
    return dispatchElement(
        type, [&]<class T>(std::type_identity<T>) { return allocateTyped<T>(type, count, fill); });
}

void freeElementBuffer(void* data) noexcept {
    if (data == nullptr) {
        return;
    }
    auto* head = const_cast<BufferHeader*>(headerOf(data));
    if (head->magic == kLargeBufferMagic) {
        freeLarge(head);
        return;
    }
    if (!isPlain(head->type) && hasStorage(head->type)) {
        dispatchElement(head->type, [&]<class T>(std::type_identity<T>) {
            std::destroy_n(static_cast<T*>(data), head->count);
        });
    }
    std::free(head);
}

std::string describeDims(const std::vector<std::size_t>& dims) {
    std::string text;
    for (std::size_t d : dims) {
        if (!text.empty()) {
            text += 'x';
        }
        text += std::to_string(d);
    }
    return text;
}

std::vector<std::size_t> normalizeDims(std::vector<std::size_t> dims, std::size_t* numel) {
    if (dims.empty()) {
        throw InvalidDimensionsException("A dimension list needs at least one entry.");
    }
    if (dims.size() == 1) {
        dims.insert(dims.begin(), 1);  // n elements as a 1 by n row vector
    }
    while (dims.size() > 2 && dims.back() == 1) {
        dims.pop_back();
    }
    std::size_t count = 1;
    bool zero = false;
    for (std::size_t d : dims) {
        zero = zero || d == 0;
    }
    if (!zero) {
        for (std::size_t d : dims) {
            if (count > std::numeric_limits<std::size_t>::max() / d) {
                throw InvalidDimensionsException("The dimensions " + describeDims(dims) +
                                                 " overflow the element count.");
            }
            count *= d;
        }
    }
    *numel = zero ? 0 : count;
    return dims;
}

ArrayImpl* makeImpl(int type, std::vector<std::size_t> dims, std::size_t numel,
                    std::shared_ptr<const FieldTable> fields) {
    Dims held;
    held = std::move(dims);
    return makeImpl(type, std::move(held), numel, std::move(fields));
}

ArrayImpl* makeImpl(int type, Dims dims, std::size_t numel,
                    std::shared_ptr<const FieldTable> fields) {
    auto impl = std::make_unique<ArrayImpl>();
    impl->type = type;
    impl->dims = std::move(dims);
    impl->numel = numel;
    if (isPlain(type) && numel == 1) {
        impl->data = impl->scalar;  // zeroed with the impl
    } else if (hasStorage(type)) {
        impl->data = allocateElements(type, numel);
        impl->deleter = &freeElementBuffer;
    }
    if (type == static_cast<int>(ArrayType::STRUCT)) {
        impl->fields = fields ? std::move(fields) : makeFieldTable({});
        auto* elements = static_cast<StructElement*>(impl->data);
        for (std::size_t i = 0; i < numel; ++i) {
            StructElementAccess::init(elements[i], impl->fields);
        }
    }
    return impl.release();
}

void destroyImpl(ArrayImpl* impl) noexcept {
    if (impl->data != nullptr && impl->deleter != nullptr) {
        impl->deleter(impl->data);
    }
    delete impl;
}

namespace {

// A copy of the impl's elements in a buffer of the library's own.
void* copyElements(const ArrayImpl& impl) {
    void* copy = allocateElements(impl.type, impl.numel,
                                  isPlain(impl.type) ? Fill::Uninitialised : Fill::Zeroed);
    dispatchElement(impl.type, [&]<class T>(std::type_identity<T>) {
        if constexpr (plainElement<T>) {
            if (impl.numel != 0) {
                std::memcpy(copy, impl.data, impl.numel * sizeof(T));
            }
        } else {
            std::copy_n(static_cast<const T*>(impl.data), impl.numel, static_cast<T*>(copy));
        }
    });
    return copy;
}

}  // namespace

[[noreturn]] void throwWrongType(ArrayType actual, ArrayType expected) {
    throw InvalidArrayTypeException("An array of type " + toString(actual) +
                                    " cannot be viewed as an array of type " + toString(expected) +
                                    ".");
}

[[noreturn]] void throwUnknownDataType(ArrayType type) {
    switch (type) {
        case ArrayType::SPARSE_LOGICAL:
            throw EArrayUnknownDataType("SparseLogical");
        case ArrayType::SPARSE_DOUBLE:
            throw EArrayUnknownDataType("SparseDouble");
        case ArrayType::SPARSE_COMPLEX_DOUBLE:
            throw EArrayUnknownDataType("SparseComplexDouble");
        default:
            throw EArrayUnknownDataType("");
    }
}

[[noreturn]] void throwRangeCount(std::size_t expected, std::size_t given, bool atLeast) {
    throw InvalidDimensionsException("The range holds " + std::string(atLeast ? "more than " : "") +
                                     std::to_string(atLeast ? given - 1 : given) +
                                     " elements but the dimensions call for " +
                                     std::to_string(expected) + ".");
}

std::size_t FieldTable::find(const std::string& name) const {
    if (positions.empty()) {
        auto it = std::find(names.begin(), names.end(), name);
        if (it != names.end()) {
            return static_cast<std::size_t>(it - names.begin());
        }
    } else if (auto it = positions.find(name); it != positions.end()) {
        return it->second;
    }
    throw InvalidFieldNameException("The struct array has no field '" + name +
                                    "'; its fields are " + describe() + ".");
}

std::string FieldTable::describe() const {
    std::string text = "(";
    for (std::size_t i = 0; i < names.size(); ++i) {
        text += (i ? ", " : "") + names[i];
    }
    return text + ")";
}

namespace {

std::shared_ptr<const FieldTable> buildFieldTable(std::vector<std::string> names) {
    auto table = std::make_shared<FieldTable>();
    // Most structs have a handful of fields: a scan of the names beats
    // building a hash table for each of them.
    constexpr std::size_t kScannedFields = 16;
    if (names.size() <= kScannedFields) {
        for (std::size_t i = 0; i < names.size(); ++i) {
            if (std::find(names.begin(), names.begin() + static_cast<std::ptrdiff_t>(i),
                          names[i]) != names.begin() + static_cast<std::ptrdiff_t>(i)) {
                throw InvalidFieldNameException("The field name '" + names[i] +
                                                "' is given more than once.");
            }
        }
    } else {
        for (std::size_t i = 0; i < names.size(); ++i) {
            if (!table->positions.emplace(names[i], i).second) {
                throw InvalidFieldNameException("The field name '" + names[i] +
                                                "' is given more than once.");
            }
        }
    }
    table->names = std::move(names);
    return table;
}

}  // namespace

std::shared_ptr<const FieldTable> makeFieldTable(std::vector<std::string> names) {
    // Programs make structs of the same few field lists over and over; the
    // tables are immutable, so one serves every struct of its list.
    constexpr std::size_t kRemembered = 8;
    thread_local std::array<std::shared_ptr<const FieldTable>, kRemembered> recent;
    thread_local std::size_t next = 0;
    for (const auto& table : recent) {
        if (table && table->names == names) {
            return table;
        }
    }
    auto table = buildFieldTable(std::move(names));
    recent[next] = table;
    next = (next + 1) % kRemembered;
    return table;
}

}  // namespace detail

Array::~Array() {
    if (impl_ != nullptr && impl_->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        detail::destroyImpl(impl_);
    }
}

std::vector<std::size_t> Array::getDimensions() const {
    return impl_ ? impl_->dims.toVector() : std::vector<std::size_t>{0, 0};
}

const void* Array::getReadOnlyData() const noexcept {
    return impl_ && impl_->numel != 0 && detail::isPlain(impl_->type) ? impl_->data : nullptr;
}

std::size_t Array::getElementSize() const noexcept {
    return describe(impl_ ? static_cast<ArrayType>(impl_->type) : ArrayType::DOUBLE).elementSize;
}

void Array::detachSlow() {
    const detail::ArrayImpl& shared = *impl_;
    auto copy = std::make_unique<detail::ArrayImpl>();
    copy->type = shared.type;
    copy->dims = shared.dims;
    copy->numel = shared.numel;
    copy->fields = shared.fields;
    if (detail::isPlain(shared.type) && shared.numel == 1) {
        std::memcpy(copy->scalar, shared.data, getElementSize());
        copy->data = copy->scalar;
    } else if (detail::hasStorage(shared.type)) {
        copy->data = detail::copyElements(shared);
        copy->deleter = &detail::freeElementBuffer;
    }
    Array previous(std::exchange(impl_, copy.release()));  // drops this holder's count
}

void* Array::releaseBuffer(void (**deleter)(void*)) {
    const int type = impl_ ? impl_->type : static_cast<int>(ArrayType::DOUBLE);
    // The emptied holder keeps its type (and a struct array its fields).
    Array emptied(detail::makeImpl(type, detail::Dims(0, 0), 0, impl_ ? impl_->fields : nullptr));
    void* data = nullptr;
    if (impl_ == nullptr) {
        data = detail::allocateElements(type, 0);
        *deleter = &detail::freeElementBuffer;
    } else if (impl_->refs.load(std::memory_order_acquire) == 1 && !impl_->borrowed &&
               impl_->deleter != nullptr) {
        data = std::exchange(impl_->data, nullptr);
        *deleter = std::exchange(impl_->deleter, nullptr);
    } else {
        data = detail::copyElements(*impl_);
        *deleter = &detail::freeElementBuffer;
    }
    std::swap(impl_, emptied.impl_);  // `emptied` now drops the old impl
    return data;
}

std::vector<std::string> StructElement::getFieldNames() const {
    return fields_ ? fields_->names : std::vector<std::string>{};
}

const Array& StructElement::operator[](const std::string& fieldName) const {
    if (!fields_) {
        throw InvalidFieldNameException("The struct element has no field '" + fieldName + "'.");
    }
    return values_[fields_->find(fieldName)];
}

const Array& StructElement::operator[](std::size_t fieldIndex) const {
    if (fieldIndex >= values_.size()) {
        throw IndexOutOfBoundsException("Field index " + std::to_string(fieldIndex) +
                                        " is past the end of a struct element with " +
                                        std::to_string(values_.size()) + " fields.");
    }
    return values_[fieldIndex];
}

std::size_t StructArray::getNumberOfFields() const {
    detail::checkType(*this, ArrayType::STRUCT);
    return impl_->fields->names.size();
}

Range<ForwardIterator, VeltraFieldIdentifier const> StructArray::getFieldNames() const {
    detail::checkType(*this, ArrayType::STRUCT);
    const auto& table = impl_->fields;
    return {ForwardIterator<VeltraFieldIdentifier const>(table, 0),
            ForwardIterator<VeltraFieldIdentifier const>(table, table->names.size())};
}

VeltraFieldIdentifier ForwardIterator<VeltraFieldIdentifier const>::operator*() const {
    if (!table_ || position_ >= table_->names.size()) {
        throw IndexOutOfBoundsException("The field name iterator is past the end.");
    }
    return VeltraFieldIdentifier(table_->names[position_]);
}

}  // namespace foundation::veltradata
