#include "zrt/zrt.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <set>
#include <string>
#include <thread>

#include "fl/i18n.h"
#include "interprocess/feval/server/detail.h"
#include "zrt/console.h"

namespace {

namespace vd = foundation::veltradata;
using interprocess::feval::server::detail::getZrt;
using interprocess::feval::server::detail::runOptionsFactory;
using Args = std::vector<vd::Array>;

// Collects what the engine reports on the error stream.
class CollectingStreambuf : public std::basic_streambuf<char16_t> {
  public:
    std::u16string text;

  protected:
    int_type overflow(int_type c) override {
        text += traits_type::to_char_type(c);
        return c;
    }
};

zrt::Future<zrt::ZRT::Outputs> feval(const Args& args, const std::string& name = "fprintf",
                                     std::size_t nlhs = 0,
                                     cmddistributor::RunOptions options = runOptionsFactory()) {
    return getZrt()->feval(name, args, nlhs, options, false, zrt::ZRT::createRequestID());
}

TEST(Fprintf, WritesTheTextWholeBeforeReturningInEveryTextForm) {
    const vd::ArrayFactory f;
    zrt::ConsoleCapture capture;
    const std::u16string text = u"caf\u00e9 \U0001F600\n";
    for (const Args& args : {Args{f.createScalar(u"%s"), f.createScalar(text)},
                             Args{f.createCharArray(u"%s"), f.createCharArray(text)},
                             Args{f.createCharArray("%s"), f.createScalar(text)}}) {
        capture.clear();
        const auto future = feval(args);
        EXPECT_EQ(capture.writes(), std::vector<std::u16string>{text});  // before any wait
        EXPECT_TRUE(future.get().empty());
    }
    capture.clear();
    feval({f.createScalar(u"%s"), f.createScalar(u"")}).get();
    feval({f.createScalar(u"%s"), f.createArray<char16_t>({0, 0})}).get();
    EXPECT_EQ(capture.writes(), (std::vector<std::u16string>{u"", u""}));
}

TEST(Fprintf, TextsFromManyThreadsArriveWholeAndInEachThreadsOrder) {
    constexpr int kThreads = 4, kPrints = 200;
    const auto line = [](int t, int i) {
        // Long enough that an interleaved write would show.
        return std::to_string(t) + ":" + std::to_string(i) + ":" + std::string(200, 'a' + t);
    };
    zrt::ConsoleCapture capture;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &line] {
            const vd::ArrayFactory f;
            for (int i = 0; i < kPrints; ++i) {
                feval({f.createScalar("%s"), f.createCharArray(line(t, i))}).get();
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    const auto writes = capture.writes();
    ASSERT_EQ(writes.size(), std::size_t{kThreads * kPrints});
    std::vector<int> next(kThreads, 0);
    for (const auto& write : writes) {
        const int t = write[0] - u'0';
        ASSERT_TRUE(t >= 0 && t < kThreads);
        EXPECT_EQ(fl::i18n::to_string(write), line(t, next[t]++));
    }
}

TEST(Fprintf, RefusesThroughTheFutureAndTheErrorStreamWritingNothing) {
    const vd::ArrayFactory f;
    const auto s = [&](const char* text) { return f.createScalar(text); };
    struct Case {
        std::string function;
        Args args;
        std::size_t nlhs;
        std::string message;
    };
    const Case cases[] = {
        {"disp", {s("x")}, 0, "unknown function 'disp'"},
        {"fprintf", {s("%d"), s("x")}, 0, "unsupported format '%d'"},
        {"fprintf", {s("x")}, 0, "got 1 arguments"},
        {"fprintf", {s("%s"), f.createScalar(1.0)}, 0, "not an array of type DOUBLE"},
        {"fprintf", {s("%s"), f.createScalar(vd::VELTRAString{})}, 0, "missing string"},
        {"fprintf", {s("%s"), f.createArray<vd::VELTRAString>({1, 2})}, 0, "single string"},
        {"fprintf", {s("%s"), f.createArray<char16_t>({2, 2})}, 0, "char row vector"},
        {"fprintf", {s("%s"), s("x")}, 1, "too many output arguments"},
    };
    zrt::ConsoleCapture capture;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.message);
        auto stream = boost::make_shared<CollectingStreambuf>();
        auto options = runOptionsFactory();
        options.setErrStream(stream, cmddistributor::RunOptions::getDefaultSinkTraits());
        const auto future = feval(c.args, c.function, c.nlhs, options);
        for (int attempt = 0; attempt < 2; ++attempt) {  // get() may be repeated
            EXPECT_THAT([&] { future.get(); },
                        testing::ThrowsMessage<zrt::EngineError>(testing::HasSubstr(c.message)));
        }
        EXPECT_THAT(fl::i18n::to_string(stream->text), testing::HasSubstr(c.message));
        EXPECT_THROW(feval(c.args, c.function, c.nlhs).get(), zrt::EngineError);  // no stream
    }
    EXPECT_TRUE(capture.writes().empty());
}

TEST(Engine, OnePerProcessUniqueIdsAndAFailingSinkFailsOnlyTheRequest) {
    EXPECT_EQ(getZrt(), getZrt());
    constexpr int kThreads = 2, kIds = 10'000;
    std::vector<std::vector<foundation::msg_svc::exchange::IDType>> ids(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&ids, t] {
            for (int i = 0; i < kIds; ++i)
                ids[t].push_back(zrt::ZRT::createRequestID());
        });
    }
    for (auto& thread : threads)
        thread.join();
    std::set<foundation::msg_svc::exchange::IDType> all;
    for (const auto& list : ids)
        all.insert(list.begin(), list.end());
    EXPECT_EQ(all.size(), std::size_t{kThreads * kIds});

    zrt::ConsoleCapture restoresTheConsole;
    zrt::setConsoleSink([](const std::u16string&) { throw std::runtime_error("console gone"); });
    const vd::ArrayFactory f;
    EXPECT_THROW(feval({f.createScalar("%s"), f.createScalar("x")}).get(), std::runtime_error);
    EXPECT_THROW(zrt::Future<int>().get(), zrt::EngineError);
}

}  // namespace
