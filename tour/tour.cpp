// A narrated tour of the library, driven the way the worker's command
// server drives it: commands with host arrays through feval_dispatcher.
#include <foundation/veltradata.h>

#include <cstdint>
#include <cstring>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "service/feval_dispatcher.h"

namespace vd = foundation::veltradata;
using interprocess::pylnk::server::libpylnk::feval_dispatcher;

namespace {

std::map<std::string, std::string> options;

void say(const std::string& text) {
    std::cout << text << std::endl;
}

void chapter(const std::string& title) {
    std::cout << "\n=== " << title << " ===" << std::endl;
}

vd::Array chars(const std::string& text) {
    return vd::ArrayFactory().createCharArray(text);
}

std::string shown(const vd::Array& value) {
    switch (value.getType()) {
        case vd::ArrayType::CHAR:
            return "'" + vd::CharArray(value).toAscii() + "' (char array)";
        case vd::ArrayType::VELTRA_STRING: {
            vd::VELTRAString s = vd::TypedArray<vd::VELTRAString>(value)[0];
            return s ? "\"" + vd::CharArray(vd::ArrayFactory().createCharArray(*s)).toAscii() +
                           "\" (string)"
                     : "<missing> (string)";
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
        default:
            return "an array of type " + std::to_string(static_cast<int>(value.getType()));
    }
}

// One command, shown as the host would see it.
vd::Array run(const std::string& name, std::vector<vd::Array> args = {}) {
    vd::Array out;
    try {
        feval_dispatcher(name, 1, &out, args.size(), args.data());
        say("  " + name + " -> " + shown(out));
    } catch (const std::exception& e) {
        say("  " + name + " -> failed: " + e.what());
    }
    return out;
}

vd::Array startRequest(const std::string& library) {
    vd::ArrayFactory f;
    vd::StructArray request = f.createStructArray(
        {1, 1}, {"executable", "library", "home", "path", "version", "qlbuffer_location"});
    request[0]["executable"] = chars(options["--executable"]);
    request[0]["library"] = chars(library);
    request[0]["home"] = chars(options["--home"]);
    request[0]["path"] = chars("");
    request[0]["version"] = chars(options["--version"]);
    request[0]["qlbuffer_location"] = chars(options["--location"]);
    return request;
}

void hostArrays() {
    chapter("Host arrays: values with shared, copy-on-write storage");
    vd::ArrayFactory f;
    vd::TypedArray<double> a = f.createArray<double>({2, 3});
    for (size_t k = 0; k < 6; ++k) {
        a[k] = 1.5 * static_cast<double>(k);
    }
    say("Made a 2 by 3 double matrix, filled in column-major order: a[1][2] = " +
        std::to_string(static_cast<double>(a[1][2])));
    vd::TypedArray<double> b = a;
    say("Copied it: the copy shares the elements (no element is copied).");
    b[0][0] = 100.0;
    say("Wrote 100 through the copy: copy holds " + std::to_string(static_cast<double>(b[0][0])) +
        ", the original still holds " + std::to_string(static_cast<double>(a[0][0])));
    auto buffer = b.release();
    say("Released the copy's buffer to the caller: first element " + std::to_string(buffer[0]) +
        "; the original keeps its own data.");

    vd::StructArray s = f.createStructArray({1, 1}, {"name", "size"});
    s[0]["name"] = f.createCharArray(std::string("matrix"));
    s[0]["size"] = f.createScalar(6.0);
    std::string fields;
    for (const auto& field : s.getFieldNames()) {
        fields += std::string(field) + " ";
    }
    say("A struct with fields in declared order: " + fields);

    vd::TypedArray<vd::VELTRAString> strings = f.createArray<vd::VELTRAString>({1, 2});
    strings[0][0] = std::u16string(u"present");
    say(std::string("A string array: element 0 is ") +
        (vd::VELTRAString(strings[0]) ? "present" : "missing") + ", element 1 is " +
        (vd::VELTRAString(strings[1]) ? "present" : "missing"));

    for (const vd::Array& any :
         std::vector<vd::Array>{a, s, strings, f.createCharArray(std::string("hi"))}) {
        const std::string what = vd::visit(any, [](const auto& view) {
            return std::to_string(view.getNumberOfElements()) + " element(s)";
        });
        say("Visited an array of type " + std::to_string(static_cast<int>(any.getType())) + ": " +
            what);
    }
}

void startAndPing() {
    chapter("Starting the interpreter the host names");
    say("Interpreter: " + options["--executable"] + " (" + options["--version"] + "), library " +
        options["--library"]);
    say("First a start request whose library does not exist:");
    run("attemptToStartPython", {startRequest("/no/such/libpython.so")});
    say("Then the real one:");
    run("attemptToStartPython", {startRequest(options["--library"])});
    run("Ping");
    say("The working folder of the worker moves with the host's:");
    run("ChangeCurrentWorkingFolder", {chars("/tmp")});
    say("An unknown command is answered, not left hanging:");
    run("pyNoSuchCommand");
}

using Address = std::uint64_t;
std::vector<Address> made;  // released at the end of the chapter

vd::Array addr(Address a) {
    return vd::ArrayFactory().createScalar(a);
}

// A command whose reply is an object address; remembered for release.
Address object(const std::string& name, std::vector<vd::Array> args) {
    vd::Array out;
    feval_dispatcher(name, 1, &out, args.size(), args.data());
    const Address a = vd::TypedArray<std::uint64_t>(out)[0];
    made.push_back(a);
    return a;
}

Address unicode(const std::u16string& text) {
    return object("pyCreateUnicode", {vd::ArrayFactory().createCharArray(text)});
}

Address tupleOf(const std::vector<Address>& items) {
    const Address tuple =
        object("pyCreateTuple", {vd::ArrayFactory().createScalar(std::uint64_t{items.size()})});
    for (size_t i = 0; i < items.size(); ++i) {
        vd::Array out;
        std::vector<vd::Array> args{addr(tuple), vd::ArrayFactory().createScalar(std::uint64_t{i}),
                                    addr(items[i])};
        feval_dispatcher("pyTupleSet", 1, &out, args.size(), args.data());
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
    vd::Array out;
    std::vector<vd::Array> args{addr(object("pyStr", {addr(a)}))};
    feval_dispatcher("pyUnicodeGetData", 1, &out, 1, args.data());
    return vd::CharArray(out).toUTF16();
}

std::string narrow(const std::u16string& text) {
    return vd::CharArray(vd::ArrayFactory().createCharArray(text)).toAscii();
}

void pythonPrograms() {
    chapter("Python programs, driven command by command");
    const Address builtins = object("pyCreateBuiltinModule", {});
    say("Python's print reaches the host's console through the relay (text outside ASCII too):");
    invoke(member(builtins, "print"),
           {unicode(u"  Gr\u00fc\u00dfe aus Python: \u03c0 \u2248 3.14159 \u2713")});

    const Address textwrap = object("pyCreateModule", {chars("textwrap")});
    say("Imported textwrap; its __name__ attribute reads '" +
        narrow(textOfObject(member(textwrap, "__name__"))) + "'.");
    const std::u16string prose =
        u"Python objects never cross the boundary: only their addresses do, kept alive in a "
        u"registry "
        u"until the host releases them.";
    const Address lines =
        invoke(member(textwrap, "wrap"),
               {unicode(prose),
                object("pyCreateLong", {vd::ArrayFactory().createScalar(std::int64_t{36})})});
    say("textwrap.wrap of a host string at width 36, called with a tuple the host built:");
    vd::Array count;
    std::vector<vd::Array> args{addr(lines)};
    feval_dispatcher("pySequenceLength", 1, &count, 1, args.data());
    for (std::uint64_t i = 0;
         i < static_cast<std::uint64_t>(vd::TypedArray<std::uint64_t>(count)[0]); ++i) {
        say("  | " + narrow(textOfObject(object(
                         "pySequenceGet", {addr(lines), vd::ArrayFactory().createScalar(i)}))));
    }

    say("A call that fails leaves the Python error for the host to inspect and clear:");
    run("pyInvoke", {addr(member(builtins, "int")), addr(tupleOf({unicode(u"forty-two")}))});
    run("pyErrorOccurred");
    run("pyErrorClear");
    run("pyErrorOccurred");
}

void buffers() {
    chapter("Numeric data without copies");
    vd::ArrayFactory f;
    vd::TypedArray<double> host = f.createArray<double>({3, 4});
    for (size_t k = 0; k < 12; ++k) {
        host[k] = static_cast<double>(k);
    }
    const Address view = object("pyCreateMemoryView", {host});
    Address numpy = 0;
    try {
        numpy = object("pyCreateModule", {chars("numpy")});
    } catch (const std::exception& e) {
        say("This interpreter has no NumPy (" + std::string(e.what()) +
            "); Debian's /usr/bin/python3 has it.");
        return;
    }
    const Address matrix = invoke(member(numpy, "asarray"), {view});
    say("A 3 by 4 host matrix handed to NumPy: numpy.asarray(view).shape = " +
        narrow(textOfObject(member(matrix, "shape"))));
    const Address shares = invoke(member(numpy, "shares_memory"), {matrix, view});
    say("numpy.shares_memory(array, view) = " + narrow(textOfObject(shares)) +
        " (the host's own storage)");
    const Address product = invoke(member(numpy, "matmul"), {member(matrix, "T"), matrix});
    const Address result = object("pyCreateBuffer", {addr(product)});
    vd::Array back;
    std::vector<vd::Array> args{addr(result)};
    feval_dispatcher("pyBufferGetData", 1, &back, 1, args.data());
    auto dims = back.getDimensions();
    vd::TypedArray<double> gram(back);
    say("NumPy computed A' * A; read back with pyBufferGetData as a " + std::to_string(dims[0]) +
        " by " + std::to_string(dims[1]) +
        " host array, element (4,4) = " + std::to_string(static_cast<double>(gram[3][3])));
}

void releaseMade() {
    say("\nReleasing the " + std::to_string(made.size()) + " addresses the tour received.");
    for (Address a : made) {
        vd::Array out;
        std::vector<vd::Array> args{addr(a)};
        feval_dispatcher("Release", 1, &out, 1, args.data());
    }
    made.clear();
}

void closeDown() {
    chapter("Closing");
    run("pyClose");
    say("Every request after pyClose gets the discard token:");
    run("Ping");
}

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i + 1 < argc; i += 2) {
        options[argv[i]] = argv[i + 1];
    }
    for (const char* required :
         {"--executable", "--library", "--home", "--version", "--location"}) {
        if (!options.count(required)) {
            std::cerr << "vx-tour needs " << required << "\n";
            return 2;
        }
    }
    try {
        hostArrays();
        startAndPing();
        pythonPrograms();
        buffers();
        releaseMade();
        closeDown();
    } catch (const std::exception& e) {
        std::cerr << "The tour stopped: " << e.what() << "\n";
        return 1;
    }
    return 0;
}
