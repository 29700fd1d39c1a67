// What every chapter uses: the door to the library, narration, and small
// helpers over the object commands.
#include <chrono>
#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>

#include "tour.h"

namespace tour {

std::map<std::string, std::string> options;

namespace {

std::vector<Address> made;  // released by releaseMade()
Address globals = 0;        // the tour's namespace, made on first use
std::unique_ptr<vxpy::Session> current;
vxpy::Interpreter python;

std::optional<std::chrono::steady_clock::time_point> stampsSince;
bool atLineStart = true;

// The tour's console: Python's text as it arrives, optionally stamped.
void showPythonText(std::string_view text) {
    for (char c : text) {
        if (atLineStart && stampsSince) {
            const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                                std::chrono::steady_clock::now() - *stampsSince)
                                .count();
            std::printf("[host clock %4.1f s] ", static_cast<double>(ms) / 1000.0);
        }
        std::putchar(c);
        atLineStart = c == '\n';
    }
    std::fflush(stdout);
}

}  // namespace

void stampConsole(bool on) {
    if (on) {
        stampsSince = std::chrono::steady_clock::now();
    } else {
        stampsSince.reset();
    }
}

vxpy::Session& session() {
    return *current;
}

const vxpy::Interpreter& interpreter() {
    return python;
}

void openSession(const std::string& executable) {
    python = vxpy::Interpreter::find(executable);
    vxpy::Options sessionOptions;
    sessionOptions.console = showPythonText;
    current = std::make_unique<vxpy::Session>(sessionOptions);
    options["--executable"] = python.executable;
    options["--library"] = python.library;
    options["--home"] = python.home;
    options["--version"] = python.version;
}

void restartWorker() {
    current->restart();
    current->start(python);
    made.clear();
    globals = 0;
}

std::vector<vd::Array> call(const std::string& name, std::vector<vd::Array> args, size_t nlhs) {
    std::vector<vd::Array> out = current->call(name, args, nlhs);
    // Chapters read out[0] of every reply; a command that answers nothing
    // reads as an empty array.
    if (out.empty()) {
        out.resize(1);
    }
    return out;
}

void say(const std::string& text) {
    std::cout << text << std::endl;
}

void chapter(const std::string& title) {
    std::cout << "\n=== " << title << " ===" << std::endl;
}

vd::Array chars(const std::string& text) {
    return vd::ArrayFactory().createCharArray(text);
}

vd::Array addr(Address a) {
    return vd::ArrayFactory().createScalar(a);
}

std::string narrow(const std::u16string& text) {
    return vd::CharArray(vd::ArrayFactory().createCharArray(text)).toAscii();
}

std::string shown(const vd::Array& value) {
    switch (value.getType()) {
        case vd::ArrayType::CHAR:
            return "'" + vd::CharArray(value).toAscii() + "' (char array)";
        case vd::ArrayType::VELTRA_STRING: {
            vd::VELTRAString s = vd::TypedArray<vd::VELTRAString>(value)[0];
            return s ? "\"" + narrow(*s) + "\" (string)" : "<missing> (string)";
        }
        case vd::ArrayType::LOGICAL:
            return vd::TypedArray<bool>(value)[0] ? "true" : "false";
        case vd::ArrayType::UINT64:
            return std::to_string(
                       static_cast<std::uint64_t>(vd::TypedArray<std::uint64_t>(value)[0])) +
                   " (uint64)";
        case vd::ArrayType::INT64:
            return std::to_string(
                       static_cast<std::int64_t>(vd::TypedArray<std::int64_t>(value)[0])) +
                   " (int64)";
        case vd::ArrayType::DOUBLE:
            return std::to_string(static_cast<double>(vd::TypedArray<double>(value)[0]));
        case vd::ArrayType::STRUCT: {
            std::string fields;
            for (const auto& field : vd::StructArray(value).getFieldNames()) {
                fields += (fields.empty() ? "" : ", ") + std::string(field);
            }
            return "a struct with fields " + fields;
        }
        default:
            return "an array of type " + std::to_string(static_cast<int>(value.getType()));
    }
}

