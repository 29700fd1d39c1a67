// The embedded interpreter as user code sees it: where it came from, its
// search path, its console, its threads, and the ordinary tools of a
// complete Python driven through the commands only.
#include <gtest/gtest.h>
#include <zrt/console.h>

#include <filesystem>
#include <fstream>

#include "support/session.h"

using namespace vxtest;
using namespace std::chrono_literals;

namespace {

struct PythonSession : SessionTest {
    zrt::ConsoleCapture console;
};

}  // namespace

TEST_F(PythonSession, StartRequestDecidesPathAndExecutable) {
    // The library itself is the one the relay loaded by its bare name.
    exec("import sys");
    EXPECT_EQ(strOf(eval("(sys.path[0], sys.executable, sys.stdout.isatty(), "
                         "type(sys.stdout).__name__, sys.flags.ignore_environment, "
                         "__import__('libvxbuffer').__file__.startswith(sys.path[0]))")),
              "('" + moduleFolder() + "', '" + systemPython().executable +
                  "', False, 'QorPrinter', 1, True)");
}

TEST_F(PythonSession, PrintsReachConsoleInOrderFromAnyThread) {
    exec("import sys\nprint('caf\\u00e9 \\u03b1\\u03b2 \\U0001F600')");
    EXPECT_EQ(textOf(call("Ping")), "success");
    exec("sys.stdout.write(b'raw bytes')\nsys.stdout.write('')\nprint('a', 'b', sep='|', end='!')");
    exec("sys.stderr.write('to stderr\\n')");
    const std::vector<std::u16string> expected{u"caf\u00e9 \u03b1\u03b2 \U0001F600",
                                               u"\n",
                                               u"raw bytes",
                                               u"",
                                               u"a",
                                               u"|",
                                               u"b",
                                               u"!",
                                               u"to stderr\n"};
    EXPECT_EQ(console.writes(), expected);

    // Lone surrogates cannot be encoded: they are replaced, not fatal.
    console.clear();
    exec("print('x\\ud800y', end='')");
    EXPECT_EQ(console.text(), u"x?y");

    // A thread of the user's prints while no command is sent (handoff_test
    // counts the ticks of such a thread).
    exec("import threading\nthreading.Thread(target=lambda: print('from a thread')).start()");
    EXPECT_TRUE(console.waitFor(u"from a thread", 5000ms));
}

TEST_F(PythonSession, ACompletePythonForUserCode) {
    exec(
        "import sys, subprocess, warnings\n"
        "child = subprocess.run([sys.executable, '-c', 'print(6 * 7)'], capture_output=True, "
        "text=True)\n"
        "argv_ok = isinstance(sys.argv, list)\n"
        "with warnings.catch_warnings(record=True) as caught:\n"
        "    warnings.simplefilter('always')\n"
        "    warnings.warn('careful')\n");
    EXPECT_EQ(strOf(eval("(child.stdout, argv_ok, str(caught[0].message))")),
              "('42\\n', True, 'careful')");

    // Unfiltered warnings print through the relay on stderr.
    exec("warnings.warn('shown on the console')");
    EXPECT_NE(console.text().find(u"UserWarning: shown on the console"), std::u16string::npos);

    // A test runner inside the embedded interpreter.
    const auto folder =
        std::filesystem::temp_directory_path() / ("vx-pytest-" + std::to_string(getpid()));
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "test_inside.py") << "def test_one():\n    assert 1 + 1 == 2\n"
                                                "def test_two():\n    assert 'a'.upper() == 'A'\n";
    exec("import pytest\nexit_code = int(pytest.main(['-q', '-p', 'no:cacheprovider', r'" +
         folder.string() + "']))");
    EXPECT_EQ(strOf(eval("exit_code")), "0")
        << std::string(console.text().begin(), console.text().end());
    EXPECT_NE(console.text().find(u"2 passed"), std::u16string::npos);
    std::filesystem::remove_all(folder);
}

TEST(PythonSessionRelay, AFolderWithoutArchitectureCodeKeepsPythonsOwnStreams) {
    // The same modules under a folder name that names no architecture.
    const auto plain =
        std::filesystem::temp_directory_path() / ("vx-plain-" + std::to_string(getpid()));
    std::filesystem::create_directory_symlink(moduleFolder(), plain);
    ASSERT_EQ(textOf(call("attemptToStartPython", {startRequest(systemPython(), plain.string())})),
              "vx_success_token_for_oop_python");
    std::filesystem::remove(plain);
    exec("import sys");
    EXPECT_EQ(strOf(eval("type(sys.stdout).__name__")), "TextIOWrapper");
}
