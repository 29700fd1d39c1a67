// Host data in one request: pyInvokeFastInput converts host arrays into the
// Python objects a Python user expects and calls with them.
#include <sstream>

#include "tour.h"

namespace tour {

namespace {

vd::ArrayFactory f;

vd::Array structWith(const std::vector<std::pair<std::string, vd::Array>>& fields) {
    std::vector<std::string> names;
    for (const auto& field : fields) {
        names.push_back(field.first);
    }
    vd::StructArray s = f.createStructArray({1, 1}, names);
    for (const auto& [name, value] : fields) {
        s[0][name] = value;
    }
    return s;
}

vd::Array cellWith(const std::vector<vd::Array>& elements) {
    return f.createCellArray({1, elements.size()}, elements);
}

vd::Array keywords(const std::vector<std::pair<std::string, vd::Array>>& pairs) {
    std::vector<std::pair<std::string, vd::Array>> fields;
    for (size_t i = 0; i < pairs.size(); ++i) {
        fields.emplace_back("kwargKey" + std::to_string(i), chars(pairs[i].first));
        fields.emplace_back("kwargValue" + std::to_string(i), pairs[i].second);
    }
    return fields.empty() ? f.createStructArray({0, 0}, {}) : structWith(fields);
}

// One request: convert, call, and show str() of what came back (or the
// failure report the conversion answered with).
void callWith(const std::string& what, Address callable, const std::vector<vd::Array>& positional,
              const vd::Array& keywordStruct = keywords({})) {
    const vd::Array reply = call(
        "pyInvokeFastInput", {addr(callable), cellWith({cellWith(positional), keywordStruct})})[0];
    vd::StructArray result(reply);
    const Address returned = remember(vd::TypedArray<std::uint64_t>(result[0]["object"])[0]);
    if (std::string(*result.getFieldNames().begin()) == "exceptionName") {
        say("  " + what + " -> a report: " + vd::CharArray(result[0]["exceptionName"]).toAscii() +
            " (" + vd::CharArray(result[0]["exceptionMessage"]).toAscii() + ")");
        return;
    }
    std::istringstream lines(narrow(textOfObject(returned)));
    say("  " + what + " ->");
    for (std::string line; std::getline(lines, line);) {
        say("      " + line);
    }
}

bool importable(const std::string& name) {
    try {
        object("pyCreateModule", {chars(name)});
        return true;
    } catch (const std::exception&) {
        call("pyErrorClear", {});
        say("This interpreter has no " + name + "; Debian's /usr/bin/python3 has it.");
        return false;
    }
}

}  // namespace

void hostData() {
    chapter("Host data in one request");
    exec(
        "import datetime, json\n"
        "def later(when, wait):\n    return when + wait\n"
        "def pick(items, part):\n    return f'{part!r} of {items!r}: {items[part]!r}'\n"
        "def describe(frame):\n    return f'{frame}\\nindex: {frame.index.name}'\n");
    say("Dates travel as components, durations as milliseconds:");
    vd::TypedArray<double> when = f.createArray<double>({1, 8});
    const double components[] = {2024, 2, 29, 22, 30, 15, 1, 250};  // the 1 says "in UTC"
    for (size_t k = 0; k < 8; ++k) {
        when[k] = components[k];
    }
    callWith("later(2024-02-29 22:30:15.250 UTC, 3 hours)", eval("later"),
             {structWith({{"VX_PylnkSP_Datetime", when}}),
              structWith({{"VX_PylnkSP_Duration", f.createScalar(3 * 3600 * 1000.0)}})});

    say("A dictionary whose values are converted like any argument:");
    callWith(
        "json.dumps({'width': 1.5, 'tags': ('a', True)}, sort_keys=True)", eval("json.dumps"),
        {structWith(
            {{"VX_PylnkSP_Dictionary_Keys", cellWith({chars("width"), chars("tags")})},
             {"VX_PylnkSP_Dictionary_Values",
              cellWith({f.createScalar(1.5), cellWith({chars("a"), f.createScalar(true)})})}})},
        keywords({{"sort_keys", f.createScalar(true)}}));

    say("A slice with an absent stop (a char array stands for None):");
    callWith(
        "pick(host text, slice(2, None, 3))", eval("pick"),
        {chars("abcdefghij"), structWith({{"VX_PylnkSP_start", f.createScalar(std::uint64_t{2})},
                                          {"VX_PylnkSP_stop", chars("")},
                                          {"VX_PylnkSP_step", f.createScalar(std::int64_t{3})}})});

    say("A function handle names a Python callable; one that is not callable is reported:");
    callWith("sorted(['b', 'a'], key=str.upper)", eval("sorted"),
             {cellWith({chars("b"), chars("a")})},
             keywords({{"key", structWith({{"VX_PylnkSP_FunctionHandle", chars("str.upper")}})}}));
    callWith("a handle to math.pi", eval("repr"),
             {structWith({{"VX_PylnkSP_FunctionHandle", chars("math.pi")}})});

    if (!importable("numpy")) {
        return;
    }
    say("A 3 by 4 host matrix reaches NumPy without a copy; axis is a keyword argument:");
    vd::TypedArray<double> matrix = f.createArray<double>({3, 4});
    for (size_t k = 0; k < 12; ++k) {
        matrix[k] = static_cast<double>(k);
    }
    callWith("numpy.sum(matrix, axis=0)", eval("__import__('numpy').sum"), {matrix},
             keywords({{"axis", f.createScalar(std::int64_t{0})}}));

    if (!importable("pandas")) {
        return;
    }
    say("A host table with row names becomes a DataFrame indexed by them:");
    vd::TypedArray<vd::VELTRAString> names = f.createArray<vd::VELTRAString>({1, 3});
    names[0] = std::string("Ada");
    names[1] = std::string("Grace");
    names[2] = std::string("Edsger");
    vd::TypedArray<double> height = f.createArray<double>({3, 1});
    vd::TypedArray<vd::VELTRAString> cities = f.createArray<vd::VELTRAString>({1, 3});
    cities[0] = std::string("London");
    cities[2] = std::string("Nuenen");  // missing in the middle
    const double heights[] = {1.65, 1.68, 1.85};
    for (size_t k = 0; k < 3; ++k) {
        height[k] = heights[k];
    }
    const vd::Array table = structWith(
        {{"VX_PylnkSP_VELTRATableAsStruct",
          structWith(
              {{"tableStruct",
                structWith({{"Name", structWith({{"VX_PylnkSP_StringArray", names}})},
                            {"Height", height},
                            {"City", structWith({{"VX_PylnkSP_StringArray", cities}})}})},
               {"variableNames", cellWith({chars("Name"), chars("Height (m)"), chars("City")})},
               {"rowNamesFound", f.createScalar(true)},
               {"dimensionRow", chars("Name")}})}});
    callWith("describe(table)", eval("describe"), {table});
}

}  // namespace tour
