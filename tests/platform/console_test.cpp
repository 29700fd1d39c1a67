// The console sink, and the engine's fprintf that prints on it: what the
// console relay never sends (its refusals) and what it never meets (a failing
// sink). The relay's own tests cover the texts it sends, from many threads.
#include "zrt/console.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <sstream>
#include <string>

#include "fl/i18n.h"
#include "interprocess/feval/server/detail.h"
#include "zrt/zrt.h"

namespace {

namespace vd = foundation::veltradata;
using interprocess::feval::server::detail::getZrt;
using interprocess::feval::server::detail::runOptionsFactory;
using Args = std::vector<vd::Array>;

TEST(ConsoleSink, DefaultWritesUtf8AndReplacingReturnsThePreviousEvenFromInsideASink) {
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

    testing::internal::CaptureStdout();
    zrt::setConsoleSink([](const std::u16string& text) {
        zrt::setConsoleSink({});  // destroys this very sink's stored copy
        zrt::writeConsole(u"[" + text + u"]");
    });
    zrt::writeConsole(u"x");
    zrt::writeConsole(u"d");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[x]d");
}

zrt::Future<zrt::ZRT::Outputs> feval(const Args& args, const std::string& name = "fprintf",
                                     std::size_t nlhs = 0,
                                     cmddistributor::RunOptions options = runOptionsFactory()) {
    return getZrt()->feval(name, args, nlhs, options, false, zrt::ZRT::createRequestID());
}

TEST(Fprintf, RefusesThroughTheFutureAndTheErrorStreamWritingNothing) {
    const vd::ArrayFactory f;
    const auto s = [&](const char* text) { return f.createScalar(text); };
    const std::tuple<std::string, Args, std::size_t, std::string> cases[] = {
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
    for (const auto& [function, args, nlhs, message] : cases) {
        SCOPED_TRACE(message);
        auto stream = boost::make_shared<std::basic_stringbuf<char16_t>>();
        auto options = runOptionsFactory();
        options.setErrStream(stream, cmddistributor::RunOptions::getDefaultSinkTraits());
        const auto future = feval(args, function, nlhs, options);
        EXPECT_THAT([&] { future.get(); },
                    testing::ThrowsMessage<zrt::EngineError>(testing::HasSubstr(message)));
        EXPECT_THAT(fl::i18n::to_string(stream->str()), testing::HasSubstr(message));
    }
    EXPECT_TRUE(capture.writes().empty());
}

TEST(Engine, AFailingSinkFailsOnlyTheRequestAndAnEmptyFutureRefusesToWait) {
    zrt::ConsoleCapture restoresTheConsole;
    zrt::setConsoleSink([](const std::u16string&) { throw std::runtime_error("console gone"); });
    const vd::ArrayFactory f;
    EXPECT_THROW(feval({f.createScalar("%s"), f.createScalar("x")}).get(), std::runtime_error);
    EXPECT_THROW(zrt::Future<int>().get(), zrt::EngineError);
}

}  // namespace
