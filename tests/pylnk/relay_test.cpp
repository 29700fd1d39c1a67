// The C side of the console relay, called the way the relay script calls
// it: every text reaches the console whole and in order.
#include <gtest/gtest.h>
#include <zrt/console.h>

#include <cstring>
#include <thread>

#include "service/console_relay.h"

namespace {

std::string utf16Bytes(const std::u16string& text, bool withMark, bool swapped = false) {
    std::u16string units = withMark ? u"\xFEFF" + text : text;
    std::string bytes(units.size() * 2, '\0');
    std::memcpy(bytes.data(), units.data(), bytes.size());
    if (swapped) {
        for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
            std::swap(bytes[i], bytes[i + 1]);
        }
    }
    return bytes;
}

void u(const std::string& bytes) {
    uPrintf(static_cast<long>(bytes.size()), bytes.data());
}

}  // namespace

TEST(Relay, TextAndBytesArriveWholeAndInOrder) {
    zrt::ConsoleCapture console;
    const std::u16string greek = u"\u03b1\u03b2\u03b3 \U0001F600 end\n";
    u(utf16Bytes(greek, true));
    u(utf16Bytes(u"no mark", false));
    u(utf16Bytes(u"swapped", true, true));  // a byte-swapped stream prints nothing
    u(utf16Bytes(u"", true));               // a mark alone: an empty text
    uPrintf(1, "x");                        // under two bytes: empty
    const std::string narrow = "caf\xc3\xa9 bytes";
    cPrintf(static_cast<long>(narrow.size()), narrow.c_str());
    cPrintf(0, "");

    const std::vector<std::u16string> expected{greek, u"no mark",         u"", u"",
                                               u"",   u"caf\u00e9 bytes", u""};
    EXPECT_EQ(console.writes(), expected);
}

TEST(Relay, PrintsFromManyThreadsStayWhole) {
    zrt::ConsoleCapture console;
    constexpr int kThreads = 6, kLines = 300;
    std::vector<std::thread> printers;
    for (int t = 0; t < kThreads; ++t) {
        printers.emplace_back([t] {
            for (int i = 0; i < kLines; ++i) {
                const std::string line =
                    "thread " + std::to_string(t) + " line " + std::to_string(i);
                if (i % 2) {
                    cPrintf(static_cast<long>(line.size()), line.c_str());
                } else {
                    std::u16string wide(line.begin(), line.end());
                    u(utf16Bytes(wide, true));
                }
            }
        });
    }
    for (auto& p : printers) {
        p.join();
    }
    const auto writes = console.writes();
    ASSERT_EQ(writes.size(), static_cast<size_t>(kThreads * kLines));
    std::vector<int> next(kThreads, 0);
    for (const auto& w : writes) {
        const std::string s(w.begin(), w.end());
        int t = -1, i = -1;
        ASSERT_EQ(std::sscanf(s.c_str(), "thread %d line %d", &t, &i), 2) << s;
        EXPECT_EQ(i, next[t]++) << "out of order for thread " << t;
    }
}
