// The console that the engine's "fprintf" writes to. It is replaceable, so
// that a test, or a host with a console of its own, can take the text.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace zrt {

using ConsoleSink = std::function<void(const std::u16string&)>;

// Writes text as UTF-8 to the process's standard output and flushes.
void defaultConsoleSink(const std::u16string& text);

// Installs sink and returns the one it replaces (defaultConsoleSink when none
// was set). An empty function restores the default.
ConsoleSink setConsoleSink(ConsoleSink sink);

// Hands text to the current sink. Calls are serialised, so each text reaches
// the sink whole even when several threads print at once. A sink may print
// again from inside itself; that nested text is written at once.
void writeConsole(const std::u16string& text);

// Takes all console text for as long as it lives, then restores the sink it
// replaced. Meant for tests; captures must end in the reverse order of their
// start.
class ConsoleCapture {
  public:
    ConsoleCapture();
    ~ConsoleCapture();
    ConsoleCapture(const ConsoleCapture&) = delete;
    ConsoleCapture& operator=(const ConsoleCapture&) = delete;

    // Each text as it reached the sink, in order.
    std::vector<std::u16string> writes() const;
    // All texts joined.
    std::u16string text() const;
    void clear();
    // Waits until text() contains needle; false when the time runs out first.
    bool waitFor(const std::u16string& needle, std::chrono::milliseconds timeout) const;

  private:
    struct State;
    std::shared_ptr<State> state_;
    ConsoleSink previous_;
};

}  // namespace zrt
