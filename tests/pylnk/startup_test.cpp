// Start-up and shutdown: tokens, bad start requests, failed loads followed
// by good ones, a failing preparation, repeated and concurrent starts,
// pyClose and the discard of everything behind it.
#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "service/feval_dispatcher.h"
#include "support/session.h"

using namespace vxtest;

namespace {

const char* const kSuccess = "vx_success_token_for_oop_python";
const char* const kEmpty = "vx_empty_token_for_oop_python";
const char* const kDiscard = "vx_discard_token_for_oop_python";

vd::Array withField(const std::string& field, vd::Array value,
                    const std::string& location = moduleFolder()) {
    vd::StructArray request(startRequest(systemPython(), location));
    request[0][field] = std::move(value);
    return request;
}

std::string start(const vd::Array& request) {
    return textOf(call("attemptToStartPython", {request}));
}

}  // namespace

TEST(Startup, TokenIsACharArrayAndRepeatedStartsAnswerAtOnce) {
    vd::Array token = call("attemptToStartPython", {startRequest(systemPython(), moduleFolder())});
    EXPECT_EQ(token.getType(), vd::ArrayType::CHAR);
    EXPECT_EQ(textOf(token), kSuccess);
    // A second start while running: the success token, no second consumer.
    EXPECT_EQ(start(startRequest(systemPython(), moduleFolder())), kSuccess);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(textOf(call("Ping")), "success");
    }
}

TEST(Startup, ConcurrentStartsAreSerialised) {
    std::vector<std::future<std::string>> starts;
    for (int i = 0; i < 6; ++i) {
        starts.push_back(std::async(std::launch::async, [] {
            return start(startRequest(systemPython(), moduleFolder()));
        }));
    }
    for (auto& s : starts) {
        EXPECT_EQ(s.get(), kSuccess);
    }
    EXPECT_EQ(textOf(call("Ping")), "success");
}

TEST(Startup, BadRequestsAreRefusedClearlyAndAGoodStartFollows) {
    // No request, or not a struct at all.
    EXPECT_THROW(call("attemptToStartPython"), std::invalid_argument);
    EXPECT_THROW(start(chars("python")), std::invalid_argument);
    // A missing field: the message names it.
    {
        vd::ArrayFactory f;
        vd::StructArray partial = f.createStructArray(
            {1, 1}, {"executable", "library", "home", "path", "qlbuffer_location"});
        for (const char* field : {"executable", "library", "home", "path", "qlbuffer_location"}) {
            partial[0][field] = chars("");
        }
        try {
            start(partial);
            ADD_FAILURE() << "a request without version was answered";
        } catch (const std::invalid_argument& e) {
            EXPECT_NE(std::string(e.what()).find("\"version\""), std::string::npos) << e.what();
        }
    }
    // A field of the wrong type: named too.
    try {
        start(withField("home", vd::ArrayFactory().createScalar(1.0)));
        ADD_FAILURE() << "a numeric home was accepted";
    } catch (const std::invalid_argument& e) {
        EXPECT_NE(std::string(e.what()).find("\"home\""), std::string::npos) << e.what();
    }
    EXPECT_EQ(start(startRequest(systemPython(), moduleFolder())), kSuccess);
}

TEST(Startup, FailedLoadsGiveTheEmptyTokenAndLeaveTheWorkerAbleToStart) {
    EXPECT_EQ(start(withField("library", chars("/no/such/libpython3.11.so"))), kEmpty);
    // A shared library that is not CPython.
    EXPECT_EQ(start(withField("library", chars("libz.so.1"))), kEmpty);
    // A version that does not match the library.
    EXPECT_EQ(start(withField("version", chars("3.7"))), kEmpty);
    // A home without a standard library.
    EXPECT_EQ(start(withField("home", chars("/tmp"))), kEmpty);
    EXPECT_EQ(start(startRequest(systemPython(), moduleFolder())), kSuccess);
    EXPECT_EQ(textOf(call("Ping")), "success");
}

TEST(Startup, FailedPreparationNamesTheStepAndALaterStartPreparesAgain) {
    // A module folder without libvxbuffer: the interpreter loads, the
    // preparation stops at the import.
    try {
        start(startRequest(systemPython(), "/tmp/lnxgen64-without-modules"));
        ADD_FAILURE() << "the start succeeded without libvxbuffer";
    } catch (const std::exception& e) {
        EXPECT_NE(std::string(e.what()).find("libvxbuffer"), std::string::npos) << e.what();
    }
    // The thread serves the queue: nothing hangs.
    EXPECT_EQ(textOf(call("Ping")), "success");
    EXPECT_EQ(start(startRequest(systemPython(), moduleFolder())), kSuccess);
    EXPECT_EQ(start(startRequest(systemPython(), moduleFolder())), kSuccess);
}

TEST(Startup, CloseAnswersSuccessAndEverythingBehindItIsDiscarded) {
    startSystemPython();
    vd::Array closed = call("pyClose");
    EXPECT_EQ(closed.getType(), vd::ArrayType::VELTRA_STRING);
    EXPECT_EQ(textOf(closed), "success");
    for (const char* name : {"Ping", "pyClose", "NoSuchCommand", "ClearMetadataMap"}) {
        EXPECT_EQ(textOf(call(name)), kDiscard) << name;
    }
    EXPECT_EQ(start(startRequest(systemPython(), moduleFolder())), kDiscard);
    // _TEST_ still works after the close.
    vd::Array in = chars("echo");
    vd::Array out;
    interprocess::pylnk::server::libpylnk::feval_dispatcher("_TEST_", 1, &out, 1, &in);
    EXPECT_EQ(textOf(out), "echo");
}

TEST(Startup, RequestsQueuedBeforeTheStartAreServedAfterIt) {
    auto early = std::async(std::launch::async, [] { return textOf(call("Ping")); });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    startSystemPython();
    EXPECT_EQ(early.get(), "success");
}

TEST(Startup, CloseAnswersWhilePythonThreadsStillRun) {
    startSystemPython();
    // A thread that never ends: pyClose waits a bounded time, then closes.
    exec(
        "import threading, time\n"
        "def forever():\n"
        "    while True:\n"
        "        time.sleep(0.01)\n"
        "threading.Thread(target=forever).start()");
    auto behind = std::async(std::launch::async, [] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        return textOf(call("Ping"));  // queued behind pyClose
    });
    const auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(textOf(call("pyClose")), "success");
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(30));
    EXPECT_EQ(behind.get(), kDiscard);
    EXPECT_EQ(textOf(call("Ping")), kDiscard);
}
