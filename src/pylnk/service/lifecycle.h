// Where the library stands with its interpreter, and the tokens that tell
// the caller of attemptToStartPython.
#pragma once

#include <interprocess/pylnk/protocol.h>

#include <atomic>
#include <mutex>

#include "contracts/host_array.h"

namespace pylnk {

namespace protocol = interprocess::pylnk::protocol;
using protocol::kDiscardToken;
using protocol::kEmptyToken;
using protocol::kSuccessToken;

foundation::veltradata::Array token(const char* value);

enum class PythonState {
    NotStarted,  // no Python thread (also after a failed load)
    Unprepared,  // interpreter loaded, preparation failed; the thread serves the queue
    Running,     // interpreter loaded and prepared
    Closed,      // after pyClose: every request gets the discard token
};

struct Lifecycle {
    // Held by the caller of attemptToStartPython for the whole start, so
    // concurrent starts run one after the other.
    std::mutex startMutex;
    std::atomic<PythonState> state{PythonState::NotStarted};
};

Lifecycle& lifecycle();

}  // namespace pylnk
