// Python data back to the host: containers one level deep, dates as
// components with NaT flags, a DataFrame column by column, a module
// described, values compared by Python's rules.
#include <complex>
#include <cstdio>

#include "tour.h"

namespace tour {

namespace {

vd::ArrayFactory f;

// The class an object result names: its full description's name, or the
// dotted name of a class the host has met before.
std::string classOf(const vd::Array& result) {
    const vd::Array metadata = fieldOf(result, "classMetadata");
    return metadata.getType() == vd::ArrayType::STRUCT ? textIn(metadata, "name")
                                                       : vd::CharArray(metadata).toAscii();
}

// One element as the host reads it: a copied value, or an object of a class.
std::string element(const vd::Array& result) {
    const vd::Array scalar = fieldOf(result, "scalarData");
    const Address object = remember(vd::TypedArray<std::uint64_t>(fieldOf(result, "object"))[0]);
    if (scalar.getType() == vd::ArrayType::VELTRA_STRING) {
        return shown(scalar);
    }
    if (scalar.getType() == vd::ArrayType::CHAR) {
        const std::string cls = classOf(result);
        const bool vowel = !cls.empty() && std::string("aeiou").find(cls[0]) != std::string::npos;
        return (vowel ? "an " : "a ") + cls + " (object " + std::to_string(object) + ")";
    }
    return shown(scalar);
}

std::string joined(const vd::Array& cells, std::string (*each)(const vd::Array&)) {
    vd::TypedArray<vd::Array> view(cells);
    std::string text;
    for (size_t i = 0; i < view.getNumberOfElements(); ++i) {
        text += (text.empty() ? "" : " | ") + each(view[i]);
    }
    return text;
}

std::string number(const vd::Array& value) {
    if (value.getType() == vd::ArrayType::COMPLEX_DOUBLE) {
        const std::complex<double> z = vd::TypedArray<std::complex<double>>(value)[0];
        return "(" + std::to_string(z.real()) + ", " + std::to_string(z.imag()) + "i)";
    }
    return shown(value);
}

template <class T>
T at(const vd::Array& row, size_t k) {
    return vd::TypedArray<T>(row)[k];
}

void listAndDict() {
    say("A list comes back one level deep (pyConvertSequenceToCell): numbers and truth");
    say("values by value, everything else by address with its class:");
    const Address list = eval("[1.5, True, 'text', [1, 2], 7]");
    say("  " + joined(call("pyConvertSequenceToCell", {addr(list)})[0], element));
    say("pyConvertSequenceToNumericArray reads every element as a number:");
    const vd::Array numbers =
        call("pyConvertSequenceToNumericArray", {addr(eval("[7, 2.5, True, 3 - 4j]"))})[0];
    say("  complexity " + shown(fieldOf(numbers, "complexity")) + ": " +
        joined(fieldOf(numbers, "values"), number));

    const Address dict = eval("{'name': 'Ada', 'born': 1815, 'height': 1.65, 'langs': ['en']}");
    say("A dict (pyConvertMappingToDictionary): keys and values that are text come as text:");
    const vd::Array data = call("pyConvertMappingToDictionary", {addr(dict)})[0];
    vd::TypedArray<vd::Array> keys(fieldOf(data, "VELTRAPyHost_pyKeyData"));
    vd::TypedArray<vd::Array> values(fieldOf(data, "VELTRAPyHost_pyValueData"));
    for (size_t i = 0; i < keys.getNumberOfElements(); ++i) {
        say("  " + element(keys[i]) + " -> " + element(values[i]));
    }
    std::string fields;
    for (const auto& name :
         vd::StructArray(call("pyConvertMappingToStruct", {addr(dict)})[0]).getFieldNames()) {
        fields += (fields.empty() ? "" : ", ") + std::string(name);
    }
    say("The same dict as a struct (pyConvertMappingToStruct): fields " + fields);
}

void datesWithNaT() {
    exec("import numpy\n");
    say("A 2 by 2 NumPy datetime64 array with a NaT (pyDatetimeGetData): components,");
    say("NaT flags and the shape, in the host's column-major element order:");
    const Address dates = eval(
        "numpy.array([['2024-02-29T10:30:15.250', 'NaT'],"
        " ['1969-07-20T20:17:40', '2000-01-01']], dtype='datetime64[ms]')");
    const vd::Array reply = call("pyDatetimeGetData", {addr(dates)})[0];
    const vd::Array parts = fieldOf(reply, "VELTRAPyHost_pyDatetime64ArrayData");
    const vd::Array dims = fieldOf(reply, "dims");
    const auto rows = static_cast<size_t>(at<std::int64_t>(dims, 0));
    say("  ndims " + shown(fieldOf(reply, "ndims")) + ", dims " +
        std::to_string(at<std::int64_t>(dims, 0)) + " by " +
        std::to_string(at<std::int64_t>(dims, 1)));
    const vd::Array nat = fieldOf(reply, "NaT_indices");
    for (size_t k = 0; k < nat.getNumberOfElements(); ++k) {
        const std::string place =
            "(" + std::to_string(k % rows + 1) + "," + std::to_string(k / rows + 1) + ") ";
        if (at<bool>(nat, k)) {
            say("  " + place + "NaT");
            continue;
        }
        char text[64];
        std::snprintf(text, sizeof text, "%04lld-%02lld-%02lld %02lld:%02lld:%02.0f.%03.0f",
                      static_cast<long long>(at<std::int64_t>(fieldOf(parts, "year"), k)),
                      static_cast<long long>(at<std::int64_t>(fieldOf(parts, "month"), k)),
                      static_cast<long long>(at<std::int64_t>(fieldOf(parts, "day"), k)),
                      static_cast<long long>(at<std::int64_t>(fieldOf(parts, "hour"), k)),
                      static_cast<long long>(at<std::int64_t>(fieldOf(parts, "minute"), k)),
                      at<double>(fieldOf(parts, "second"), k),
                      at<double>(fieldOf(parts, "millisecond"), k));
        say("  " + place + text);
    }
}

// One column of a frame as the host receives it: its dtype, its road and
// its data.
std::string columnText(const vd::Array& column) {
    std::string text = textIn(column, "DataType");
    const std::string road = textIn(column, "SubDataType");
    text += road.empty() ? "" : " (" + road + ")";
    const vd::Array data = fieldOf(column, "DataArray");
    if (data.getType() == vd::ArrayType::DOUBLE) {
        std::string numbers;
        for (size_t k = 0; k < data.getNumberOfElements(); ++k) {
            numbers += (numbers.empty() ? "" : ", ") + std::to_string(at<double>(data, k));
        }
        return text + ", " + std::to_string(data.getDimensions()[0]) + " by " +
               std::to_string(data.getDimensions()[1]) + " doubles: " + numbers;
    }
    if (data.getType() == vd::ArrayType::VELTRA_STRING) {
        return text + ", strings " + stringList(data);
    }
    if (data.getType() == vd::ArrayType::STRUCT) {
        const vd::Array nat = fieldOf(data, "NaT_indices");
        std::string flags;
        for (size_t k = 0; k < nat.getNumberOfElements(); ++k) {
            flags += std::string(flags.empty() ? "" : " ") + (at<bool>(nat, k) ? "NaT" : "date");
        }
        return text + ", components with NaT flags: " + flags;
    }
    return text;
}

void frameAsTimetable() {
    exec("import pandas\n");
    say("A DataFrame with a datetime index, brought back for a timetable");
    say("(pyDataFrameTimetableGetData): the reset index is the row times, column 0:");
    const Address frame = eval(
        "pandas.DataFrame({'temp': [21.5, 19.0, None], 'city': ['Paris', None, 'Oslo']},"
        " index=pandas.DatetimeIndex(['2024-03-01 08:00', '2024-03-01 12:30', None],"
        " name='when'))");
    const vd::Array reply = call("pyDataFrameTimetableGetData", {addr(frame)})[0];
    say("  convertible " + shown(fieldOf(reply, "VELTRAPyHost_pyDataFrameConvertibleToTimetable")) +
        ", row times " + shown(fieldOf(reply, "VELTRAPyHost_pyDataFrameRowTimesVarName")) +
        ", variables " + stringList(fieldOf(reply, "VELTRAPyHost_pyDataFrameOrgVariableNames")));
    const vd::Array columns = fieldOf(reply, "VELTRAPyHost_pyDataFrameColumnDataAsStruct");
    for (const auto& name : vd::StructArray(columns).getFieldNames()) {
        say("  column " + std::string(name) + ": " +
            columnText(fieldOf(columns, std::string(name))));
    }
}

void moduleDescribed() {
    exec(
        "import sys, types\n"
        "geometry = types.ModuleType('tour_geometry', 'Shapes of the tour.')\n"
        "exec('''\n"
        "import math\n"
        "from fractions import Fraction\n"
        "class Circle:\n"
        "    'A circle of radius r.'\n"
        "    def __init__(self, r): self.r = r\n"
        "    def area(self) -> float: return math.pi * self.r ** 2\n"
        "Round = Circle\n"
        "def scaled(shape: Circle, factor: float): return Circle(shape.r * factor)\n"
        "unit = 1.0\n"
        "''', geometry.__dict__)\n"
        "del geometry.__builtins__\n"
        "sys.modules['tour_geometry'] = geometry\n");
    const Address module = object("pyCreateModule", {chars("tour_geometry")});
    const vd::Array metadata = call("pyGetModuleMetaData", {addr(module)})[0];
    say("A module described (pyGetModuleMetaData): '" + textIn(metadata, "name") + "', '" +
        textIn(metadata, "docstring") + "'");
    const auto names = [&](const char* list) {
        const vd::Array entries = fieldOf(metadata, list);
        std::string text;
        for (size_t i = 0; i < entries.getNumberOfElements(); ++i) {
            remember(vd::TypedArray<std::uint64_t>(fieldOf(entries, "objectAddress", i))[0]);
            std::string name = textIn(entries, "name", i);
            if (std::string(list) == "aliases") {
                name += " (" + textIn(entries, "moduleName", i) + ")";
            }
            text += (text.empty() ? "" : ", ") + name;
        }
        return text;
    };
    say("  classes it defines: " + names("classes"));
    say("  callables: " + names("packageFunctions"));
    say("  values: " + names("getterFunctions"));
    say("  classes under another name or from another module: " + names("aliases"));
    const vd::Array functions = fieldOf(metadata, "packageFunctions");
    for (size_t i = 0; i < functions.getNumberOfElements(); ++i) {
        if (textIn(functions, "name", i) == "scaled") {
            vd::TypedArray<vd::Array> types(fieldOf(functions, "argTypes", i));
            say("  scaled takes " + stringList(types[0]) + " and " + stringList(types[1]));
        }
    }
}

vd::Array cellWith(const std::vector<vd::Array>& elements) {
    return f.createCellArray({1, elements.size()}, elements);
}

void valuesCompared() {
    say("Host values compared by Python's rules (pyIsEqual): 2.0 == int64 2 ->");
    const vd::Array noKeywords = f.createStructArray({0, 0}, {});
    const vd::Array same = call(
        "pyIsEqual", {cellWith({cellWith({f.createScalar(2.0), f.createScalar(std::int64_t{2})}),
                                noKeywords})})[0];
    remember(vd::TypedArray<std::uint64_t>(fieldOf(same, "object"))[0]);
    say("  " + shown(fieldOf(same, "scalarData")) + " (an object result of class " + classOf(same) +
        ")");
    vd::TypedArray<double> a = f.createArray<double>({2, 2});
    a[0][0] = 1;
    a[1][0] = std::nan("");
    a[0][1] = 3;
    a[1][1] = 4;
    const vd::Array b = a;  // a copy shares the elements
    vd::StructArray equalNan = f.createStructArray({1, 1}, {"kwargKey0", "kwargValue0"});
    equalNan[0]["kwargKey0"] = chars("equal_nan");
    equalNan[0]["kwargValue0"] = f.createScalar(true);
    say("Two host matrices holding a NaN (pyIsNumpyArrayEqual, numpy.array_equal):");
    say("  as they are -> " +
        shown(call("pyIsNumpyArrayEqual", {cellWith({cellWith({a, b}), noKeywords})})[0]));
    say("  with equal_nan=True -> " +
        shown(call("pyIsNumpyArrayEqual", {cellWith({cellWith({a, b}), equalNan})})[0]));
}

}  // namespace

void pythonData() {
    chapter("Python data back to the host");
    listAndDict();
    datesWithNaT();
    frameAsTimetable();
    moduleDescribed();
    valuesCompared();
}

}  // namespace tour
