// Hand-offs between the callers and the Python thread, which spin briefly
// before they sleep: bursts and pauses of random length from many threads up
// to pyClose, each caller getting its own replies and stored exceptions, and
// Python threads of user code during a burst.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include "support/session.h"

using namespace vxtest;
using namespace std::chrono_literals;

namespace {

const char* const kDiscard = "vx_discard_token_for_oop_python";

bool isDiscard(const vd::Array& reply) {
    return reply.getType() == vd::ArrayType::CHAR && textOf(reply) == kDiscard;
}

// A pause of random length: none, shorter than the spin limits, about as
// long, or long enough for both sides to fall asleep.
void randomPause(std::mt19937& random) {
    static constexpr std::chrono::microseconds kPauses[] = {0us, 2us, 20us, 60us, 300us, 2ms};
    std::this_thread::sleep_for(kPauses[random() % std::size(kPauses)]);
}

}  // namespace

TEST(HandOff, BurstyCallersEachGetTheirOwnReplies) {
    startSystemPython();
    constexpr int kCallers = 6;
    constexpr int kDiscardsToSee = 20;
    std::atomic<int> wrong{0};
    std::vector<std::thread> callers;
    for (int t = 0; t < kCallers; ++t) {
        callers.emplace_back([&wrong, t] {
            std::mt19937 random(static_cast<unsigned>(t + 1));
            std::vector<bool> discards;  // for every reply, in order
            const auto send = [&discards](const char* name, std::vector<vd::Array> args) {
                vd::Array reply = call(name, std::move(args));
                discards.push_back(isDiscard(reply));
                return reply;
            };
            // Each value makes a round of its own: create a Python int, read
            // it back, release it. A reply meant for another caller, or for
            // another step of this one, shows as a wrong value.
            for (std::int64_t i = 0;
                 std::count(discards.begin(), discards.end(), true) < kDiscardsToSee;) {
                for (int burst = 1 + static_cast<int>(random() % 40); burst > 0; --burst, ++i) {
                    const std::int64_t value = t * 1'000'000'000LL + i;
                    const vd::Array created =
                        send("pyCreateLong", {vd::ArrayFactory().createScalar(value)});
                    if (discards.back()) {
                        continue;
                    }
                    const vd::Array read = send("pyLongGetDataInt64", {created});
                    const vd::Array released = send("Release", {created});
                    wrong += !isDiscard(read) && valueOf<std::int64_t>(read) != value;
                    wrong += !isDiscard(released) && textOf(released) != "success";
                    // A stored exception reaches its own caller too.
                    const std::string name = "NoSuch_" + std::to_string(value);
                    try {
                        discards.push_back(isDiscard(call(name)));
                        wrong += !discards.back();
                    } catch (const std::invalid_argument& failure) {
                        discards.push_back(false);
                        wrong += failure.what() != "Unknown command '" + name + "'.";
                    }
                }
                randomPause(random);
            }
            // pyClose has one place in the queue: every reply behind the
            // first discard token is one too.
            wrong += !std::is_partitioned(discards.begin(), discards.end(),
                                          [](bool discarded) { return !discarded; });
        });
    }
    std::this_thread::sleep_for(1500ms);
    EXPECT_EQ(textOf(call("pyClose")), "success");
    for (auto& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_TRUE(isDiscard(call("Ping")));
}

TEST(HandOff, PythonThreadsOfUserCodeRunDuringABurst) {
    startSystemPython();
    exec(
        "import threading, time\n"
        "ticks = [0]\n"
        "def tick():\n"
        "    while ticks[0] >= 0:\n"
        "        ticks[0] += 1\n"
        "        time.sleep(0.0005)\n"
        "threading.Thread(target=tick, daemon=True).start()");
    const auto ticks = [] { return integer("ticks[0]"); };
    // Idle host: the Python thread sleeps without the GIL.
    const std::int64_t before = ticks();
    std::this_thread::sleep_for(200ms);
    const std::int64_t idle = ticks();
    EXPECT_GT(idle - before, 10);
    // A burst of commands: between two of them the Python thread spins for
    // the next one, and the ticker must get the GIL all the same.
    const auto start = std::chrono::steady_clock::now();
    while (std::chrono::steady_clock::now() - start < 300ms) {
        ASSERT_EQ(textOf(call("Ping")), "success");
    }
    EXPECT_GT(ticks() - idle, 10);
    exec("ticks[0] = -10**9");
}
