// The first chapters: host arrays, start-up, Python programs command by
// command, numeric data without copies, and closing down.
#include "tour.h"

namespace tour {

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
    say("A struct with fields in declared order: " + shown(s));

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
    say("The host client spawned a worker process (pid " + std::to_string(session().pid()) +
        "); commands and replies go through rings in memory that both processes share, "
        "beside a private socket whose end tells each side that the other is gone.");
    say("Before any start, only _TEST_ answers: it echoes its arguments.");
    run("_TEST_", {chars("echo")});
    say("Interpreter: " + options["--executable"] + " (" + options["--version"] + "), library " +
        options["--library"]);
    say("First a start with a library that does not exist:");
    vxpy::Interpreter broken = interpreter();
    broken.library = "/no/such/libpython.so";
    try {
        session().start(broken);
    } catch (const vxpy::Error& e) {
        say(std::string("  refused: ") + e.what());
    }
    say("Then the real one, in the same worker:");
    session().start(interpreter());
    say("  started: " + std::string(session().started() ? "yes" : "no"));
    run("Ping");
    say("The working folder of the worker moves with the host's:");
    run("ChangeCurrentWorkingFolder", {chars("/tmp")});
    say("An unknown command is answered, not left hanging:");
    run("pyNoSuchCommand");
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
        u"registry until the host releases them.";
    const Address lines =
        invoke(member(textwrap, "wrap"),
               {unicode(prose),
                object("pyCreateLong", {vd::ArrayFactory().createScalar(std::int64_t{36})})});
    say("textwrap.wrap of a host string at width 36, called with a tuple the host built:");
    const vd::Array count = call("pySequenceLength", {addr(lines)})[0];
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
        call("pyErrorClear", {});
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
    const vd::Array back = call("pyBufferGetData", {addr(result)})[0];
    auto dims = back.getDimensions();
    vd::TypedArray<double> gram(back);
    say("NumPy computed A' * A; read back with pyBufferGetData as a " + std::to_string(dims[0]) +
        " by " + std::to_string(dims[1]) +
        " host array, element (4,4) = " + std::to_string(static_cast<double>(gram[3][3])));

    // Large arrays cross the process boundary without a copy, and stay values.
    vd::TypedArray<double> big = f.createArray<double>({1024, 1024});
    big[0] = 1.0;
    const Address bigView = object("pyCreateMemoryView", {big});
    const Address first = member(numpy, "asarray");
    big[0] = 99.0;  // the host writes after sending: it gets a copy of its own
    const Address seen = invoke(first, {bigView});
    say("An 8 MiB host matrix went to the worker without a copy: Python reads the host's "
        "pages. The host then set element 0 to 99; Python still sees " +
        narrow(textOfObject(invoke(member(seen, "item"),
                                   {object("pyCreateLong", {f.createScalar(std::int64_t{0})})}))) +
        ", the value it was sent.");
    const vd::Array echoed = call("_TEST_", {big})[0];
    say(std::string("_TEST_ of the matrix gives back ") +
        (echoed.sharesDataWith(big) ? "the host's own array (no copy either way)" : "a copy") +
        ".");
}

void closeDown() {
    releaseMade();
    chapter("Closing");
    run("pyClose");
    say("Every request after pyClose gets the discard token:");
    run("Ping");
    session().close();
    say("The session closed; the worker has ended. A call now is refused:");
    run("Ping");
}

}  // namespace tour
