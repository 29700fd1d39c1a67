#include "zrt/console.h"

#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <utility>

#include "fl/i18n.h"

namespace zrt {
namespace {

// Both are never destroyed: threads of Python code may still print while the
// process runs its exit handlers.

// Recursive, so that a sink which prints in turn does not lock itself out.
std::recursive_mutex& consoleMutex() {
    static auto* mutex = new std::recursive_mutex;
    return *mutex;
}

// Empty means the default sink.
ConsoleSink& currentSink() {
    static auto* sink = new ConsoleSink;
    return *sink;
}

}  // namespace

void defaultConsoleSink(const std::u16string& text) {
    const std::string narrow = fl::i18n::to_string(text);
    std::fwrite(narrow.data(), 1, narrow.size(), stdout);
    std::fflush(stdout);
}

ConsoleSink setConsoleSink(ConsoleSink sink) {
    std::lock_guard lock(consoleMutex());
    ConsoleSink previous = std::exchange(currentSink(), std::move(sink));
    return previous ? previous : ConsoleSink(&defaultConsoleSink);
}

void writeConsole(const std::u16string& text) {
    std::lock_guard lock(consoleMutex());
    // A copy, so that a sink which replaces itself goes on living until it returns.
    const ConsoleSink sink = currentSink();
    if (sink) {
        sink(text);
    } else {
        defaultConsoleSink(text);
    }
}

struct ConsoleCapture::State {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::u16string> writes;
    std::u16string text;
};

ConsoleCapture::ConsoleCapture() : state_(std::make_shared<State>()) {
    previous_ = setConsoleSink([state = state_](const std::u16string& text) {
        {
            std::lock_guard lock(state->mutex);
            state->writes.push_back(text);
            state->text += text;
        }
        state->changed.notify_all();
    });
}

ConsoleCapture::~ConsoleCapture() {
    setConsoleSink(std::move(previous_));
}

std::vector<std::u16string> ConsoleCapture::writes() const {
    std::lock_guard lock(state_->mutex);
    return state_->writes;
}

std::u16string ConsoleCapture::text() const {
    std::lock_guard lock(state_->mutex);
    return state_->text;
}

void ConsoleCapture::clear() {
    std::lock_guard lock(state_->mutex);
    state_->writes.clear();
    state_->text.clear();
}

bool ConsoleCapture::waitFor(const std::u16string& needle,
                             std::chrono::milliseconds timeout) const {
    std::unique_lock lock(state_->mutex);
    return state_->changed.wait_for(
        lock, timeout, [&] { return state_->text.find(needle) != std::u16string::npos; });
}

}  // namespace zrt
