// Starting and closing the interpreter at the loader's own level, where the
// commands' tokens cannot tell one refusal from another. Every test here
// needs a process of its own, which CTest gives each test case.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "python_helpers.h"

namespace pylnk_core::testing {
namespace {

using namespace api;
using enum loader::LoadStatus;

#define REQUIRE_SYSTEM_PYTHON()    \
    if (!installed(kSystemPython)) \
    GTEST_SKIP() << "the system's Python 3.11 is not installed"

struct BadRequest {
    const char* name;
    PythonInstall python;
    loader::LoadStatus expected;
};

class BridgeFailedStartTest : public ::testing::TestWithParam<BadRequest> {};

// A refused start leaves no half-initialised library behind, even one that
// loaded another CPython into the process: the same process then starts a
// correct interpreter, extension modules included.
TEST_P(BridgeFailedStartTest, RefusedWithStatusThenGoodStartWorks) {
    const BadRequest& bad = GetParam();
    if (!installed(kSystemPython) ||
        !std::filesystem::exists(std::filesystem::path(bad.python.library))) {
        GTEST_SKIP() << "a library is not on this machine";
    }
    const int status = load(bad.python);
    EXPECT_EQ(status, static_cast<int>(bad.expected)) << loader::describeLoadStatus(status);
    EXPECT_FALSE(loader::isPythonLoaded());
    EXPECT_EQ(loader::loadedVersion(), "");
    EXPECT_THROW(primitive::pyCreateInt(1), InternalPyException);

    ASSERT_EQ(load(kSystemPython), 0);
    EXPECT_EQ(textOf("__import__('sys').version_info[:2]"), "(3, 11)");
    EXPECT_EQ(textOf("__import__('numpy').arange(3).sum()"), "3");
}

const std::u16string kLib = kSystemPython.library;
const std::u16string kExe = kSystemPython.executable;

PythonInstall pyenv(const std::u16string& version, const std::u16string& library) {
    return {version, u"/root/.pyenv/versions/" + library, kExe};
}

INSTANTIATE_TEST_SUITE_P(
    Requests, BridgeFailedStartTest,
    ::testing::Values(
        BadRequest{"BadVersionText", {u"3.11a", kLib, kExe}, BadVersionRequest},
        BadRequest{"NoVersion", {u"", kLib, kExe}, BadVersionRequest},
        BadRequest{"MissingExecutable", {u"3.11", kLib, u"/no/python3"}, ExecutableNotFound},
        BadRequest{"Python37", pyenv(u"3.7", u"3.7.16/lib/libpython3.7m.so"), VersionUnsupported},
        BadRequest{"Python27", pyenv(u"2.7", u"2.7.18/lib/libpython2.7.so"), VersionUnsupported},
        BadRequest{"OtherPythonMismatch", pyenv(u"3.11", u"3.12.1/lib/libpython3.12.so"),
                   VersionMismatch}),
    [](const ::testing::TestParamInfo<BadRequest>& info) { return std::string(info.param.name); });

// The interpreter reads nothing from the environment, splits the request's
// path, takes over no signal, and starts with the lock held by this thread.
TEST(BridgeStartTest, IgnoresTheEnvironmentAndTakesNoSignal) {
    REQUIRE_SYSTEM_PYTHON();
    const std::string signalsBefore = caughtSignals();
    // Honoured, this home would end the process at start-up.
    ::setenv("PYTHONHOME", "/nonexistent/home", 1);
    ::setenv("PYTHONPATH", "/from/the/environment", 1);
    ASSERT_EQ(load(kSystemPython, u"/usr", u"/first/entry::/second/entry"), 0);
    EXPECT_EQ(textOf("__import__('sys').path[:2]"), "['/first/entry', '/second/entry']");
    EXPECT_EQ(textOf("'/from/the/environment' in __import__('sys').path"), "False");
    textOf("__import__('signal').SIGINT");
    EXPECT_EQ(caughtSignals(), signalsBefore) << "the start or the signal module took a signal";
    APIAccessor nested;
    EXPECT_EQ(textOf("__import__('threading').current_thread() is "
                     "__import__('threading').main_thread()"),
              "True");
}

// A second start is refused; pyClose waits for Python threads that end,
// pool workers included; after it nothing reaches the interpreter, a later
// start is refused, and nothing crashes.
TEST(BridgeStartTest, RepeatedStartsCloseAndAfterTheClose) {
    REQUIRE_SYSTEM_PYTHON();
    ASSERT_EQ(load(kSystemPython), 0);
    EXPECT_EQ(load(kSystemPython), static_cast<int>(AlreadyRunning));
    PyHolder survivor = evaluate("[1, 2, 3]");
    const std::filesystem::path marker = std::filesystem::temp_directory_path() /
                                         ("pylnk_core_marker_" + std::to_string(::getpid()));
    std::filesystem::remove(marker);
    run("import threading, time\n"
        "def finish(path):\n"
        "    time.sleep(0.3)\n"
        "    open(path, 'w').close()\n"
        "threading.Thread(target=finish, args=('" +
        marker.string() +
        "',)).start()\n"
        "from concurrent.futures import ThreadPoolExecutor\n"
        "pool = ThreadPoolExecutor(2)\n"
        "pool.submit(time.sleep, 0.1)\n");

    interpreter::pyClose();
    EXPECT_TRUE(std::filesystem::exists(marker));
    std::filesystem::remove(marker);
    EXPECT_FALSE(loader::isPythonLoaded());
    EXPECT_EQ(loader::loadedVersion(), "");
    EXPECT_EQ(load(kSystemPython), static_cast<int>(AlreadyClosed));
    EXPECT_FALSE(exception::pyErrorOccurred());
    EXPECT_THROW(primitive::pyCreateInt(1), InternalPyException);
    EXPECT_THROW(APIAccessor(), InternalPyException);
    EXPECT_EQ(loader::getAPI()->importCapsule(u"datetime.datetime_CAPI"), nullptr);
    { interpreter::GILRelease idle; }
    survivor.reset();  // a holder dropped after the close touches nothing
    interpreter::pyClose();
}

}  // namespace
}  // namespace pylnk_core::testing