vd::Array fieldOf(const vd::Array& s, const std::string& name, size_t index) {
    return vd::StructArray(s)[index][name];
}

std::string textIn(const vd::Array& s, const std::string& name, size_t index) {
    return vd::CharArray(fieldOf(s, name, index)).toAscii();
}

std::string stringList(const vd::Array& strings) {
    vd::TypedArray<vd::VELTRAString> view(strings);
    std::string text;
    for (size_t k = 0; k < view.getNumberOfElements(); ++k) {
        const vd::VELTRAString element = view[k];
        text += (text.empty() ? "" : ", ") + (element ? narrow(*element) : "<missing>");
    }
    return "[" + text + "]";
}

vd::Array run(const std::string& name, std::vector<vd::Array> args) {
    vd::Array out;
    try {
        out = call(name, std::move(args))[0];
        say("  " + name + " -> " + shown(out));
    } catch (const std::exception& e) {
        say("  " + name + " -> failed: " + e.what());
    }
    return out;
}

Address remember(Address a) {
    made.push_back(a);
    return a;
}

Address object(const std::string& name, std::vector<vd::Array> args) {
    const vd::Array out = call(name, std::move(args))[0];
    return remember(vd::TypedArray<std::uint64_t>(out)[0]);
}

Address unicode(const std::u16string& text) {
    return object("pyCreateUnicode", {vd::ArrayFactory().createCharArray(text)});
}

Address tupleOf(const std::vector<Address>& items) {
    const Address tuple =
        object("pyCreateTuple", {vd::ArrayFactory().createScalar(std::uint64_t{items.size()})});
    for (size_t i = 0; i < items.size(); ++i) {
        call("pyTupleSet",
             {addr(tuple), vd::ArrayFactory().createScalar(std::uint64_t{i}), addr(items[i])});
    }
    return tuple;
}

Address member(Address of, const std::string& name) {
    return object("pyGetMember", {addr(of), chars(name)});
}

Address invoke(Address callable, const std::vector<Address>& args) {
    return object("pyInvoke", {addr(callable), addr(tupleOf(args))});
}

std::u16string textOfObject(Address a) {
    const vd::Array out = call("pyUnicodeGetData", {addr(object("pyStr", {addr(a)}))})[0];
    return vd::CharArray(out).toUTF16();
}

namespace {

Address tourNamespace() {
    if (globals == 0) {
        // Kept for the whole tour, so not among the addresses released per chapter.
        globals = vd::TypedArray<std::uint64_t>(call("pyCreateDict", {})[0])[0];
    }
    return globals;
}

}  // namespace

void exec(const std::string& statements) {
    const Address builtins = object("pyCreateBuiltinModule", {});
    invoke(member(builtins, "exec"),
           {unicode(std::u16string(statements.begin(), statements.end())), tourNamespace()});
}

Address eval(const std::string& expression) {
    const Address builtins = object("pyCreateBuiltinModule", {});
    return invoke(member(builtins, "eval"),
                  {unicode(std::u16string(expression.begin(), expression.end())), tourNamespace()});
}

void releaseMade() {
    say("\nReleasing the " + std::to_string(made.size()) + " addresses the tour received.");
    for (Address a : made) {
        call("Release", {addr(a)});
    }
    made.clear();
}

vd::Array startRequest(const std::string& library) {
    vd::ArrayFactory f;
    vd::StructArray request = f.createStructArray(
        {1, 1}, {"executable", "library", "home", "path", "version", "qlbuffer_location"});
    request[0]["executable"] = chars(options["--executable"]);
    request[0]["library"] = chars(library);
    request[0]["home"] = chars(options["--home"]);
    request[0]["path"] = chars(python.path);
    request[0]["version"] = chars(options["--version"]);
    request[0]["qlbuffer_location"] = chars(options["--location"]);
    return request;
}

}  // namespace tour
