// Start-up and shutdown: tokens, bad start requests, failed loads followed
// by good ones, a failing preparation, repeated and concurrent starts,
// pyClose and the discard of everything behind it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "service/feval_dispatcher.h"
#include "support/conversion.h"

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

// Concurrent starts are serialised, and a start while running answers at
// once with the success token, starting no second consumer of the queue.
// A request queued before the start is served after it.
TEST(Startup, ConcurrentAndRepeatedStartsAnswerTheSuccessToken) {
    auto early = std::async(std::launch::async, [] { return textOf(call("Ping")); });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    std::vector<std::future<vd::Array>> starts;
    for (int i = 0; i < 6; ++i) {
        starts.push_back(std::async(std::launch::async, [] {
            return call("attemptToStartPython", {startRequest(systemPython(), moduleFolder())});
        }));
    }
    for (auto& s : starts) {
        EXPECT_EQ(show(s.get()), std::string("CHAR 1x31: ") + kSuccess);
    }
    EXPECT_EQ(early.get(), "success");
    EXPECT_EQ(start(startRequest(systemPython(), moduleFolder())), kSuccess);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(textOf(call("Ping")), "success");
    }
}

TEST(Startup, BadRequestsRefusedThenGoodStartWorks) {
    // No request, or not a struct at all.
    EXPECT_THROW(call("attemptToStartPython"), std::invalid_argument);
    EXPECT_THROW(start(chars("python")), std::invalid_argument);
    // A missing field, or one of the wrong type: the message names it.
    const vd::Array partial = structOf({{"executable", chars("")},
                                        {"library", chars("")},
                                        {"home", chars("")},
                                        {"path", chars("")},
                                        {"qlbuffer_location", chars("")}});
    EXPECT_THAT(failureOf<std::invalid_argument>([&] { start(partial); }),
                ::testing::HasSubstr("\"version\""));
    EXPECT_THAT(failureOf<std::invalid_argument>(
                    [] { start(withField("home", vd::ArrayFactory().createScalar(1.0))); }),
                ::testing::HasSubstr("\"home\""));
    EXPECT_EQ(start(startRequest(systemPython(), moduleFolder())), kSuccess);
}

TEST(Startup, FailedLoadsGiveEmptyTokenStartStillWorks) {
    // No such library, one that is not CPython, a version that does not match
    // it, a home without a standard library.
    for (const auto& [name, value] :
         {std::pair{"library", "/no/such/libpython3.11.so"}, std::pair{"library", "libz.so.1"},
          std::pair{"version", "3.7"}, std::pair{"home", "/tmp"}}) {
        EXPECT_EQ(start(withField(name, chars(value))), kEmpty) << value;
    }
    EXPECT_EQ(start(startRequest(systemPython(), moduleFolder())), kSuccess);
    EXPECT_EQ(textOf(call("Ping")), "success");
}

TEST(Startup, FailedPreparationNamedThenPreparedAgain) {
    // A module folder without libvxbuffer: the interpreter loads, the
    // preparation stops at the import.
    EXPECT_THAT(failureOf<std::runtime_error>(
                    [] { start(startRequest(systemPython(), "/tmp/lnxgen64-without-modules")); }),
                ::testing::HasSubstr("libvxbuffer"));
    // The thread serves the queue: nothing hangs.
    EXPECT_EQ(textOf(call("Ping")), "success");
    EXPECT_EQ(start(startRequest(systemPython(), moduleFolder())), kSuccess);
}

TEST(Startup, CloseAnswersThenEverythingIsDiscarded) {
    startSystemPython();
    EXPECT_EQ(show(call("pyClose")), "VELTRA_STRING 1x1: success");
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
