// pylnk_core_probe VERSION LIBRARY EXECUTABLE
//
// Starts the given interpreter through the bridge, puts it through the
// operations whose behaviour could differ between versions, closes it, and
// exits with 0 when every check held. Prints each failed check.
#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "python_helpers.h"

namespace {

using namespace pylnk_core;
using namespace pylnk_core::api;
using namespace pylnk_core::testing;

int failures = 0;

#define CHECK(condition)                                                                       \
    do {                                                                                       \
        if (!(condition)) {                                                                    \
            std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition); \
            ++failures;                                                                        \
        }                                                                                      \
    } while (false)

template <class Exception, class Call>
bool throws(Call call) {
    try {
        call();
    } catch (const Exception&) {
        return true;
    }
    return false;
}

void checkFailureRules() {
    try {
        object::pyGetMember(evaluate("object()").get(), "missing");
    } catch (const InternalPyException& failure) {
        CHECK(std::string(failure.what()).rfind("AttributeError: ", 0) == 0);
    }
    PyHolder error = exception::pyErrorFetch();
    CHECK(object::pyIsInstance(sequence::pyGetItem(error.get(), 1).get(),
                               sequence::pyGetItem(error.get(), 0).get()));
    CHECK(exception::pyErrorOccurred());
    exception::pyErrorClear();
    CHECK(str(exception::pyErrorFetch().get()) == "(None, None, None)");

    long long value = 5;
    primitive::pyLongGetData(evaluate("2 ** 64").get(), &value);
    CHECK(exception::pyErrorOccurred() && value == 5);
    exception::pyErrorClear();
    // Floats are refused alike on every version.
    CHECK(throws<InternalPyException>([] { primitive::pyIntGetData(evaluate("7.5").get()); }));
    exception::pyErrorClear();

    CHECK(!exception::pyErrorOccurred());
}

void checkObjects(int minor) {
    PyHolder value = evaluate("['v']");
    const long before = refcount(value.get());
    PyHolder tuple = sequence::pyTupleCreateSize(2);
    sequence::pyTupleSetValue(tuple.get(), 0, value.get());
    CHECK(refcount(value.get()) == before + 1);
    CHECK(str(tuple.get()) == "(['v'], None)");
    tuple.reset();
    CHECK(refcount(value.get()) == before);

    CHECK(fetch::fetch(u"os.path.join").get() == evaluate("__import__('os').path.join").get());
    CHECK(throws<fetch::BadPythonName>([] { fetch::fetch(u"os..path"); }));
    CHECK(!exception::pyErrorOccurred());

    const std::u16string text = {u'a', 0xD83D, 0xDE00, 0xD800, u'z'};
    CHECK(object::get_ustring(primitive::pyCreateString(text).get()) == text);
    std::vector<double> components = {2001, 2, 3, 4, 5, 6, 7};
    PyHolder date = primitive::pyCreateDatetime(components, true);
    CHECK(str(date.get()) == "2001-02-03 04:05:06.007000+00:00");
    CHECK(object::pyDatetimeGetTimezone(date.get()) == "UTC");

    long long numbers[] = {1, -2, 3};
    PyHolder array = primitive::pyCreateNumericArray(sizeof numbers, 'q', numbers);
    std::size_t bytes = 0;
    long itemSize = 0;
    char code = 0;
    void* data = nullptr;
    primitive::pyNumericArrayGetData(array.get(), &bytes, &itemSize, &code, &data);
    CHECK(bytes == sizeof numbers && itemSize == 8 && code == 'q');
    CHECK(static_cast<long long*>(data)[1] == -2);
    if (minor >= 10) {
        CHECK(type::pyTypeVXName(evaluate("type(int | str)").get()) == "py.types.UnionType");
    }
    CHECK(!exception::pyErrorOccurred());
}

void checkThreadsAndClose() {
    int fds[2];
    CHECK(::pipe(fds) == 0);
    run("import os, threading, time\n"
        "def signal_later(fd):\n"
        "    time.sleep(0.05)\n"
        "    os.write(fd, b'x')\n"
        "def spin():\n"
        "    while True:\n"
        "        time.sleep(0.01)\n"
        "threading.Thread(target=signal_later, args=(" +
        std::to_string(fds[1]) +
        ",)).start()\n"
        "threading.Thread(target=spin).start()\n");
    {
        interpreter::GILRelease idle;
        pollfd readable{fds[0], POLLIN, 0};
        CHECK(::poll(&readable, 1, 10000) == 1);
    }
    interpreter::pyClose();
    CHECK(!loader::isPythonLoaded());
}

std::u16string widen(const char* text) {
    return std::u16string(text, text + std::strlen(text));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: %s VERSION LIBRARY EXECUTABLE\n", argv[0]);
        return 2;
    }
    const std::string version = argv[1];
    const std::string signalsBefore = caughtSignals();
    // Honoured, this home would end the process at start-up.
    ::setenv("PYTHONHOME", "/nonexistent/home", 1);
    ::setenv("PYTHONPATH", "/probe/environment", 1);
    const int status = loader::attemptToLoadPython(widen(argv[1]), widen(argv[2]), widen(argv[3]),
                                                   u"", u"/probe/first", false);
    if (status != 0) {
        std::fprintf(stderr, "start failed: %d, %s\n", status, loader::describeLoadStatus(status));
        return 1;
    }
    try {
        CHECK(loader::loadedVersion() == version.substr(0, version.find('.', 2)));
        CHECK(textOf("__import__('sys').path[0]") == "/probe/first");
        CHECK(textOf("__import__('sys').executable") == argv[3]);
        CHECK(textOf("'/probe/environment' in __import__('sys').path") == "False");
        textOf("__import__('signal').SIGINT");
        CHECK(caughtSignals() == signalsBefore);
        checkFailureRules();
        checkObjects(std::atoi(version.c_str() + 2));
        checkThreadsAndClose();
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "unexpected exception: %s\n", failure.what());
        return 1;
    }
    std::printf("%s: %d failed checks\n", version.c_str(), failures);
    return failures == 0 ? 0 : 1;
}
