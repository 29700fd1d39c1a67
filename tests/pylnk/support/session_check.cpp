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
    try {
        const std::string token =
            textOf(call("attemptToStartPython", {startRequest(python, argv[5])}));
        std::cout << "start: " << token << "\n";
        if (token != "vx_success_token_for_oop_python") {
            return 1;
        }
        const std::string ping = textOf(call("Ping"));
        std::cout << "Ping: " << ping << "\n";
        for (const char* name :
             {"sys.version", "sys.executable", "sys.prefix", "libvxbuffer.__file__"}) {
            std::cout << name << ": " << strOf(fetch(name)) << "\n";
        }
        // A few commands of each family on this version.
        vd::ArrayFactory f;
        const Address big =
            addressOf(call("pyCreateLong", {f.createScalar(std::int64_t{-1234567890123})}));
        const bool numbers = vd::TypedArray<std::int64_t>(call(
                                 "pyLongGetDataInt64", {addressArray(big)}))[0] == -1234567890123;
        vd::Array matrix = f.createArray<double>({2, 3});
        const Address view = addressOf(call("pyCreateMemoryView", {matrix}));
        const bool zeroCopy = call("pyBufferGetData", {addressArray(view)}).getReadOnlyData() ==
                              matrix.getReadOnlyData();
        const std::string text =
            strOf(invoke(fetch("textwrap.shorten"), {unicode(u"one two three four"), eval("10")}));
        // Introspection reads attributes that may be missing and calls inspect:
        // the version-dependent corners of the bridge.
        const vd::Array metadata = call("pyGetClassMetaData", {addressArray(fetch("textwrap"))});
        const vd::Array methods = field(metadata, "methods");
        const bool described = textOf(field(metadata, "name")) == "module" &&
                               methods.getNumberOfElements() > 10 && !errorOccurred();
        const vd::Array result =
            call("pyGetPropertyValueFast", {addressArray(eval("2.5")), chars("")});
        const bool fast =
            static_cast<double>(vd::TypedArray<double>(field(result, "scalarData"))[0]) == 2.5;
        // Python data back to the host, without NumPy: a module described,
        // a list read one level deep, dates of a list taken apart.
        const vd::Array module = call("pyGetModuleMetaData", {addressArray(fetch("textwrap"))});
        const bool moduleDescribed = textOf(field(module, "name")) == "textwrap" &&
                                     !field(module, "classes").isEmpty() && !errorOccurred();
        const vd::Array cells = call("pyConvertSequenceToCell", {addressArray(eval("[1.5, 'x']"))});
        const bool listRead = cells.getNumberOfElements() == 2;
        const vd::Array dates = call(
            "pyDatetimeGetData",
            {addressArray(eval("[__import__('datetime').datetime(2024, 2, 29, 10, 30, 15, 250000),"
                               " __import__('datetime').datetime(1969, 7, 20)]"))});
        const vd::Array years = field(field(dates, "VELTRAPyHost_pyDatetimeListData"), "year");
        const bool datesRead =
            valuesOf<std::int64_t>(years) == std::vector<std::int64_t>{2024, 1969};
        std::cout << "int64 round trip: " << numbers << ", zero-copy buffer: " << zeroCopy
                  << ", textwrap.shorten: " << text << ", class metadata: " << described
                  << ", object result: " << fast << ", module metadata: " << moduleDescribed
                  << ", list: " << listRead << ", dates: " << datesRead << "\n";
        release(view);
        const std::string closed = textOf(call("pyClose"));
        std::cout << "pyClose: " << closed << "\n";
        const std::string after = textOf(call("Ping"));
        std::cout << "after pyClose: " << after << "\n";
        return ping == "success" && closed == "success" && numbers && zeroCopy &&
                       text == "one [...]" && described && fast && moduleDescribed && listRead &&
                       datesRead && after == "vx_discard_token_for_oop_python"
                   ? 0
                   : 1;
    } catch (const std::exception& e) {
        std::cout << "failed: " << e.what() << "\n";
        return 1;
    }
}
