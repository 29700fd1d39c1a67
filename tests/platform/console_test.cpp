#include "zrt/console.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

namespace {

using namespace std::chrono_literals;

TEST(ConsoleSink, DefaultWritesUtf8ReplacingReturnsPreviousEmptyRestores) {
    testing::internal::CaptureStdout();
    zrt::writeConsole(u"caf\u00e9 \U0001F600\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "caf\xc3\xa9 \xf0\x9f\x98\x80\n");

    std::u16string first, second;
    const zrt::ConsoleSink original = zrt::setConsoleSink([&](auto& t) { first += t; });
    ASSERT_TRUE(original);  // the default, callable like any other sink
    zrt::writeConsole(u"a");
    zrt::setConsoleSink([&](auto& t) { second += t; })(u"c");
    zrt::writeConsole(u"b");
    EXPECT_EQ(first + u"|" + second, u"ac|b");

    zrt::setConsoleSink({});
    testing::internal::CaptureStdout();
    zrt::writeConsole(u"d");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "d");
}

TEST(ConsoleSink, ASinkMayReplaceItselfAndPrintAgain) {
    testing::internal::CaptureStdout();
    zrt::setConsoleSink([](const std::u16string& text) {
        zrt::setConsoleSink({});  // destroys this very sink's stored copy
        zrt::writeConsole(u"[" + text + u"]");
    });
    zrt::writeConsole(u"x");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[x]");
}

TEST(ConsoleCapture, NestsRestoresAndWaitsForTextFromAnotherThread) {
    zrt::ConsoleCapture outer;
    zrt::writeConsole(u"1");
    {
        zrt::ConsoleCapture inner;
        zrt::writeConsole(u"2");
        zrt::writeConsole(u"3");
        EXPECT_EQ(inner.writes(), (std::vector<std::u16string>{u"2", u"3"}));
        inner.clear();
        EXPECT_TRUE(inner.writes().empty() && inner.text().empty());
    }
    std::thread writer([] {
        std::this_thread::sleep_for(20ms);
        zrt::writeConsole(u"ready-");
        zrt::writeConsole(u"set");
    });
    EXPECT_TRUE(outer.waitFor(u"ready-set", 30s));
    writer.join();
    EXPECT_EQ(outer.text(), u"1ready-set");
    EXPECT_FALSE(outer.waitFor(u"never", 10ms));
}

}  // namespace
