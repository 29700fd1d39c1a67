// Session::interrupt(): a running call raises KeyboardInterrupt, the worker
// lives on, and an interrupt that finds nothing running changes nothing
// later; in every interpreter the machine has, with the object API.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "support/python.h"

namespace {

using ::testing::HasSubstr;
using vxpy::Object;
using vxtest::systemPython;
namespace vd = foundation::veltradata;

// A session whose console the tests watch: the Python code of a call says
// that it runs, so that it is interrupted while it runs.
class Watched {
  public:
    explicit Watched(const vxpy::Interpreter& interpreter) : python(options()) {
        python.start(interpreter);
    }

    // The Python statement that says "running <what>".
    static std::string announce(const std::string& what) {
        return "print('running " + what + "', flush=True)\n";
    }
    // Runs the call on a thread of its own and interrupts it once its Python
    // code runs: how it ended ("KeyboardInterrupt", a CommandError's text,
    // "returned"). The calls here would run for 30 s and more; how soon an
    // interrupt takes effect is measured by bench_objects.
    std::string interrupted(const std::string& what, std::function<void()> call) {
        const std::string marker = "running " + what + "\n";
        auto running = std::async(std::launch::async, [call] {
            try {
                call();
            } catch (const vxpy::CommandError& error) {
                return std::string(error.what());
            }
            return std::string("returned");
        });
        EXPECT_TRUE(console_.waitFor(marker)) << "the call did not start";
        python.interrupt();
        if (running.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
            ADD_FAILURE() << "the call was not interrupted";
            python.restart();  // ends the call
        }
        return running.get();
    }

  private:
    vxpy::Options options() {
        vxpy::Options watched;
        watched.console = console_.sink();
        return watched;
    }

    vxtest::Console console_;

  public:
    vxpy::Session python;
};

bool errorLeftSet(vxpy::Session& python) {
    return vd::TypedArray<bool>(python.call("pyErrorOccurred", {}).at(0))[0];
}

TEST(Interrupt, StopsALoopAndASleepAndTheWorkerLivesOn) {
    vxpy::Session idle;
    idle.interrupt();  // before a start: nothing to do

    Watched watched(systemPython());
    vxpy::Session& python = watched.python;
    const int pid = python.pid();
    python.exec("import time");
    python.exec("def sleeps():\n    " + Watched::announce("sleeps") + "    time.sleep(30)");
    const std::string loop = Watched::announce("loop") + "while True:\n    pass";
    EXPECT_EQ(watched.interrupted("loop", [&] { python.exec(loop); }), "KeyboardInterrupt");
    EXPECT_EQ(watched.interrupted("sleeps", [&] { python.eval("sleeps")(); }), "KeyboardInterrupt");
    // A raw command is a call of the session too.
    const std::string raw = "import time\n" + Watched::announce("raw") + "time.sleep(30)";
    EXPECT_THAT(watched.interrupted("raw", [&] { vxtest::Python(python).exec(raw); }),
                HasSubstr("KeyboardInterrupt"));
    python.call("pyErrorClear", {});

    EXPECT_EQ(python.pid(), pid);
    EXPECT_EQ(python.eval("6 * 7").toInt(), 42);
    EXPECT_FALSE(errorLeftSet(python));
    python.close();
    python.interrupt();  // after close(): nothing to do
}

TEST(Interrupt, WithNothingRunningItChangesNothingLater) {
    vxpy::Session python;
    python.start(systemPython());
    python.interrupt();
    python.exec("total = 0\nfor i in range(100000):\n    total += i");
    EXPECT_EQ(python.eval("total").toInt(), 4999950000);

    // Interrupts racing short calls: a call either completes or raises
    // KeyboardInterrupt; once the interrupts stop, no call ever sees one.
    const Object step = python.eval("lambda n: sum(range(n))");
    std::atomic<bool> stop{false};
    std::thread interrupter([&] {
        while (!stop) {
            python.interrupt();
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    });
    int interrupts = 0;
    for (int i = 0; i < 300; ++i) {
        try {
            EXPECT_EQ(step(100).toInt(), 4950);
        } catch (const vxpy::PythonError& error) {
            EXPECT_EQ(error.pythonType(), "KeyboardInterrupt");
            ++interrupts;
        } catch (const std::exception& error) {
            ADD_FAILURE() << error.what();
        }
    }
    stop = true;
    interrupter.join();
    EXPECT_GT(interrupts, 0);
    for (int i = 0; i < 300; ++i) {
        ASSERT_EQ(step(100).toInt(), 4950)
            << "call " << i << " after " << interrupts << " interrupted calls";
    }
    EXPECT_FALSE(errorLeftSet(python));
}

TEST(Interrupt, EveryInterpreterOnTheMachineServesObjectsAndInterrupts) {
    const auto interpreters = vxtest::pyenvInterpreters();
    if (interpreters.empty()) {
        GTEST_SKIP() << "no pyenv interpreters on this machine";
    }
    for (const auto& [version, executable] : interpreters) {
        SCOPED_TRACE(executable);
        Watched watched(vxpy::Interpreter::find(executable));
        vxpy::Session& python = watched.python;
        python.exec(
            "def f(a, *, b):\n"
            "    if a is None:\n"
            "        raise TypeError('no a')\n"
            "    return [a, b, 2**63 - 1]\n");
        const Object made = python.eval("f")("x", vxpy::kw("b", 1.5));
        EXPECT_EQ(made.repr(), "['x', 1.5, 9223372036854775807]");
        EXPECT_EQ(made.toList().at(2).toInt(), 9223372036854775807);
        EXPECT_EQ(made.typeName(), "builtins.list");
        EXPECT_DOUBLE_EQ(made.item(1).toDouble(), 1.5);
        EXPECT_EQ(python.eval("[1, 2.5]").toArray().getNumberOfElements(), 2u);
        try {
            python.eval("f")(nullptr, vxpy::kw("b", 0));
            ADD_FAILURE() << "no PythonError";
        } catch (const vxpy::PythonError& error) {
            EXPECT_EQ(error.pythonType(), "TypeError");
            EXPECT_THAT(error.traceback(), HasSubstr("Traceback"));
        }
        const std::string sleep = "import time\n" + Watched::announce("sleep") + "time.sleep(30)";
        EXPECT_EQ(watched.interrupted("sleep", [&] { python.exec(sleep); }), "KeyboardInterrupt");
    }
}

}  // namespace
