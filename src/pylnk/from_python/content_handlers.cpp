
#include <complex>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "base/handler_support.h"
#include "base/shared_arrays.h"
#include "from_python/content.h"
#include "from_python/object_result.h"
#include "to_python/numeric_arrays.h"

namespace pylnk {

namespace vd = foundation::veltradata;

namespace {

// A 1 by count array of that type holding a copy of the data: one copy,
// straight into the storage the array takes over.
vd::Array copiedRow(vd::ArrayType type, const void* data, size_t count, size_t itemSize) {
    vd::ArrayFactory factory;
    auto buffer = factory.createBuffer(type, count);
    if (count > 0) {
        std::memcpy(buffer.get(), data, count * itemSize);
    }
    return factory.createArrayFromBuffer({1, count}, type, std::move(buffer));
}

// One element of a numeric sequence, by the first test that holds; anything
// but a number is the empty string. A failed read leaves the Python error
// set. `complex` is set before a complex number is read.
vd::Array numberOf(python::pyArray* item, bool& complex) {
    vd::ArrayFactory factory;
    if (primitive::pyIsBool(item)) {
        return factory.createScalar(primitive::pyBoolGetData(item));
    }
    if (primitive::pyIsLong(item) || primitive::pyIsInt(item)) {
        long long value = 0;
        primitive::pyLongGetData(item, &value);
        return factory.createScalar(static_cast<std::int64_t>(value));
    }
    if (primitive::pyIsFloat(item)) {
        return factory.createScalar(primitive::pyFloatGetData(item));
    }
    if (primitive::pyIsComplex(item)) {
        complex = true;
        return complexScalarOf(item);
    }
    return factory.createScalar(u"");
}

// The array module's fixed-width code for a buffer's format character: "l"
// and "L" are as wide as the platform's long, which the item size tells.
char fixedWidthCode(char format, long itemSize) {
    if (format != 'l' && format != 'L') {
        return format;
    }
    const bool isSigned = format == 'l';
    if (itemSize == 4) {
        return isSigned ? 'i' : 'I';
    }
    if (itemSize == 8) {
        return isSigned ? 'q' : 'Q';
    }
    return 0;
}

}  // namespace

VX_COMMAND(pyConvertSequenceToCellHandler, "pyConvertSequenceToCell", 1) {
    reply(promise, buildObjectResultRow(addressArg(prhs, 0), classMetadataCache()));
}

// A failed read is a value of the reply, not a failure: its place, and no
// Python error left set.
VX_COMMAND(pyConvertSequenceToNumericArrayHandler, "pyConvertSequenceToNumericArray", 1) {
    python::pyArray* items = addressArg(prhs, 0);
    const size_t count = sequence::pySequenceLength(items);
    vd::ArrayFactory factory;
    vd::StructArray result =
        factory.createStructArray({1, 1}, {"complexity", "values", "exceptionPosition"});
    result[0]["complexity"] = factory.createScalar("REAL");
    result[0]["exceptionPosition"] = factory.createScalar("NA");
    std::vector<vd::Array> values(count);
    bool complex = false;
    for (size_t i = 0; i < count; ++i) {
        H item = sequence::pyGetItem(items, i);
        values[i] = numberOf(item.get(), complex);
        if (complex) {
            result[0]["complexity"] = factory.createScalar("COMPLEX");
        }
        if (exception::pyErrorOccurred()) {
            result[0]["exceptionPosition"] = factory.createScalar(static_cast<std::int64_t>(i));
            exception::pyErrorClear();
            reply(promise, result);
            return;
        }
    }
    result[0]["values"] = factory.createCellArray({1, count}, values);
    reply(promise, result);
}

VX_COMMAND(pyConvertToStringHandler, "pyConvertToString", 1) {
    python::pyArray* target = addressArg(prhs, 0);
    vd::ArrayFactory factory;
    if (!object::pyIsBuiltin(target, "list") && !object::pyIsBuiltin(target, "tuple")) {
        reply(promise, factory.createScalar(objectToText(target)));
        return;
    }
    reply(promise, buildTextRow(target));
}

// A key that is not a str ends the struct with a marker field; the items
// after it are not read.
VX_COMMAND(pyConvertMappingToStructHandler, "pyConvertMappingToStruct", 1) {
    H items = mapping::pyMappingGetItems(addressArg(prhs, 0));
    const size_t count = sequence::pySequenceLength(items.get());
    std::vector<std::string> names;
    std::vector<vd::Array> values;
    for (size_t i = 0; i < count; ++i) {
        H item = sequence::pyGetItem(items.get(), i);
        H key = sequence::pyGetItem(item.get(), 0);
        if (!primitive::pyIsString(key.get())) {
            names.emplace_back("VELTRA::Cell2Struct::NonStringFieldNames");
            values.push_back(sharedEmptyText());
            break;
        }
        names.emplace_back(object::pyGetChars(key.get()));
        values.push_back(
            buildObjectResult(sequence::pyGetItem(item.get(), 1), classMetadataCache()));
    }
    vd::StructArray result = vd::ArrayFactory().createStructArray({1, 1}, names);
    for (size_t i = 0; i < names.size(); ++i) {
        result[0][names[i]] = values[i];
    }
    reply(promise, result);
}

VX_COMMAND(pyConvertMappingToDictionaryHandler, "pyConvertMappingToDictionary", 1) {
    reply(promise, buildDictionaryData(addressArg(prhs, 0), classMetadataCache()));
}

VX_COMMAND(pyDictGetDataHandler, "pyDictGetData", 1) {
    pyConvertMappingToDictionaryHandler().execute(name, nlhs, promise, nrhs, prhs);
}

// An object without contiguous data, or with a format the host has no type
// for, is a stored exception with no Python error left set.
VX_COMMAND(pyNumericConversionHandler, "pyNumericConversion", 1) {
    size_t bytes = 0;
    long itemSize = 0;
    char format = 0;
    void* data = nullptr;
    try {
        primitive::pyNumericArrayGetData(addressArg(prhs, 0), &bytes, &itemSize, &format, &data);
    } catch (const pylnk_core::InternalPyException& failure) {
        exception::pyErrorClear();
        throw std::invalid_argument(
            std::string("pyNumericConversion: the object has no contiguous numeric data (") +
            failure.what() + ").");
    }
    const std::optional<vd::ArrayType> itemType = realTypeOfCode(fixedWidthCode(format, itemSize));
    const std::string described = "the format '" + std::string(format == 0 ? 0 : 1, format) +
                                  "' with items of " + std::to_string(itemSize) + " bytes";
    if (!itemType) {
        throw std::invalid_argument("pyNumericConversion: no host type serves " + described + ".");
    }
    const size_t elementSize = vd::describe(*itemType).elementSize;
    if (bytes % elementSize != 0) {
        throw std::invalid_argument("pyNumericConversion: " + std::to_string(bytes) +
                                    " bytes are no whole number of items of " + described + ".");
    }
    reply(promise, copiedRow(*itemType, data, bytes / elementSize, elementSize));
}

// The text ends at a NUL character, as the narrow text of a C string does.
VX_COMMAND(pyStringGetStringHandler, "pyStringGetString", 1) {
    reply(promise, text(std::string(primitive::pyStringGetData(addressArg(prhs, 0)))));
}

VX_COMMAND(pyStringGetStringArrayHandler, "pyStringGetStringArray", 1) {
    const vd::StructArray addresses(prhs[0]);
    std::vector<std::string> names;
    for (const auto& name : addresses.getFieldNames()) {
        names.emplace_back(name);
    }
    vd::StructArray result = vd::ArrayFactory().createStructArray({1, 1}, names);
    for (const std::string& name : names) {
        vd::Array field = addresses[0][name];
        result[0][name] = text(std::string(primitive::pyStringGetData(addressArg(&field, 0))));
    }
    reply(promise, result);
}

VX_COMMAND(pyGetBytesHandler, "pyGetBytes", 1) {
    const std::string_view bytes = object::get_bytesview(addressArg(prhs, 0));
    reply(promise, copiedRow(vd::ArrayType::UINT8, bytes.data(), bytes.size(), 1));
}

}  // namespace pylnk
