#include "to_python/convert_to_python.h"

#include <fl/i18n.h>

#include <algorithm>
#include <stdexcept>
#include <type_traits>

#include "to_python/markers.h"
#include "to_python/numeric_arrays.h"

namespace pylnk {

namespace vd = foundation::veltradata;

ConversionResult made(H object) {
    return ConversionResult{std::move(object), vd::Array()};
}

ConversionResult failedWith(vd::Array failure) {
    return ConversionResult{H(), std::move(failure)};
}

ExtraReference::~ExtraReference() {
    if (object_ != nullptr) {
        managed::pyDeleteObject(object_);
    }
}

std::optional<ConversionResult> importFailure(const std::u16string& moduleName,
                                              std::u16string identifier, std::u16string detail) {
    try {
        module::pyCreateModule(moduleName);
    } catch (const pylnk_core::InternalPyException&) {
        return failedWith(reportOf(std::move(identifier), std::move(detail)));
    }
    return std::nullopt;
}

namespace {

// A missing string as element 0 is the missing value, None. An empty string
// array has no text at all: the host sends a lone missing string as the
// marker VX_PylnkSP_MissingString instead.
ConversionResult convertFirstString(const vd::TypedArray<vd::VELTRAString>& strings) {
    if (strings.isEmpty()) {
        throw std::invalid_argument(
            "A string array with no elements has no text to convert; a missing string is sent "
            "as the marker VX_PylnkSP_MissingString.");
    }
    const vd::VELTRAString& first = *strings.begin();
    if (!first) {
        return guarded([] { return made(primitive::pyCreateNone()); });
    }
    return convertTextToPython(*first);
}

// Cells arrive as row vectors and are read as (0, k).
ConversionResult convertCell(vd::TypedArray<vd::Array> cell) {
    const size_t count = cell.getNumberOfElements();
    std::vector<H> items;
    items.reserve(count);
    for (size_t k = 0; k < count; ++k) {
        vd::Array element = cell[0][k];
        ConversionResult item = convertToPython(std::move(element));
        if (!item.object) {
            return item;
        }
        items.push_back(std::move(item.object));
    }
    return made(sequence::pyTupleCreate(items));
}

}  // namespace

ConversionResult convertToPython(vd::Array array) {
    const int type = static_cast<int>(array.getType());
    // Sparse arrays and type values without a typed view have no Python form.
    if (type < static_cast<int>(vd::ArrayType::LOGICAL) ||
        type > static_cast<int>(vd::ArrayType::STRUCT)) {
        return failedWith(vd::Array());
    }
    return vd::visit(array, [](auto view) -> ConversionResult {
        using Element = typename decltype(view)::element_type;
        if constexpr (std::is_same_v<Element, bool>) {
            return convertLogicalArray(std::move(view));
        } else if constexpr (std::is_same_v<Element, char16_t>) {
            return convertTextToPython(view.toUTF16());
        } else if constexpr (std::is_same_v<Element, vd::VELTRAString>) {
            return convertFirstString(view);
        } else if constexpr (NumericElement<Element>) {
            return convertNumericArray(std::move(view));
        } else if constexpr (std::is_same_v<Element, vd::Array>) {
            return convertCell(std::move(view));
        } else if constexpr (std::is_same_v<Element, vd::StructElement>) {
            return convertStructToPython(std::move(view));
        } else {
            // Complex integers: refused without a message.
            return failedWith(vd::Array());
        }
    });
}

ConversionResult convertTextToPython(const std::u16string& text) {
    return guarded([&] {
        const bool ascii =
            std::all_of(text.begin(), text.end(), [](char16_t unit) { return unit <= 127; });
        return made(ascii ? primitive::pyCreateString(fl::i18n::to_string(text))
                          : primitive::pyCreateString(text));
    });
}

ConversionResult convertStructToPython(vd::StructArray array) {
    if (array.isEmpty()) {
        throw std::invalid_argument(
            "A struct array with no elements cannot be converted: its element 0 is what "
            "becomes the Python object.");
    }
    std::vector<std::string> fieldNames;
    fieldNames.reserve(array.getNumberOfFields());
    for (const auto& name : array.getFieldNames()) {
        fieldNames.push_back(name);
    }
    return guarded([&] {
        if (MarkerConversion marker = markerConversionOf(fieldNames)) {
            return marker(array);
        }
        return convertPlainStruct(array, fieldNames);
    });
}

ConversionResult convertPlainStruct(vd::StructArray array,
                                    const std::vector<std::string>& fieldNames) {
    H dict = mapping::pyCreateDict();
    for (const std::string& name : fieldNames) {
        H key = primitive::pyCreateString(name);
        vd::Array field = array[0][name];
        ConversionResult value = convertToPython(std::move(field));
        if (!value.object) {
            return value;
        }
        mapping::pyMappingSetKey(dict.get(), key.get(), value.object.get());
    }
    return made(std::move(dict));
}

ConversionResult convertKeywordArguments(vd::Array keywords) {
    H dict = mapping::pyCreateDict();
    managed::pyAddReference(dict.get());
    // Given back here on every failure, thrown or returned.
    ExtraReference extra(dict.get());
    const std::optional<vd::Array> failure = convertKeywordPairs(
        vd::StructArray(std::move(keywords)),
        [&](H key, H value) { mapping::pyMappingSetKey(dict.get(), key.get(), value.get()); });
    if (failure) {
        return failedWith(*failure);
    }
    extra.keep();
    return made(std::move(dict));
}

HostCallInput readHostCallInput(vd::Array input) {
    vd::TypedArray<vd::Array> cell(std::move(input));
    return HostCallInput{cell[0], cell[1]};
}

std::optional<vd::Array> convertPositionalValues(const vd::TypedArray<vd::Array>& values,
                                                 std::vector<H>& objects) {
    objects.reserve(objects.size() + values.getNumberOfElements());
    for (const vd::Array& value : values) {
        ConversionResult converted = convertToPython(value);
        if (!converted.object) {
            return std::move(converted.failure);
        }
        objects.push_back(std::move(converted.object));
    }
    return std::nullopt;
}

std::optional<vd::Array> convertKeywordPairs(const vd::StructArray& keywords,
                                             const std::function<void(H key, H value)>& take) {
    const size_t pairs = keywords.getNumberOfFields() / 2;
    for (size_t i = 0; i < pairs; ++i) {
        const std::string index = std::to_string(i);
        ConversionResult key = convertToPython(keywords[0]["kwargKey" + index]);
        if (!key.object) {
            return std::move(key.failure);
        }
        ConversionResult value = convertToPython(keywords[0]["kwargValue" + index]);
        if (!value.object) {
            return std::move(value.failure);
        }
        take(std::move(key.object), std::move(value.object));
    }
    return std::nullopt;
}

}  // namespace pylnk
