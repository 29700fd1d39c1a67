// The worker's end is seen at once: every pending and later call throws
// WorkerEnded with the real exit status or signal, nothing hangs, and a
// restart gives a fresh worker. Workers that are not what they should be are
// refused clearly.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <future>
#include <thread>

#include "support/python.h"
#include "wire/wire_format.h"

namespace {

using vxtest::Python;
using vxtest::systemPython;
namespace vd = foundation::veltradata;

using ::testing::HasSubstr;
using vxtest::failureOf;

// The message of the WorkerEnded that the call throws.
template <class Call>
std::string endOf(Call&& call) {
    return failureOf<vxpy::WorkerEnded>(call);
}

struct StartedSession {
    vxtest::Console console;
    std::unique_ptr<vxpy::Session> session;
    StartedSession() {
        vxpy::Options options;
        options.console = console.sink();
        session = std::make_unique<vxpy::Session>(options);
        session->start(systemPython());
    }
};

// A call on a thread of its own that prints the marker and then works (by
// default sleeps) in Python, once the marker is shown; the future holds how
// that call ended.
std::future<std::string> busy(StartedSession& s, const std::string& marker,
                              const std::string& work = "import time\ntime.sleep(60)") {
    const std::string statements = "print('" + marker + "', flush=True)\n" + work + "\n";
    auto call = std::async(std::launch::async, [&session = *s.session, statements] {
        return endOf([&] { Python(session).exec(statements); });
    });
    EXPECT_TRUE(s.console.waitFor(marker));
    return call;
}

TEST(WorkerFaults, ACrashAKillAndAnExitEndEveryPendingAndLaterCallUntilRestart) {
    StartedSession s;
    vxpy::Session& session = *s.session;
    const int firstPid = session.pid();
    // A thread of the user's crashes the interpreter a moment later, while
    // one call sleeps in Python and another waits behind it in the queue.
    Python(session).exec(
        "import ctypes, threading\nthreading.Timer(1.0, ctypes.string_at, (0,)).start()\n");
    auto sleeping = busy(s, "asleep");
    auto queued =
        std::async(std::launch::async, [&] { return endOf([&] { session.call("Ping", {}); }); });

    const std::string crash = sleeping.get();
    EXPECT_THAT(crash, HasSubstr("pid " + std::to_string(firstPid)));
#ifndef VX_SANITIZED  // a sanitizer reports the fault and exits instead
    EXPECT_THAT(crash, HasSubstr("SIGSEGV (11)"));
#endif
    EXPECT_EQ(queued.get(), crash);
    EXPECT_EQ(endOf([&] { session.call("Ping", {}); }), crash);
    EXPECT_EQ(endOf([&] { session.call("_TEST_", {}); }), crash);

    session.restart();
    EXPECT_NE(session.pid(), firstPid);
    EXPECT_FALSE(session.started());
    // Not started, and not ended.
    EXPECT_EQ(vxtest::clientFailureOf([&] { session.call("Ping", {}); }),
              "Error: not started: call start() before sending 'Ping'");
    session.start(systemPython());
    EXPECT_EQ(vd::CharArray(session.call("Ping", {}).at(0)).toAscii(), "success");

    sleeping = busy(s, "asleep again");
    ASSERT_EQ(::kill(session.pid(), SIGKILL), 0);
    EXPECT_THAT(sleeping.get(), HasSubstr("was killed by signal SIGKILL (9)"));

    session.restart();
    session.start(systemPython());
    EXPECT_THAT(endOf([&] { Python(session).exec("import os\nos._exit(3)\n"); }),
                HasSubstr("exited with status 3"));
}

// Several host threads move 8 MiB matrices both ways (a host matrix viewed
// by Python and read back, a NumPy matrix read) until the worker ends.
TEST(WorkerFaults, AnEndWhileLargeArraysMoveFailsEveryCallAndKeepsWhatArrived) {
    const std::string ends[] = {
        "kill", "import ctypes\nthreading.Timer(0.3, ctypes.string_at, (0,)).start()",
        "import os\nthreading.Timer(0.3, os._exit, (3,)).start()"};
    for (const std::string& end : ends) {
        SCOPED_TRACE(end);
        StartedSession s;
        vxpy::Session& session = *s.session;
        Python setup(session);
        setup.exec("import numpy, threading");
        const vd::Array make = setup.eval("lambda: numpy.full((1024, 1024), 3.0)");

        std::atomic<int> moved{0};
        std::vector<std::future<std::pair<std::string, std::vector<vd::Array>>>> movers;
        for (int t = 0; t < 4; ++t) {
            movers.push_back(std::async(std::launch::async, [&session, &moved, make] {
                std::vector<vd::Array> received;
                Python python(session);
                vd::TypedArray<double> mine = vd::ArrayFactory().createArray<double>({1024, 1024});
                std::fill_n(const_cast<double*>(static_cast<const double*>(mine.getReadOnlyData())),
                            1024 * 1024, 3.0);
                const std::string how = endOf([&] {
                    for (;;) {
                        const vd::Array view = python.one("pyCreateMemoryView", {mine});
                        received.push_back(python.one("pyBufferGetData", {view}));
                        received.push_back(
                            python.one("pyBufferGetData", {python.invoke(make, {})}));
                        ++moved;
                    }
                });
                return std::make_pair(how, std::move(received));
            }));
        }
        while (moved.load() < 8) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        if (end == "kill") {
            ASSERT_EQ(::kill(session.pid(), SIGKILL), 0);
        } else {
            setup.exec(end);
        }
        std::string first;
        for (auto& mover : movers) {
            auto [how, received] = mover.get();
            EXPECT_THAT(how, HasSubstr("pid " + std::to_string(session.pid())));
            first = how;
            for (const vd::Array& array : received) {
                const auto* values = static_cast<const double*>(array.getReadOnlyData());
                ASSERT_EQ(array.getNumberOfElements(), 1024u * 1024u);
                EXPECT_EQ(std::count(values, values + 1024 * 1024, 3.0), 1024 * 1024);
            }
        }
        EXPECT_EQ(endOf([&] { session.call("Ping", {}); }), first);
        session.restart();
        session.start(systemPython());
        EXPECT_EQ(vd::CharArray(session.call("Ping", {}).at(0)).toAscii(), "success");
    }
}

bool processExists(int pid) {
    return ::kill(pid, 0) == 0;
}

TEST(WorkerFaults, CloseAndTheDestructorEndTheWorkerWhateverItIsDoing) {
    {
        // Before a start there is nobody to answer pyClose: the connection's end is enough.
        vxpy::Session session;
        const int pid = session.pid();
        session.close();
        EXPECT_FALSE(processExists(pid));
        // A closed session, not a crashed one.
        EXPECT_EQ(vxtest::clientFailureOf([&] { session.call("_TEST_", {}); }),
                  "Error: the session is closed");
        session.restart();  // a closed session may be opened again
        EXPECT_EQ(session.call("_TEST_", {vd::ArrayFactory().createScalar(1.0)}).size(), 1u);
    }
    {
        StartedSession s;
        const int pid = s.session->pid();
        s.session->close();
        EXPECT_FALSE(processExists(pid));
        s.session->close();  // twice is harmless
    }
    {
        // Python busy for good in a call: the destructor still returns, and
        // the waiting call learns that the worker is gone.
        StartedSession s;
        const int pid = s.session->pid();
        auto spinning = busy(s, "spinning", "while True: pass");
        s.session.reset();
        EXPECT_FALSE(processExists(pid));
        EXPECT_THAT(spinning.get(), HasSubstr("pid " + std::to_string(pid)));
    }
}

std::string constructionError(const std::string& worker) {
    vxpy::Options options;
    options.worker = worker;
    return failureOf<vxpy::Error>([&] { vxpy::Session session(options); });
}

TEST(WorkerFaults, WorkersThatAreNotWhatTheyShouldBeAreRefused) {
    EXPECT_THAT(constructionError("/no/such/vxpy-worker"), HasSubstr("cannot run"));
    EXPECT_THAT(constructionError("/bin/true"),
                HasSubstr("ended before it was ready: it exited with status 0"));

    // A worker that speaks another version of the wire.
    char folder[] = "/tmp/vxpy-fake-XXXXXX";
    ASSERT_NE(::mkdtemp(folder), nullptr);
    const std::string fake = std::string(folder) + "/worker";
    std::ofstream(fake)
        << "#!/usr/bin/python3\n"
           "import os, struct, time\n"
           "os.write(3, struct.pack('=IIIIQQQ', 0x57505856, 99, 1, 0, os.getpid(), 0, 0))\n"
           "time.sleep(60)\n";
    ASSERT_EQ(::chmod(fake.c_str(), 0755), 0);
    EXPECT_THAT(constructionError(fake), HasSubstr("version 99"));
    std::remove(fake.c_str());
    ::rmdir(folder);

    // And the worker's side: a host that sends a broken frame ends the
    // connection, with the reason on the worker's standard error.
    int pair[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::dup2(pair[1], 3);
        ::execl(VX_WORKER, VX_WORKER, "--fd", "3", static_cast<char*>(nullptr));
        ::_exit(127);
    }
    ::close(pair[1]);
    vxpy::wire::FrameHeader hello;
    ASSERT_EQ(::recv(pair[0], &hello, sizeof hello, MSG_WAITALL),
              static_cast<ssize_t>(sizeof hello));
    EXPECT_EQ(hello.version, vxpy::wire::kWireVersion);
    vxpy::wire::FrameHeader bad;
    bad.kind = static_cast<std::uint32_t>(vxpy::wire::FrameKind::Request);
    bad.metaBytes = 8;  // a description too short for a request
    const std::uint64_t junk = 0;
    ASSERT_EQ(::write(pair[0], &bad, sizeof bad), static_cast<ssize_t>(sizeof bad));
    ASSERT_EQ(::write(pair[0], &junk, sizeof junk), static_cast<ssize_t>(sizeof junk));
    int status = 0;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 4);
    ::close(pair[0]);
}

}  // namespace
