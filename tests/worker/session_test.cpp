// A session drives Python in a worker process, on either transport: arrays
// cross both ways, many host threads share one session, and Python's
// printing reaches the host while the call that printed is still waiting.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <future>
#include <memory>
#include <thread>

#include "support/arrays.h"
#include "support/python.h"
#include "wire/wire_format.h"

namespace {

using ::testing::HasSubstr;
using vxtest::failureOf;
using vxtest::Python;
using vxtest::sameArray;
using vxtest::systemPython;
namespace vd = foundation::veltradata;

// The tests that hold for both transports.
class Transports : public ::testing::TestWithParam<vxpy::Transport> {
  protected:
    vxpy::Options options() const {
        vxpy::Options chosen;
        chosen.transport = GetParam();
        return chosen;
    }
};

std::string transportName(const ::testing::TestParamInfo<vxpy::Transport>& info) {
    return info.param == vxpy::Transport::SharedMemory ? "SharedMemory" : "Socket";
}

INSTANTIATE_TEST_SUITE_P(Session, Transports,
                         ::testing::Values(vxpy::Transport::SharedMemory, vxpy::Transport::Socket),
                         transportName);

TEST_P(Transports, EveryArrayTypeMakesTheRoundTripThroughTheWorker) {
    vxpy::Session session(options());
    // _TEST_ needs no interpreter.
    const std::vector<vd::Array> values = vxtest::everyKindOfArray();
    const std::vector<vd::Array> back = session.call("_TEST_", values, values.size());
    ASSERT_EQ(back.size(), values.size());
    for (size_t i = 0; i < values.size(); ++i) {
        EXPECT_TRUE(sameArray(back[i], values[i])) << "array " << i;
    }
    // The reply is what the library wrote: min(nlhs, nrhs) arrays.
    EXPECT_EQ(session.call("_TEST_", values, 2).size(), 2u);
    EXPECT_EQ(session.call("_TEST_", {}, 3).size(), 0u);

    const vd::Array deep = vxtest::nestedCells(vxpy::wire::kMaxDepth);
    EXPECT_TRUE(sameArray(session.call("_TEST_", {deep}).at(0), deep));

    // 256 MiB of doubles, there and back, every byte checked.
    const size_t rows = 4096, columns = 8192;
    vd::TypedArray<double> big = vd::ArrayFactory().createArray<double>({rows, columns});
    auto* data = const_cast<double*>(static_cast<const double*>(big.getReadOnlyData()));
    for (size_t k = 0; k < rows * columns; ++k) {
        data[k] = static_cast<double>(k) * 0.5;
    }
    const vd::Array echoed = session.call("_TEST_", {big}).at(0);
    EXPECT_EQ(echoed.getDimensions(), (std::vector<size_t>{rows, columns}));
    EXPECT_EQ(std::memcmp(echoed.getReadOnlyData(), data, rows * columns * sizeof(double)), 0);
    // In shared memory the worker read the host's own pages and gave them
    // back: the echo is the host's array itself, which stays a value.
    EXPECT_EQ(echoed.sharesDataWith(big), GetParam() == vxpy::Transport::SharedMemory);

    // What the wire cannot carry is refused before anything is sent, and the
    // session goes on.
    EXPECT_THAT(vxtest::clientFailureOf([&] { session.call("_TEST_", {values[1]}, 70000); }),
                HasSubstr("Error: '_TEST_' asks for 70000 outputs"));
    EXPECT_EQ(session.call("_TEST_", {values[1]}).size(), 1u);
}

TEST(Session, StartsOnlyAGoodInterpreterAndReportsCommandFailuresByType) {
    vxpy::Session session;
    const int pid = session.pid();
    EXPECT_EQ(failureOf<vxpy::Error>([&] { session.call("Ping", {}); }),
              "not started: call start() before sending 'Ping'");
    vxpy::Interpreter broken = systemPython();
    broken.library = "/no/such/libpython3.so";
    EXPECT_THROW(session.start(broken), vxpy::Error);
    EXPECT_FALSE(session.started());
    session.start(systemPython());  // the same worker, a second start
    EXPECT_EQ(session.pid(), pid);
    session.start(systemPython());  // quietly, once it runs
    EXPECT_EQ(vd::CharArray(session.call("Ping", {}).at(0)).toAscii(), "success");

    // A stored exception comes back with its type and message.
    const auto failure = [](auto&& call) {
        try {
            call();
        } catch (const vxpy::CommandError& error) {
            return error.type() + ": " + error.what();
        }
        return std::string("no failure");
    };
    EXPECT_EQ(failure([&] { session.call("pyNoSuchCommand", {}); }),
              "std::invalid_argument: Unknown command 'pyNoSuchCommand'.");
    Python python(session);
    EXPECT_THAT(
        failure([&] { python.invoke(python.builtin("int"), {python.unicode("forty-two")}); }),
        HasSubstr("pylnk_core::InternalPyException: ValueError"));
    EXPECT_TRUE(vd::TypedArray<bool>(session.call("pyErrorOccurred", {}).at(0))[0]);
    session.call("pyErrorClear", {});
    EXPECT_EQ(python.str(python.eval("6 * 7")), "42");
}

TEST_P(Transports, ManyHostThreadsShareOneSessionAndEachGetsItsOwnReply) {
    vxpy::Session session(options());
    session.start(systemPython());
    Python setup(session);
    const vd::Array square = setup.eval("lambda x: x * x");

    constexpr int kThreads = 8, kCalls = 40;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            Python python(session);
            vd::ArrayFactory f;
            for (int i = 0; i < kCalls; ++i) {
                const std::int64_t n = t * 1000 + i;
                // An echo of this thread's own array, and a Python call on its own number.
                const vd::Array mine = f.createCharArray("thread " + std::to_string(n));
                if (!sameArray(session.call("_TEST_", {mine}).at(0), mine)) {
                    ++wrong;
                }
                const vd::Array number = python.one("pyCreateLong", {f.createScalar(n)});
                const vd::Array result = python.invoke(square, {number});
                if (python.str(result) != std::to_string(n * n)) {
                    ++wrong;
                }
                session.call("Release", {number});
                session.call("Release", {result});
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong.load(), 0);

    // Calls run one at a time, in order: a call sent while Python sleeps in
    // another runs after it, and both get their own replies.
    setup.exec("import time\norder = []");
    auto busy = std::async(std::launch::async,
                           [&setup] { setup.exec("time.sleep(0.5)\norder.append('slept')"); });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    Python(session).invoke(setup.eval("order.append"), {setup.unicode("second")});
    busy.get();
    EXPECT_EQ(setup.str(setup.eval("order")), "['slept', 'second']");

    // pyClose ends the interpreter; what follows gets the discard token.
    session.call("pyClose", {});
    EXPECT_EQ(vd::CharArray(session.call("Ping", {}).at(0)).toAscii(),
              "vx_discard_token_for_oop_python");
    session.close();
}

TEST_P(Transports, PythonOutputArrivesWhileTheCallWaitsAndBetweenCalls) {
    vxtest::Console console;
    vxpy::Options chosen = options();
    chosen.console = console.sink();
    vxpy::Session session(chosen);
    session.start(systemPython());
    Python python(session);

    // One call prints many lines and only then answers: every line has
    // reached the console, in order, before the call returns.
    python.exec(
        "import sys\n"
        "for i in range(200):\n"
        "    print('line', i)\n"
        "sys.stdout.write('\\u03c0 \\U0001F600 done\\n')\n");
    std::string expected;
    for (int i = 0; i < 200; ++i) {
        expected += "line " + std::to_string(i) + "\n";
    }
    expected += "\xcf\x80 \xf0\x9f\x98\x80 done\n";
    EXPECT_EQ(console.text(), expected);

    // A call that waits for its own printing to be shown by the host: the
    // host's answer to the print is what lets Python go on.
    python.exec("print('before the answer', flush=True)");
    EXPECT_NE(console.text().find("before the answer\n"), std::string::npos);

    // A Python thread of the user's prints while no call is in flight, once
    // more than the connection holds at a time.
    python.exec(
        "import threading, time\n"
        "def later():\n"
        "    time.sleep(0.2)\n"
        "    print('from a thread of its own')\n"
        "    print('y' * 3000000 + ' long')\n"
        "threading.Thread(target=later).start()\n");
    EXPECT_TRUE(console.waitFor("from a thread of its own"));
    EXPECT_TRUE(console.waitFor(std::string(3000000, 'y') + " long"));
}

TEST(Session, FindsInterpretersAndRefusesWhatCannotBeStarted) {
    const vxpy::Interpreter system = systemPython();
    EXPECT_EQ(system.executable, "/usr/bin/python3");
    EXPECT_NE(system.library.find("libpython3"), std::string::npos);
    EXPECT_EQ(system.home, "/usr");
    EXPECT_FALSE(system.version.empty());

    EXPECT_THAT(failureOf<vxpy::Error>([] { vxpy::Interpreter::find("no-such-python-anywhere"); }),
                HasSubstr("no-such-python-anywhere"));
    EXPECT_THROW(vxpy::Interpreter::find("/bin/false"), vxpy::Error);

    // A virtual environment: its own executable, no home, the base's library,
    // and the environment's prefix once started.
    char folder[] = "/tmp/vxpy-venv-XXXXXX";
    ASSERT_NE(::mkdtemp(folder), nullptr);
    const std::string venv = std::string(folder) + "/env";
    ASSERT_EQ(std::system(("/usr/bin/python3 -m venv --without-pip " + venv).c_str()), 0);
    const vxpy::Interpreter inside = vxpy::Interpreter::find(venv + "/bin/python");
    EXPECT_EQ(inside.executable, venv + "/bin/python");
    EXPECT_EQ(inside.home, "");
    EXPECT_EQ(inside.library, system.library);
    vxpy::Session session;
    session.start(inside);
    Python python(session);
    EXPECT_EQ(python.str(python.eval("__import__('sys').prefix")), venv);
    session.close();
    std::system(("rm -rf " + std::string(folder)).c_str());
}

TEST(Session, EveryInterpreterOnTheMachineStartsOutOfProcess) {
    const auto interpreters = vxtest::pyenvInterpreters();
    if (interpreters.empty()) {
        GTEST_SKIP() << "no pyenv interpreters on this machine";
    }
    for (const auto& [version, executable] : interpreters) {
        const vxpy::Interpreter python = vxpy::Interpreter::find(executable);
        EXPECT_EQ(python.version, version);
        vxpy::Session session;
        session.start(python);
        Python py(session);
        EXPECT_EQ(py.str(py.eval("'%d.%d' % __import__('sys').version_info[:2]")), version);
    }
}

}  // namespace
