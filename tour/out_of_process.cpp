// Chapters that only a worker process can show: Python's output arriving
// while its call is still in progress, and a crash of the worker caught,
// followed by a restart and a new start.
#include <chrono>
#include <cstdio>
#include <functional>
#include <future>
#include <thread>

#include "tour.h"

namespace tour {

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
    run("Ping");
    say("  and Python works again: 2 ** 100 = " + narrow(textOfObject(eval("2 ** 100"))));
}

}  // namespace tour
