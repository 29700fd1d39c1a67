// The index rules behind every element reference.
#include "internal.h"

namespace foundation::veltradata::detail {

void ReferenceImpl::add(std::size_t index) {
    if (count_ == kMaxIndexes) {
        throw IndexOutOfBoundsException("An element reference takes at most " +
                                        std::to_string(kMaxIndexes) + " indexes.");
    }
    indexes_[count_++] = index;
}

std::size_t linearIndex(const ReferenceImpl& impl) {
    const Array& array = impl.array();
    const std::size_t numel = array.getNumberOfElements();
    const std::size_t* indexes = impl.indexes();
    const std::size_t count = impl.count();
    if (count == 1) {
        if (indexes[0] >= numel) {
            throw IndexOutOfBoundsException("Index " + std::to_string(indexes[0]) +
                                            " is past the end of a " +
                                            describeDims(array.getDimensions()) + " array of " +
                                            std::to_string(numel) + " elements.");
        }
        return indexes[0];
    }
    // Subscripts: the last one spans every remaining dimension, subscripts
    // beyond the last dimension range over a singleton.
    static const Dims noDims;
    const ArrayImpl* shared = ArrayAccess::impl(array);
    const Dims& dims = shared ? shared->dims : noDims;
    std::size_t linear = 0;
    std::size_t stride = 1;
    for (std::size_t k = 0; k < count; ++k) {
        std::size_t extent = 1;
        if (k + 1 < count) {
            extent = k < dims.size() ? dims[k] : 1;
        } else {
            for (std::size_t d = k; d < dims.size(); ++d) {
                extent *= dims[d];
            }
        }
        if (indexes[k] >= extent) {
            throw IndexOutOfBoundsException("Subscript " + std::to_string(k + 1) + " (value " +
                                            std::to_string(indexes[k]) + ") is past the end of a " +
                                            describeDims(dims.toVector()) +
                                            " array: it ranges over " + std::to_string(extent) +
                                            (extent == 1 ? " value." : " values."));
        }
        linear += indexes[k] * stride;
        stride *= extent;
    }
    return linear;
}

void throwMissingString() {
    throw MissingStringException(
        "The string element is missing; read it as VELTRAString to test for a missing value.");
}

Array getField(const ReferenceImpl& impl, const std::string& field) {
    const Array& array = impl.array();
    const StructElement* elements = ArrayAccess::data<StructElement>(array);
    const std::size_t index = linearIndex(impl);
    const std::size_t position = ArrayAccess::impl(array)->fields->find(field);
    return StructElementAccess::values(elements[index])[position];
}

void setField(const ReferenceImpl& impl, const std::string& field, const Array& value) {
    Array& array = impl.mutableArray();
    checkType(array, ArrayType::STRUCT);
    // Check everything before detaching: a refused write copies nothing.
    const std::size_t index = linearIndex(impl);
    const std::size_t position = ArrayAccess::impl(array)->fields->find(field);
    Array held(value);  // the value may live inside this very array
    StructElement* elements = ArrayAccess::mutableData<StructElement>(array);
    StructElementAccess::values(elements[index])[position] = std::move(held);
}

void setStructElement(const ReferenceImpl& impl, const StructElement& value) {
    Array& array = impl.mutableArray();
    checkType(array, ArrayType::STRUCT);
    const std::size_t index = linearIndex(impl);
    const auto& ours = ArrayAccess::impl(array)->fields;
    const auto& theirs = StructElementAccess::fields(value);
    const std::vector<std::string> none;
    if (ours != theirs && ours->names != (theirs ? theirs->names : none)) {
        throw InvalidFieldNameException(
            "A struct element with fields " + (theirs ? theirs->describe() : std::string("()")) +
            " cannot be stored in a struct array with fields " + ours->describe() + ".");
    }
    std::vector<Array> values = StructElementAccess::values(value);
    values.resize(ours->names.size());
    StructElement* elements = ArrayAccess::mutableData<StructElement>(array);
    StructElementAccess::values(elements[index]) = std::move(values);
}

}  // namespace foundation::veltradata::detail
