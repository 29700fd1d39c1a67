#include "support/session.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <sstream>

#include "service/feval_dispatcher.h"

namespace vxtest {

vd::Array call(const std::string& name, std::vector<vd::Array> args) {
    std::array<vd::Array, 4> plhs;
    interprocess::pylnk::server::libpylnk::feval_dispatcher(name, 1, plhs.data(), args.size(),
                                                            args.data());
    return plhs[0];
}

vd::Array callOn(const std::string& name, const std::string& expression,
                 std::vector<vd::Array> more) {
    more.insert(more.begin(), addressArray(eval(expression)));
    return call(name, std::move(more));
}

namespace {

std::string narrow(const std::u16string& text) {
    return vd::CharArray(vd::ArrayFactory().createCharArray(text)).toAscii();
}

}  // namespace

std::string textOf(const vd::Array& value) {
    if (value.getType() == vd::ArrayType::CHAR) {
        return vd::CharArray(value).toAscii();
    }
    const vd::VELTRAString element = vd::TypedArray<vd::VELTRAString>(value)[0];
    return element ? narrow(*element) : "<missing>";
}

vd::Array field(const vd::Array& structArray, const std::string& name, size_t index) {
    vd::StructArray s(structArray);
    return s[index][name];
}

std::vector<std::string> fieldNames(const vd::Array& structArray) {
    std::vector<std::string> names;
    for (const auto& name : vd::StructArray(structArray).getFieldNames()) {
        names.emplace_back(name);
    }
    return names;
}

std::vector<std::optional<std::string>> stringsOf(const vd::Array& strings) {
    std::vector<std::optional<std::string>> values;
    for (const vd::VELTRAString& element : valuesOf<vd::VELTRAString>(strings)) {
        values.push_back(element ? std::optional(narrow(*element)) : std::nullopt);
    }
    return values;
}

std::vector<std::string> namesOf(const vd::Array& row) {
    std::vector<std::string> names;
    for (size_t i = 0; i < row.getNumberOfElements(); ++i) {
        names.push_back(textOf(field(row, "name", i)));
    }
    return names;
}

std::optional<size_t> entryNamed(const vd::Array& row, const std::string& name) {
    const std::vector<std::string> names = namesOf(row);
    const auto found = std::find(names.begin(), names.end(), name);
    return found == names.end() ? std::nullopt : std::optional<size_t>(found - names.begin());
}

std::vector<std::uint64_t> addressesOf(const vd::Array& row) {
    std::vector<std::uint64_t> addresses;
    for (size_t i = 0; i < row.getNumberOfElements(); ++i) {
        addresses.push_back(addressOf(field(row, "objectAddress", i)));
    }
    return addresses;
}

std::string reportOf(const vd::Array& reply) {
    return textOf(field(reply, "exceptionName")) + ": " + textOf(field(reply, "exceptionMessage"));
}

namespace {

template <class T>
std::string number(T value) {
    if constexpr (requires { value.imag(); }) {
        return "(" + number(value.real()) + "," + number(value.imag()) + ")";
    } else if constexpr (std::is_same_v<T, bool>) {
        return value ? "1" : "0";
    } else {
        std::array<char, 64> text{};
        return std::string(text.data(), std::to_chars(text.begin(), text.end(), value).ptr);
    }
}

}  // namespace

std::string show(const vd::Array& array) {
    std::string text = vd::toString(array.getType());
    for (size_t k = 0; k < array.getDimensions().size(); ++k) {
        text += (k == 0 ? " " : "x") + std::to_string(array.getDimensions()[k]);
    }
    text += ':';
    if (array.getType() == vd::ArrayType::CHAR) {
        const std::string chars = vd::CharArray(array).toAscii();
        return chars.empty() ? text : text + " " + chars;
    }
    if (array.getType() == vd::ArrayType::VELTRA_STRING) {
        for (const auto& element : stringsOf(array)) {
            text += " " + element.value_or("<missing>");
        }
        return text;
    }
    vd::visit(array, [&](const auto& view) {
        using T = std::remove_const_t<typename std::decay_t<decltype(view)>::element_type>;
        if constexpr (std::is_arithmetic_v<T> || requires(T value) { value.imag(); }) {
            for (T value : view) {
                text += " " + number(value);
            }
        }
    });
    return text;
}

std::string shown(const vd::Array& structArray, const std::vector<std::string>& names,
                  size_t index) {
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : " | ") + show(field(structArray, name, index));
    }
    return text;
}

vd::Array stringRow(const std::vector<const char*>& items) {
    vd::TypedArray<vd::VELTRAString> strings =
        vd::ArrayFactory().createArray<vd::VELTRAString>({1, items.size()});
    for (size_t k = 0; k < items.size(); ++k) {
        if (items[k] != nullptr) {
            strings[k] = std::string(items[k]);
        }
    }
    return strings;
}

CommandRun runCommand(const std::string& command) {
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return {-1, ""};
    }
    CommandRun run{0, ""};
    std::array<char, 512> chunk{};
    while (fgets(chunk.data(), chunk.size(), pipe) != nullptr) {
        run.output += chunk.data();
    }
    run.status = pclose(pipe);
    return run;
}

