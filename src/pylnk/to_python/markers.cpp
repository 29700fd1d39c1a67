#include "to_python/markers.h"

#include <fl/i18n.h>

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "base/handler_support.h"
#include "to_python/table.h"

namespace pylnk {

namespace vd = foundation::veltradata;

namespace {

vd::Array fieldOf(vd::StructArray& marker, const std::string& name) {
    return marker[0][name];
}

ConversionResult convertObjectAddress(vd::StructArray marker) {
    // The host's own address of an object: used as it is, like every address.
    vd::TypedArray<std::uint64_t> address = fieldOf(marker, "VX_PylnkSP_PyObjectAddress");
    return made(holderOf(reinterpret_cast<python::pyArray*>(std::uint64_t(address[0]))));
}

ConversionResult convertMissingString(vd::StructArray) {
    return made(primitive::pyCreateNone());
}

// The texts of a string array as a tuple, a missing element as None, made
// into the marker's pandas object.
ConversionResult convertTextsWithMissing(vd::TypedArray<vd::VELTRAString> strings, H (*make)(H)) {
    std::vector<H> items;
    items.reserve(strings.getNumberOfElements());
    size_t k = 0;
    for (auto element = strings.begin(); element != strings.end(); ++element, ++k) {
        if (!*element) {
            items.push_back(primitive::pyCreateNone());
            continue;
        }
        const std::u16string text = strings[0][k];
        ConversionResult item = convertTextToPython(text);
        if (!item.object) {
            return item;
        }
        items.push_back(std::move(item.object));
    }
    return made(make(sequence::pyTupleCreate(items)));
}

ConversionResult convertStringArray(vd::StructArray marker) {
    return convertTextsWithMissing(fieldOf(marker, "VX_PylnkSP_StringArray"),
                                   &dataframe::pyCreatePandasSeriesOfDTypeString);
}

ConversionResult convertCategoricalArray(vd::StructArray marker) {
    if (auto failure =
            importFailure(u"pandas", u"VELTRAPyHost::PandasImportFailed", u"categorical")) {
        return *failure;
    }
    return convertTextsWithMissing(fieldOf(marker, "VX_PylnkSP_CategoricalArray"),
                                   &dataframe::pyCreatePandasCategoricalArray);
}

// Eight doubles, as the host's side builds them:
//   0 to 5  year, month, day, hour, minute (whole numbers) and second (with
//           its fraction);
//   6       the time zone flag: 0 for a date without a zone (a naive
//           datetime), any other value for a date in UTC (an aware datetime
//           with tzinfo UTC); the host converts a zoned date to UTC first;
//   7       milliseconds beyond the second, with a fraction kept to the
//           microsecond.
ConversionResult convertDatetime(vd::StructArray marker) {
    vd::TypedArray<double> values = fieldOf(marker, "VX_PylnkSP_Datetime");
    auto at = [&values](size_t k) { return static_cast<double>(values[k]); };
    std::vector<double> components = {at(0), at(1), at(2), at(3), at(4), at(5), at(7)};
    return made(primitive::pyCreateDatetime(components, at(6) != 0.0));
}

// A duration is a number of milliseconds (with a fraction kept to the
// microsecond); datetime.timedelta has no room for NaN or infinities.
ConversionResult convertDuration(vd::StructArray marker) {
    vd::TypedArray<double> values = fieldOf(marker, "VX_PylnkSP_Duration");
    return made(primitive::pyCreateTimedelta(values[0]));
}

ConversionResult convertDictionary(vd::StructArray marker) {
    return guarded([&] {
        vd::TypedArray<vd::Array> keys = fieldOf(marker, "VX_PylnkSP_Dictionary_Keys");
        H dict = mapping::pyCreateDict();
        const size_t count = keys.getNumberOfElements();
        if (count == 0) {
            return made(std::move(dict));
        }
        vd::TypedArray<vd::Array> values = fieldOf(marker, "VX_PylnkSP_Dictionary_Values");
        for (size_t i = 0; i < count; ++i) {
            vd::Array keyArray = keys[i];
            ConversionResult key = convertToPython(std::move(keyArray));
            if (!key.object) {
                return key;
            }
            vd::Array valueArray = values[i];
            ConversionResult value = convertToPython(std::move(valueArray));
            if (!value.object) {
                return value;
            }
            mapping::pyMappingSetKey(dict.get(), key.object.get(), value.object.get());
        }
        return made(std::move(dict));
    });
}

// The host array's shape: "ndims" and the first ndims entries of "dims".
std::vector<size_t> shapeOf(vd::StructArray& inner) {
    vd::TypedArray<std::uint64_t> ndims = fieldOf(inner, "ndims");
    vd::TypedArray<std::uint64_t> dims = fieldOf(inner, "dims");
    std::vector<size_t> shape(ndims[0][0]);
    for (size_t k = 0; k < shape.size(); ++k) {
        shape[k] = static_cast<std::uint64_t>(dims[0][k]);
    }
    return shape;
}

// The arrays of dates and durations come in the host's element order, with
// the host's shape: NumPy element (i, j, ...) is host element (i, j, ...).
ConversionResult convertDatetimeArray(vd::StructArray marker) {
    if (auto failure = importFailure(u"numpy", u"VELTRAPyHost::NumpyImportFailed", u"datetime")) {
        return *failure;
    }
    vd::StructArray inner = fieldOf(marker, "VX_PylnkSP_DatetimeArray");
    // Dates as NumPy reads them ("2024-02-29T10:30:00.125"); "NaT", or a
    // missing element, for not-a-time.
    vd::TypedArray<vd::VELTRAString> texts = fieldOf(inner, "datetimeStr");
    std::vector<std::string> dates;
    dates.reserve(texts.getNumberOfElements());
    for (size_t k = 0; k < texts.getNumberOfElements(); ++k) {
        const vd::VELTRAString text = texts[0][k];
        dates.push_back(text ? std::string(texts[0][k]) : std::string("NaT"));
    }
    const std::vector<size_t> shape = shapeOf(inner);
    return made(primitive::pyCreateDatetime64(dates, dates.size(), shape.size(), shape.data()));
}

// Durations in milliseconds; NaN is NaT.
ConversionResult convertDurationArray(vd::StructArray marker) {
    if (auto failure = importFailure(u"numpy", u"VELTRAPyHost::NumpyImportFailed", u"duration")) {
        return *failure;
    }
    vd::StructArray inner = fieldOf(marker, "VX_PylnkSP_DurationArray");
    vd::TypedArray<double> values = fieldOf(inner, "duration");
    std::vector<double> durations(values.getNumberOfElements());
    for (size_t k = 0; k < durations.size(); ++k) {
        durations[k] = values[0][k];
    }
    const std::vector<size_t> shape = shapeOf(inner);
    return made(primitive::pyCreateTimedelta64(durations.data(), durations.size(), shape.size(),
                                               shape.data()));
}

ConversionResult convertMissingTable(vd::StructArray) {
    if (auto failure = importFailure(u"pandas", u"VELTRAPyHost::PandasImportFailed", u"table")) {
        return *failure;
    }
    H pandas = module::pyCreateModule(u"pandas");
    return made(object::pyInvoke(object::pyGetMember(pandas.get(), "DataFrame").get(), {}, {}));
}

ConversionResult convertFunctionHandle(vd::StructArray marker) {
    const std::u16string name =
        vd::CharArray(fieldOf(marker, "VX_PylnkSP_FunctionHandle")).toUTF16();
    H found;
    try {
        found = pylnk_core::fetch::fetch(name);
    } catch (const pylnk_core::fetch::BadPythonName&) {
        return failedWith(reportOf(u"VELTRAPyHost::FuncHandleType", name));
    } catch (const pylnk_core::fetch::SearchFailure&) {
        return failedWith(reportOf(u"VELTRAPyHost::FuncHandleSearch", name));
    }
    if (!object::pyIsCallable(found.get())) {
        return failedWith(reportOf(u"VELTRAPyHost::FuncHandleNotCallable",
                                   fl::i18n::to_ustring(object::pyGetVXClassName(found.get()))));
    }
    return made(std::move(found));
}

// A char array in a field stands for an absent value. The forms are
// slice(None), slice(start, None, step) and slice(start, stop, step); start
// and stop are uint64, step int64, and any other type raises the array
// layer's exception.
ConversionResult convertSlice(vd::StructArray marker) {
    return guarded([&] {
        H slice = object::pyGetMember(module::pyCreateBuiltinsModule().get(), "slice");
        const vd::Array start = fieldOf(marker, "VX_PylnkSP_start");
        const vd::Array stop = fieldOf(marker, "VX_PylnkSP_stop");
        const vd::Array step = fieldOf(marker, "VX_PylnkSP_step");
        auto absent = [](const vd::Array& value) { return value.getType() == vd::ArrayType::CHAR; };
        using Index = vd::TypedArray<std::uint64_t>;
        using Step = vd::TypedArray<std::int64_t>;
        std::vector<std::optional<vd::Array>> arguments;
        if (!absent(stop)) {
            arguments = {Index(start), Index(stop), Step(step)};
        } else if (absent(start) || absent(step)) {
            arguments = {std::nullopt};
        } else {
            arguments = {Index(start), std::nullopt, Step(step)};
        }
        std::vector<H> objects;
        for (std::optional<vd::Array>& argument : arguments) {
            if (!argument) {
                objects.push_back(primitive::pyCreateNone());
                continue;
            }
            ConversionResult number = convertToPython(std::move(*argument));
            if (!number.object) {
                return number;
            }
            objects.push_back(std::move(number.object));
        }
        H tuple = sequence::pyTupleCreate(objects);
        return made(object::pyInvoke(slice.get(), tuple.get(), nullptr));
    });
}

// The order of the search: the first marker a struct has decides, whatever
// its other fields.
constexpr std::array<std::pair<const char*, MarkerConversion>, 13> kMarkers = {{
    {"VX_PylnkSP_PyObjectAddress", &convertObjectAddress},
    {"VX_PylnkSP_MissingString", &convertMissingString},
    {"VX_PylnkSP_StringArray", &convertStringArray},
    {"VX_PylnkSP_Datetime", &convertDatetime},
    {"VX_PylnkSP_Duration", &convertDuration},
    {"VX_PylnkSP_Dictionary_Keys", &convertDictionary},
    {"VX_PylnkSP_DatetimeArray", &convertDatetimeArray},
    {"VX_PylnkSP_DurationArray", &convertDurationArray},
    {"VX_PylnkSP_MissingVELTRATable", &convertMissingTable},
    {"VX_PylnkSP_VELTRATableAsStruct", &convertTable},
    {"VX_PylnkSP_CategoricalArray", &convertCategoricalArray},
    {"VX_PylnkSP_FunctionHandle", &convertFunctionHandle},
    {"VX_PylnkSP_stop", &convertSlice},
}};

}  // namespace

MarkerConversion markerConversionOf(const std::vector<std::string>& fieldNames) {
    for (const auto& [name, conversion] : kMarkers) {
        if (std::find(fieldNames.begin(), fieldNames.end(), name) != fieldNames.end()) {
            return conversion;
        }
    }
    return nullptr;
}

}  // namespace pylnk
