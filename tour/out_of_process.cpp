// Chapters that only a worker process can show: Python objects as C++
// values of the host client, a running call interrupted, Python's output
// arriving while its call is still in progress, and a crash of the worker
// caught, followed by a restart and a new start.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <future>
#include <thread>

#include "tour.h"

namespace tour {

namespace {

std::string lastLine(const std::string& text) {
    const std::size_t end = text.find_last_not_of('\n');
    const std::size_t begin = text.find_last_of('\n', end);
    return text.substr(begin == std::string::npos ? 0 : begin + 1, end - begin);
}

}  // namespace

void objectsAsValues() {
    chapter("Python objects as C++ values");
    say("Over the same commands, the client hands out Python objects as C++ values");
    say("(vxpy::Object): attributes, items, calls with keyword arguments, conversions.");
    vxpy::Session& python = session();
    using vxpy::kw;
    const vxpy::Object np = python.import("numpy");
    const vxpy::Object pd = python.import("pandas");
    vd::TypedArray<double> m = vd::ArrayFactory().createArray<double>({4, 2});
    const double heights[] = {1.62, 1.75, 1.80, 1.68}, weights[] = {55, 72, 80, 64};
    for (size_t i = 0; i < 4; ++i) {
        m[i][0] = heights[i];
        m[i][1] = weights[i];
    }
    say("A 4 by 2 host matrix becomes a pandas DataFrame with named columns, and a");
    say("column is computed in Python:");
    const vxpy::Object frame = pd.attr("DataFrame")(
        np.attr("asarray")(m), kw("columns", python.eval("['height', 'weight']")));
    frame.setItem("bmi", python.eval("lambda f: (f.weight / f.height ** 2).round(1)")(frame));
    say(frame.str());
    const vd::TypedArray<double> means(frame.attr("mean")().attr("to_numpy")().toArray());
    char line[160];
    std::snprintf(line, sizeof line,
                  "Column means back in the host (a %zu by %zu double array): %.3f %.2f %.2f",
                  means.getDimensions()[0], means.getDimensions()[1], static_cast<double>(means[0]),
                  static_cast<double>(means[1]), static_cast<double>(means[2]));
    say(line);
    say("Integers cross exactly, beyond 2^53: 2**62 + 1 = " +
        std::to_string(python.eval("2**62 + 1").toInt()) + "; its type is " +
        python.eval("2**62 + 1").typeName());

    say("A Python exception is a C++ exception (vxpy::PythonError), with its traceback:");
    try {
        frame.attr("loc").item("no such row");
    } catch (const vxpy::PythonError& e) {
        const std::string& traceback = e.traceback();
        say(std::string("  what(): ") + e.what());
        say("  the traceback's " +
            std::to_string(std::count(traceback.begin(), traceback.end(), '\n')) +
            " lines end with: " + lastLine(traceback));
    }
    say("  and no Python error is left set in the worker: pyErrorOccurred -> " +
        shown(call("pyErrorOccurred", {})[0]));

    say("interrupt() stops the Python code that a call runs, here a sleep of a minute:");
    const int pid = python.pid();
    const auto begin = std::chrono::steady_clock::now();
    auto sleeping = std::async(std::launch::async, [&python] {
        try {
            python.eval("__import__('time').sleep")(60);
            return std::string("returned");
        } catch (const vxpy::PythonError& e) {
            return std::string("PythonError ") + e.what();
        }
    });
    // An interrupt reaches only a call in flight: once more, should the call
    // not have been sent yet.
    while (sleeping.wait_for(std::chrono::milliseconds(300)) != std::future_status::ready) {
        python.interrupt();
    }
    const std::string how = sleeping.get();
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                        std::chrono::steady_clock::now() - begin)
                        .count();
    say("  the call ended after " + std::to_string(ms) + " ms: " + how + "; the worker (pid " +
        std::to_string(python.pid()) + (python.pid() == pid ? ", the same" : ", another") +
        ") goes on: 6 * 7 = " + std::to_string(python.eval("6 * 7").toInt()));
}

void outputDuringACall() {
    chapter("Python's output arrives while the call is in progress");
    say("One call runs a loop that prints a line every 0.3 s. The host's console");
    say("shows each line as it comes; the call returns after the last one:");
    const auto begin = std::chrono::steady_clock::now();
    stampConsole(true);
    exec(
        "import time\n"
        "for step in range(4):\n"
        "    print('Python says: step', step, flush=True)\n"
        "    time.sleep(0.3)\n");
    stampConsole(false);
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                        std::chrono::steady_clock::now() - begin)
                        .count();
    char stamp[64];
    std::snprintf(stamp, sizeof stamp, "[host clock %4.1f s] ", static_cast<double>(ms) / 1000.0);
    say(std::string(stamp) + "the call returned.");
}

void crashAndRestart() {
    chapter("A crash of the worker is caught; the host lives on");
    const int pid = session().pid();
    say("A Python thread will dereference a null pointer in 0.5 s (ctypes.string_at(0)),");
    say("while a call sleeps in Python and another waits behind it:");
    const vxpy::Object survivor = session().eval("['made', 'before', 'the', 'crash']");
    exec("import ctypes, threading\nthreading.Timer(0.5, ctypes.string_at, (0,)).start()\n");
    auto waiting = [](const std::string& what, std::function<void()> body) {
        return std::async(std::launch::async, [what, body] {
            try {
                body();
                return what + ": returned";
            } catch (const vxpy::WorkerEnded& e) {
                return what + ": WorkerEnded: " + e.what();
            } catch (const std::exception& e) {
                return what + ": " + e.what();
            }
        });
    };
    auto sleeping = waiting("  the sleeping call", [] { exec("import time\ntime.sleep(30)\n"); });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    auto queued = waiting("  the queued Ping  ", [] { call("Ping", {}); });
    say(sleeping.get());
    say(queued.get());
    try {
        call("Ping", {});
    } catch (const vxpy::WorkerEnded& e) {
        say(std::string("  a later Ping      : WorkerEnded: ") + e.what());
    }

    say("restart() spawns a fresh worker; start() starts the interpreter in it:");
    restartWorker();
    say("  worker pid " + std::to_string(pid) + " -> " + std::to_string(session().pid()));
    say("  an Object of the old worker refuses every use, and its address never reaches");
    say("  the new worker:");
    try {
        survivor.str();
    } catch (const vxpy::Error& e) {
        say(std::string("  ") + e.what());
    }
    run("Ping");
    say("  and Python works again: 2 ** 100 = " + narrow(textOfObject(eval("2 ** 100"))));
}

}  // namespace tour
