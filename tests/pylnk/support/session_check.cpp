// vx_session_check EXECUTABLE LIBRARY HOME VERSION MODULE_FOLDER
// Starts the named interpreter through the library, pings it, checks that
// libvxbuffer imported, closes it, and prints what happened. Exit code 0
// when every step gave the expected answer.
#include <iostream>

#include "support/session.h"

using namespace vxtest;

int main(int argc, char** argv) {
    if (argc != 6) {
        std::cerr << "usage: vx_session_check EXECUTABLE LIBRARY HOME VERSION MODULE_FOLDER\n";
        return 2;
    }
    PythonInstall python{argv[1], argv[2], argv[3], argv[4]};
    bool passed = true;
    const auto check = [&passed](const char* step, bool ok) {
        std::cout << step << ": " << ok << "\n";
        passed = passed && ok;
    };
    try {
        const std::string token =
            textOf(call("attemptToStartPython", {startRequest(python, argv[5])}));
        std::cout << "start: " << token << "\n";
        if (token != "vx_success_token_for_oop_python") {
            return 1;
        }
        check("Ping", textOf(call("Ping")) == "success");
        for (const char* name :
             {"sys.version", "sys.executable", "sys.prefix", "libvxbuffer.__file__"}) {
            std::cout << name << ": " << strOf(fetch(name)) << "\n";
        }
        // A few commands of each family on this version.
        vd::ArrayFactory f;
        const Address big =
            addressOf(call("pyCreateLong", {f.createScalar(std::int64_t{-1234567890123})}));
        check("int64 round trip",
              valueOf<std::int64_t>(call("pyLongGetDataInt64", {addressArray(big)})) ==
                  -1234567890123);
        vd::Array matrix = f.createArray<double>({2, 3});
        const Address view = addressOf(call("pyCreateMemoryView", {matrix}));
        check("zero-copy buffer", call("pyBufferGetData", {addressArray(view)}).getReadOnlyData() ==
                                      matrix.getReadOnlyData());
        release(view);
        check("textwrap.shorten",
              strOf(invoke(fetch("textwrap.shorten"),
                           {unicode(u"one two three four"), eval("10")})) == "one [...]");
        // Introspection reads attributes that may be missing and calls inspect:
        // the version-dependent corners of the bridge.
        const vd::Array metadata = callOn("pyGetClassMetaData", "__import__('textwrap')");
        check("class metadata", textOf(field(metadata, "name")) == "module" &&
                                    field(metadata, "methods").getNumberOfElements() > 10 &&
                                    !errorOccurred());
        check("object result",
              valueOf<double>(field(callOn("pyGetPropertyValueFast", "2.5", {chars("")}),
                                    "scalarData")) == 2.5);
        // Python data back to the host, without NumPy.
        const vd::Array module = callOn("pyGetModuleMetaData", "__import__('textwrap')");
        check("module metadata", textOf(field(module, "name")) == "textwrap" &&
                                     !field(module, "classes").isEmpty() && !errorOccurred());
        check("list", callOn("pyConvertSequenceToCell", "[1.5, 'x']").getNumberOfElements() == 2);
        const vd::Array dates =
            callOn("pyDatetimeGetData",
                   "[__import__('datetime').datetime(2024, 2, 29, 10, 30, 15, 250000),"
                   " __import__('datetime').datetime(1969, 7, 20)]");
        check("dates",
              valuesOf<std::int64_t>(field(field(dates, "VELTRAPyHost_pyDatetimeListData"),
                                           "year")) == std::vector<std::int64_t>{2024, 1969});
        check("pyClose", textOf(call("pyClose")) == "success");
        check("discard after pyClose", textOf(call("Ping")) == "vx_discard_token_for_oop_python");
        return passed ? 0 : 1;
    } catch (const std::exception& e) {
        std::cout << "failed: " << e.what() << "\n";
        return 1;
    }
}
