// Starting and closing the interpreter. Every test here needs a process of
// its own, which CTest gives each test case.
#include <poll.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include <gtest/gtest.h>

#include "python_helpers.h"

namespace pylnk_core::testing {
namespace {

using namespace api;
using loader::LoadStatus;

#define REQUIRE_SYSTEM_PYTHON()    \
    if (!installed(kSystemPython)) \
    GTEST_SKIP() << "the system's Python 3.11 is not installed"

struct BadRequest {
    const char* name;
    std::u16string version;
    std::u16string library;
    std::u16string executable;
    std::u16string home;
    LoadStatus expected;
};

std::ostream& operator<<(std::ostream& out, const BadRequest& request) {
    return out << request.name;
}

class BridgeFailedStartTest : public ::testing::TestWithParam<BadRequest> {};

// A refused start leaves nothing behind: the same process then starts a
// correct interpreter.
TEST_P(BridgeFailedStartTest, IsRefusedAndAGoodStartFollows) {
    REQUIRE_SYSTEM_PYTHON();
    const BadRequest& bad = GetParam();
    if (bad.library.starts_with(u"/root/") &&
        !std::filesystem::exists(std::filesystem::path(bad.library))) {
        GTEST_SKIP() << "library not on this machine";
    }
    const int status =
        loader::attemptToLoadPython(bad.version, bad.library, bad.executable, bad.home, u"", false);
    EXPECT_EQ(status, static_cast<int>(bad.expected)) << loader::describeLoadStatus(status);
    EXPECT_FALSE(loader::isPythonLoaded());
    EXPECT_EQ(loader::loadedVersion(), "");
    EXPECT_THROW(primitive::pyCreateInt(1), InternalPyException);

    ASSERT_EQ(load(kSystemPython), 0);
    EXPECT_TRUE(loader::isPythonLoaded());
    EXPECT_EQ(loader::loadedVersion(), "3.11");
    EXPECT_EQ(textOf("__import__('sys').version_info[:2]"), "(3, 11)");
    EXPECT_EQ(textOf("__import__('numpy').arange(3).sum()"), "3");
}

const std::u16string kLib = kSystemPython.library;
const std::u16string kExe = kSystemPython.executable;

INSTANTIATE_TEST_SUITE_P(
    Requests, BridgeFailedStartTest,
    ::testing::Values(
        BadRequest{"MissingLibrary", u"3.11", u"/nonexistent/libpython3.11.so", kExe, u"",
                   LoadStatus::LibraryNotLoadable},
        BadRequest{"EmptyLibrary", u"3.11", u"", kExe, u"", LoadStatus::LibraryNotLoadable},
        BadRequest{"Zlib", u"3.11", u"/usr/lib/x86_64-linux-gnu/libz.so.1", kExe, u"",
                   LoadStatus::NotCPython},
        BadRequest{"MathLibrary", u"3.11", u"/lib/x86_64-linux-gnu/libm.so.6", kExe, u"",
                   LoadStatus::NotCPython},
        BadRequest{"VersionMismatch", u"3.10", kLib, kExe, u"", LoadStatus::VersionMismatch},
        BadRequest{"OtherMajor", u"2.11", kLib, kExe, u"", LoadStatus::VersionMismatch},
        BadRequest{"BadVersionText", u"3.11a", kLib, kExe, u"", LoadStatus::BadVersionRequest},
        BadRequest{"NoVersion", u"", kLib, kExe, u"", LoadStatus::BadVersionRequest},
        BadRequest{"HomeWithoutStandardLibrary", u"3.11", kLib, kExe, u"/tmp",
                   LoadStatus::HomeWithoutStandardLibrary},
        BadRequest{"MissingExecutable", u"3.11", kLib, u"/nonexistent/python3", u"",
                   LoadStatus::ExecutableNotFound},
        BadRequest{"Python37", u"3.7", u"/root/.pyenv/versions/3.7.16/lib/libpython3.7m.so", kExe,
                   u"", LoadStatus::VersionUnsupported},
        BadRequest{"Python27", u"2.7", u"/root/.pyenv/versions/2.7.18/lib/libpython2.7.so", kExe,
                   u"", LoadStatus::VersionUnsupported},
        BadRequest{"OtherPythonMismatch", u"3.11",
                   u"/root/.pyenv/versions/3.12.1/lib/libpython3.12.so", kExe, u"",
                   LoadStatus::VersionMismatch}),
    [](const ::testing::TestParamInfo<BadRequest>& info) { return std::string(info.param.name); });

// The interpreter reads nothing from the environment, takes the executable
// and the path of the request, and starts with the lock held by this thread.
TEST(BridgeStartTest, UsesTheRequestAndIgnoresTheEnvironment) {
    REQUIRE_SYSTEM_PYTHON();
    const std::string signalsBefore = caughtSignals();
    // Honoured, this home would end the process at start-up.
    ::setenv("PYTHONHOME", "/nonexistent/home", 1);
    ::setenv("PYTHONPATH", "/from/the/environment", 1);
    ASSERT_EQ(load(kSystemPython, u"/usr", u"/first/entry::/second/entry"), 0);
    EXPECT_EQ(textOf("__import__('sys').path[:2]"), "['/first/entry', '/second/entry']");
    EXPECT_EQ(textOf("'/from/the/environment' in __import__('sys').path"), "False");
    EXPECT_EQ(textOf("__import__('sys').flags.ignore_environment"), "1");
    EXPECT_EQ(textOf("__import__('sys').executable"), "/usr/bin/python3");
    EXPECT_EQ(caughtSignals(), signalsBefore) << "the start installed a signal handler";
    textOf("__import__('signal').SIGINT");
    EXPECT_EQ(caughtSignals(), signalsBefore) << "importing signal took over a signal";
    APIAccessor nested;
    EXPECT_EQ(textOf("__import__('threading').current_thread() is "
                     "__import__('threading').main_thread()"),
              "True");
}

TEST(BridgeStartTest, VirtualEnvironmentTakesEffect) {
    REQUIRE_SYSTEM_PYTHON();
    const std::filesystem::path venv =
        std::filesystem::temp_directory_path() / ("pylnk_core_venv_" + std::to_string(::getpid()));
    const std::string create = "/usr/bin/python3 -m venv --without-pip " + venv.string();
    if (std::system(create.c_str()) != 0) {
        GTEST_SKIP() << "no venv module";
    }
    const std::u16string executable(u"" + venv.u16string() + u"/bin/python3");
    ASSERT_EQ(
        loader::attemptToLoadPython(u"3.11.2", kSystemPython.library, executable, u"", u"", false),
        0);
    EXPECT_EQ(textOf("__import__('sys').prefix"), venv.string());
    EXPECT_EQ(textOf("__import__('sys').base_prefix"), "/usr");
    std::filesystem::remove_all(venv);
}

TEST(BridgeStartTest, SecondStartAndStartAfterCloseAreRefused) {
    REQUIRE_SYSTEM_PYTHON();
    ASSERT_EQ(load(kSystemPython), 0);
    EXPECT_EQ(load(kSystemPython), static_cast<int>(LoadStatus::AlreadyRunning));
    PyHolder survivor = evaluate("[1, 2, 3]");

    interpreter::pyClose();
    EXPECT_FALSE(loader::isPythonLoaded());
    EXPECT_EQ(loader::loadedVersion(), "");
    EXPECT_EQ(load(kSystemPython), static_cast<int>(LoadStatus::AlreadyClosed));
    // After the close: no call reaches the interpreter, and nothing crashes.
    EXPECT_FALSE(exception::pyErrorOccurred());
    exception::pyErrorClear();
    EXPECT_THROW(primitive::pyCreateInt(1), InternalPyException);
    EXPECT_THROW(exception::pyErrorFetch(), InternalPyException);
    EXPECT_THROW(APIAccessor(), InternalPyException);
    EXPECT_EQ(loader::getAPI()->importCapsule(u"datetime.datetime_CAPI"), nullptr);
    EXPECT_FALSE(object::pyIsNone(survivor.get()));
    { interpreter::GILRelease idle; }
    survivor.reset();
    interpreter::pyClose();
}

TEST(BridgeCloseTest, WaitsForPythonThreadsButNotForever) {
    REQUIRE_SYSTEM_PYTHON();
    ASSERT_EQ(load(kSystemPython), 0);
    const std::filesystem::path marker = std::filesystem::temp_directory_path() /
                                         ("pylnk_core_marker_" + std::to_string(::getpid()));
    std::filesystem::remove(marker);
    run("import threading, time\n"
        "def finish(path):\n"
        "    time.sleep(0.3)\n"
        "    open(path, 'w').close()\n"
        "def spin():\n"
        "    while True:\n"
        "        time.sleep(0.01)\n"
        "threading.Thread(target=finish, args=(" +
        std::string("'") + marker.string() +
        "',)).start()\n"
        "threading.Thread(target=spin).start()\n"
        "from concurrent.futures import ThreadPoolExecutor\n"
        "pool = ThreadPoolExecutor(2)\n"
        "pool.submit(time.sleep, 0.1)\n");
    // A thread that ends is waited for; one that never ends does not keep
    // the call from returning (the test's time limit would catch a hang).
    interpreter::pyClose();
    EXPECT_TRUE(std::filesystem::exists(marker));
    EXPECT_FALSE(loader::isPythonLoaded());
    std::filesystem::remove(marker);
}

// Python threads run while the interpreter's thread waits in a GILRelease,
// and only then.
TEST(BridgeCloseTest, GilReleaseLetsPythonThreadsRun) {
    REQUIRE_SYSTEM_PYTHON();
    ASSERT_EQ(load(kSystemPython), 0);
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    // The thread first sleeps, so that it needs the lock again after this
    // thread has left Python.
    run("import os, threading, time\n"
        "def signal_when_running(fd):\n"
        "    time.sleep(0.05)\n"
        "    os.write(fd, b'x')\n"
        "threading.Thread(target=signal_when_running, args=(" +
        std::to_string(fds[1]) + ",)).start()\n");
    auto readWithin = [&](int milliseconds) {
        pollfd readable{fds[0], POLLIN, 0};
        return ::poll(&readable, 1, milliseconds) == 1;
    };
    EXPECT_FALSE(readWithin(200)) << "the thread ran while the lock was held";
    {
        interpreter::GILRelease idle;
        EXPECT_TRUE(readWithin(10000));
    }
    char byte = 0;
    EXPECT_EQ(::read(fds[0], &byte, 1), 1);
    // The lock is back with the same thread state.
    EXPECT_EQ(textOf("__import__('threading').current_thread() is "
                     "__import__('threading').main_thread()"),
              "True");
    ::close(fds[0]);
    ::close(fds[1]);
    interpreter::pyClose();
}

}  // namespace
}  // namespace pylnk_core::testing
