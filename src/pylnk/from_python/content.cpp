#include "from_python/content.h"

#include <cstdint>
#include <vector>

#include "base/shared_arrays.h"
#include "from_python/object_result.h"

namespace pylnk {

namespace vd = foundation::veltradata;

namespace {

vd::Array keyOrValue(H object, MetadataCache& cache) {
    return primitive::pyIsString(object.get()) ? buildStringResult(object.get())
                                               : buildObjectResult(std::move(object), cache);
}

}  // namespace

std::u16string objectToText(python::pyArray* object) {
    if (primitive::pyIsString(object)) {
        return object::get_ustring(object);
    }
    return object::get_ustring(object::pyStr(object).get());
}

vd::Array buildTextRow(python::pyArray* sequence) {
    const size_t count = sequence::pySequenceLength(sequence);
    vd::TypedArray<vd::VELTRAString> texts =
        vd::ArrayFactory().createArray<vd::VELTRAString>({1, count});
    for (size_t i = 0; i < count; ++i) {
        texts[i] = objectToText(sequence::pyGetItem(sequence, i).get());
    }
    return texts;
}

vd::Array buildObjectResultRow(python::pyArray* sequence, MetadataCache& cache) {
    const size_t count = sequence::pySequenceLength(sequence);
    std::vector<vd::Array> results;
    results.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        results.push_back(buildObjectResult(sequence::pyGetItem(sequence, i), cache));
    }
    return vd::ArrayFactory().createCellArray({1, count}, results);
}

vd::Array buildStringResult(python::pyArray* object) {
    vd::ArrayFactory factory;
    vd::StructArray result = factory.createStructArray(
        {1, 1}, {"object", "classProperties", "classMetadata", "scalarData"});
    result[0]["object"] = factory.createScalar(std::uint64_t{0});
    result[0]["classProperties"] = sharedEmptyText();
    result[0]["classMetadata"] = sharedEmptyText();
    result[0]["scalarData"] = factory.createScalar(objectToText(object));
    return result;
}

vd::Array buildDictionaryData(python::pyArray* mapping, MetadataCache& cache) {
    H items = mapping::pyMappingGetItems(mapping);
    const size_t count = sequence::pySequenceLength(items.get());
    std::vector<vd::Array> keys;
    std::vector<vd::Array> values;
    keys.reserve(count);
    values.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        H item = sequence::pyGetItem(items.get(), i);
        keys.push_back(keyOrValue(sequence::pyGetItem(item.get(), 0), cache));
        values.push_back(keyOrValue(sequence::pyGetItem(item.get(), 1), cache));
    }
    vd::ArrayFactory factory;
    vd::StructArray result =
        factory.createStructArray({1, 1}, {"VELTRAPyHost_pyKeyData", "VELTRAPyHost_pyValueData"});
    result[0]["VELTRAPyHost_pyKeyData"] = factory.createCellArray({1, count}, keys);
    result[0]["VELTRAPyHost_pyValueData"] = factory.createCellArray({1, count}, values);
    return result;
}

}  // namespace pylnk
