// Python classes described to the host, and calls whose one reply carries
// the object, its class and the value of a number.
#include "tour.h"

namespace tour {

namespace {

// Names of a row of entries; the dunder names that every class has are
// counted, not listed.
std::string namesOf(const vd::Array& row, bool allNames = true) {
    std::string names;
    size_t dunders = 0;
    for (size_t i = 0; i < row.getNumberOfElements(); ++i) {
        const std::string name = textIn(row, "name", i);
        if (!allNames && name.starts_with("__") && name != "__add__") {
            ++dunders;
            continue;
        }
        names += (names.empty() ? "" : ", ") + name;
    }
    return names + (dunders > 0 ? " and " + std::to_string(dunders) + " inherited __names__" : "");
}

size_t indexOf(const vd::Array& row, const std::string& name) {
    for (size_t i = 0; i < row.getNumberOfElements(); ++i) {
        if (textIn(row, "name", i) == name) {
            return i;
        }
    }
    return 0;
}

// How the host sees what a fast call gave it.
void showResult(const vd::Array& result) {
    remember(vd::TypedArray<std::uint64_t>(fieldOf(result, "object"))[0]);
    const vd::Array metadata = fieldOf(result, "classMetadata");
    const vd::Array scalar = fieldOf(result, "scalarData");
    say("  object " + shown(fieldOf(result, "object")) + ", class " +
        (metadata.getType() == vd::ArrayType::STRUCT
             ? "described in full (" + textIn(metadata, "name") + ", " +
                   std::to_string(fieldOf(metadata, "methods").getNumberOfElements()) + " methods)"
             : "named '" + vd::CharArray(metadata).toAscii() + "'") +
        ", value " +
        (scalar.getType() == vd::ArrayType::CHAR ? "none (an object)" : shown(scalar)));
}

}  // namespace

void classes() {
    chapter("Python classes described to the host");
    exec(
        "__name__ = 'tour_shapes'\n"
        "class Vector:\n"
        "    'A two-dimensional vector.'\n"
        "    def __init__(self, x, y): self.x, self.y = x, y\n"
        "    @property\n"
        "    def length(self): return (self.x ** 2 + self.y ** 2) ** 0.5\n"
        "    @staticmethod\n"
        "    def unit(angle: float) -> 'Vector':\n"
        "        import math\n"
        "        return Vector(math.cos(angle), math.sin(angle))\n"
        "    def scaled(self, factor: 'int | float', *, around: 'Vector | None' = None):\n"
        "        return Vector(self.x * factor, self.y * factor)\n"
        "    def __add__(self, other): return Vector(self.x + other.x, self.y + other.y)\n");
    const Address vector = eval("Vector(3.0, 4.0)");
    const vd::Array metadata = call("pyGetClassMetaData", {addr(vector)})[0];
    remember(vd::TypedArray<std::uint64_t>(fieldOf(metadata, "objectAddress"))[0]);
    say("pyGetClassMetaData of a Vector: class '" + textIn(metadata, "name") + "' of module '" +
        textIn(metadata, "moduleName") + "', docstring '" + textIn(metadata, "docstring") +
        "', bases " + stringList(fieldOf(metadata, "bases")));
    const vd::Array properties = fieldOf(metadata, "properties");
    const size_t length = indexOf(properties, "length");
    say("  properties: " + namesOf(properties, false) +
        " (length can be read: " + shown(fieldOf(properties, "getAccess", length)) +
        ", written: " + shown(fieldOf(properties, "setAccess", length)) + ")");
    const vd::Array methods = fieldOf(metadata, "methods");
    say("  methods: " + namesOf(methods, false));
    for (size_t i = 0; i < methods.getNumberOfElements(); ++i) {
        remember(vd::TypedArray<std::uint64_t>(fieldOf(methods, "objectAddress", i))[0]);
        const std::string name = textIn(methods, "name", i);
        if (name != "unit" && name != "scaled") {
            continue;
        }
        std::string types;
        vd::TypedArray<vd::Array> cells(fieldOf(methods, "argTypes", i));
        for (size_t k = 0; k < cells.getNumberOfElements(); ++k) {
            types += (types.empty() ? "" : " ") + stringList(cells[k]);
        }
        say("  " + name + ": static " + shown(fieldOf(methods, "static", i)) + ", arguments " +
            stringList(fieldOf(methods, "argNames", i)) + " typed " + types + ", more keywords " +
            shown(fieldOf(methods, "kwargs", i)));
    }
    const vd::Array operators = fieldOf(metadata, "operators");
    for (size_t i = 0; i < operators.getNumberOfElements(); ++i) {
        remember(vd::TypedArray<std::uint64_t>(fieldOf(operators, "objectAddress", i))[0]);
    }
    say("  host operators (functions of Python's operator module): " + namesOf(operators));

    say("An object's own attributes, with pyGetClassProperties: " +
        namesOf(call("pyGetClassProperties", {addr(vector)})[0]));

    chapter("One round trip per call: the object result");
    run("ClearMetadataMap");
    const Address scaled = member(vector, "scaled");
    say("pyInvokeFast of vector.scaled(2): the first Vector the host meets carries its class:");
    showResult(call("pyInvokeFast", {addr(scaled), addr(tupleOf({eval("2")}))})[0]);
    say("The second one carries only the dotted class name:");
    showResult(call("pyInvokeFast", {addr(scaled), addr(tupleOf({eval("0.5")}))})[0]);
    say("A number comes back with its value in the same reply:");
    showResult(call("pyGetPropertyValueFast", {addr(vector), chars("length")})[0]);
    say("A failure the host reads as data: pyGetHash of a list answers with a report:");
    const vd::Array report = call("pyGetHash", {addr(eval("[1, 2]"))})[0];
    remember(vd::TypedArray<std::uint64_t>(fieldOf(report, "object"))[0]);
    say("  " + textIn(report, "exceptionName") + ": " + textIn(report, "exceptionMessage"));
}

}  // namespace tour
