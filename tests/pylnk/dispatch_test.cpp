// The door and the queue: echo, stored exceptions, the settled answers to
// odd requests and the first calls of many threads (handoff_test has many
// callers of a running interpreter).
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "service/feval_dispatcher.h"
#include "support/session.h"

using namespace vxtest;
using interprocess::pylnk::server::libpylnk::feval_dispatcher;

namespace {

vd::Array dbl(double v) {
    return vd::ArrayFactory().createScalar(v);
}

}  // namespace

TEST(Door, TestEchoCopiesTheSmallerCountWithoutPython) {
    // Before any start, and with no Python at all.
    std::vector<vd::Array> in{dbl(1), dbl(2), dbl(3)};
    std::vector<vd::Array> out{dbl(-1), dbl(-2), dbl(-3)};
    feval_dispatcher("_TEST_", 3, out.data(), 1, in.data());
    EXPECT_EQ(valueOf<double>(out[0]), 1);
    EXPECT_EQ(valueOf<double>(out[1]), -2);
    EXPECT_EQ(valueOf<double>(out[2]), -3);

    feval_dispatcher("_TEST_", 2, out.data(), 3, in.data());
    EXPECT_EQ(valueOf<double>(out[1]), 2);
    EXPECT_EQ(valueOf<double>(out[2]), -3);

    feval_dispatcher("_TEST_", 0, out.data(), 3, in.data());
    feval_dispatcher("_TEST_", 3, out.data(), 0, in.data());
    feval_dispatcher("_TEST_", 3, nullptr, 3, in.data());
    EXPECT_EQ(valueOf<double>(out[0]), 1);
}

TEST(Door, BuiltinsAnswerCharArraysUnknownNamesFail) {
    startSystemPython();
    EXPECT_EQ(show(call("Ping")), "CHAR 1x7: success");
    EXPECT_EQ(textOf(call("ClearMetadataMap")), "success");

    // Names that only begin like the special ones are ordinary commands.
    for (const std::string name : {"_TEST_x", "attemptToStartPythonNow", "ping", "NoSuchCommand"}) {
        EXPECT_EQ(failureOf<std::invalid_argument>([&] { call(name); }),
                  "Unknown command '" + name + "'.");
    }
    // Too few arguments are refused before anything reads past them.
    for (const auto& [name, given] : std::vector<std::pair<std::string, size_t>>{
             {"pyGetMember", 1}, {"pyTupleSet", 2}, {"Release", 0}}) {
        EXPECT_THAT(failureOf<std::invalid_argument>(
                        [&] { call(name, std::vector<vd::Array>(given, uint64Array(0))); }),
                    ::testing::HasSubstr(name + " expects"));
    }
    EXPECT_THROW(call("ChangeCurrentWorkingFolder"), std::invalid_argument);
    EXPECT_EQ(textOf(call("Ping")), "success");

    // ChangeCurrentWorkingFolder answers success, or fails clearly.
    vd::ArrayFactory f;
    EXPECT_EQ(textOf(call("ChangeCurrentWorkingFolder", {f.createCharArray(std::string("/tmp"))})),
              "success");
    char cwd[4096];
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    EXPECT_EQ(std::string(cwd), "/tmp");
    EXPECT_EQ(textOf(call("ChangeCurrentWorkingFolder",
                          {f.createCharArray(std::string("/no/such/folder"))})),
              "success");
    EXPECT_EQ(std::string(getcwd(cwd, sizeof cwd)), "/tmp");

    EXPECT_THROW(call("ChangeCurrentWorkingFolder", {dbl(3)}), std::invalid_argument);
    EXPECT_EQ(textOf(call("Ping")), "success");  // the Python thread lives on

    // One element of reply, with zero outputs asked for and with null slots.
    std::vector<vd::Array> out{dbl(7), dbl(8)};
    feval_dispatcher("Ping", 0, out.data(), 0, nullptr);
    EXPECT_EQ(textOf(out[0]), "success");              // plhs[0] written though nlhs is 0
    EXPECT_EQ(valueOf<double>(out[1]), 8);             // further slots untouched
    feval_dispatcher("Ping", 0, nullptr, 0, nullptr);  // nothing written, no crash
}

TEST(Door, QueueCreationIsSafeUnderConcurrentFirstCalls) {
    // Many first calls at once; _TEST_ creates the queue and needs no Python.
    std::vector<std::thread> callers;
    std::atomic<int> echoed{0};
    for (int t = 0; t < 16; ++t) {
        callers.emplace_back([&echoed, t] {
            vd::Array in = dbl(t), out;
            feval_dispatcher("_TEST_", 1, &out, 1, &in);
            echoed += valueOf<double>(out) == t;
        });
    }
    for (auto& c : callers) {
        c.join();
    }
    EXPECT_EQ(echoed.load(), 16);
}