std::optional<PythonInstall> describePython(const std::string& executable) {
    const std::string command =
        "'" + executable +
        "' -I -c \"import sys, sysconfig, os\n"
        "lib = os.path.join(sysconfig.get_config_var('LIBDIR') or '', "
        "sysconfig.get_config_var('INSTSONAME') or '')\n"
        "venv = sys.prefix != sys.base_prefix\n"
        "print(sys.executable)\nprint(lib)\nprint('' if venv else sys.base_prefix)\n"
        "print('%d.%d' % sys.version_info[:2])\" 2>/dev/null";
    std::istringstream lines(runCommand(command).output);
    PythonInstall python;
    if (!std::getline(lines, python.executable) || !std::getline(lines, python.library) ||
        !std::getline(lines, python.home) || !std::getline(lines, python.version) ||
        python.executable.empty()) {
        return std::nullopt;
    }
    return python;
}

const PythonInstall& systemPython() {
    static const std::optional<PythonInstall> python = describePython("/usr/bin/python3");
    if (!python) {
        throw std::runtime_error("Debian's /usr/bin/python3 is needed for these tests.");
    }
    return *python;
}

vd::Array startRequest(const PythonInstall& python, const std::string& location) {
    vd::ArrayFactory factory;
    vd::StructArray request = factory.createStructArray(
        {1, 1}, {"executable", "library", "home", "path", "version", "qlbuffer_location"});
    request[0]["executable"] = factory.createCharArray(python.executable);
    request[0]["library"] = factory.createCharArray(python.library);
    request[0]["home"] = factory.createCharArray(python.home);
    request[0]["path"] = factory.createCharArray(std::string());
    request[0]["version"] = factory.createCharArray(python.version);
    request[0]["qlbuffer_location"] = factory.createCharArray(location);
    return request;
}

std::string moduleFolder() {
    return VX_MODULE_FOLDER;
}

void startSystemPython() {
    ASSERT_EQ(textOf(call("attemptToStartPython", {startRequest(systemPython(), moduleFolder())})),
              "vx_success_token_for_oop_python");
}

vd::Array addressArray(Address address) {
    return vd::ArrayFactory().createScalar(address);
}

Address addressOf(const vd::Array& reply) {
    return vd::TypedArray<std::uint64_t>(reply)[0];
}

bool truthOf(const vd::Array& reply) {
    return vd::TypedArray<bool>(reply)[0];
}

vd::Array uint64Array(std::uint64_t value) {
    return vd::ArrayFactory().createScalar(value);
}

vd::Array chars(const std::string& text) {
    return vd::ArrayFactory().createCharArray(text);
}

Address unicode(const std::u16string& text) {
    return addressOf(call("pyCreateUnicode", {vd::ArrayFactory().createCharArray(text)}));
}

Address tupleOf(const std::vector<Address>& items) {
    Address tuple = addressOf(call("pyCreateTuple", {uint64Array(items.size())}));
    for (size_t i = 0; i < items.size(); ++i) {
        call("pyTupleSet", {addressArray(tuple), uint64Array(i), addressArray(items[i])});
    }
    return tuple;
}

void release(Address object) {
    call("Release", {addressArray(object)});
}

Address invoke(Address callable, const std::vector<Address>& args) {
    // The argument tuple is released at once, so that repeated calls leave
    // no references behind on the arguments.
    const Address tuple = tupleOf(args);
    Address result;
    try {
        result = addressOf(call("pyInvoke", {addressArray(callable), addressArray(tuple)}));
    } catch (...) {
        release(tuple);
        throw;
    }
    release(tuple);
    return result;
}

Address fetch(const std::string& dotted) {
    return addressOf(call("pyFetch", {chars(dotted)}));
}

namespace {

Address sharedNamespace() {
    static const Address globals = addressOf(call("pyCreateDict"));
    return globals;
}

}  // namespace

Address eval(const std::string& expression) {
    std::u16string wide(expression.begin(), expression.end());
    return invoke(fetch("builtins.eval"), {unicode(wide), sharedNamespace()});
}

void exec(const std::string& statements) {
    std::u16string wide(statements.begin(), statements.end());
    invoke(fetch("builtins.exec"), {unicode(wide), sharedNamespace()});
}

std::string strOf(Address object) {
    Address text = addressOf(call("pyStr", {addressArray(object)}));
    return vd::CharArray(call("pyUnicodeGetData", {addressArray(text)})).toAscii();
}

namespace {

long long integerAt(Address value) {
    const long long result =
        valueOf<std::int64_t>(call("pyLongGetDataInt64", {addressArray(value)}));
    release(value);
    return result;
}

}  // namespace

long long refcount(Address object) {
    static const Address getrefcount = fetch("sys.getrefcount");
    // Less the reference of the argument tuple that carried the object.
    return integerAt(invoke(getrefcount, {object})) - 1;
}

long long integer(const std::string& expression) {
    return integerAt(eval(expression));
}

long long pythonRefcount(const std::string& expression) {
    return integer("__import__('sys').getrefcount(" + expression + ")");
}

std::vector<long long> pythonRefcounts(const std::vector<std::string>& expressions) {
    std::vector<long long> counts;
    for (const std::string& expression : expressions) {
        counts.push_back(pythonRefcount(expression));
    }
    return counts;
}

bool errorOccurred() {
    return truthOf(call("pyErrorOccurred"));
}

}  // namespace vxtest
