#include "service/hand_off_waits.h"

namespace pylnk {

namespace {

#if VX_SPIN_WAIT
// Measured on two cores (bench_roundtrip, bench_worker). A small command
// answers within about a microsecond of its push; waking a sleeping thread
// takes 5 to 45 µs here, by the machine's state. So a caller's 50 cover a
// small command even when the Python thread first has to wake up, and a
// longer command costs the caller at most 50 µs of spinning. Between two
// commands the Python thread waits for what the host does with the reply:
// about a microsecond in process, a few when the host is another process,
// which its 100 cover. Idle, both sides sleep after at most that long.
constexpr std::chrono::microseconds kRequestSpinLimit{100};
constexpr std::chrono::microseconds kReplySpinLimit{50};
#else
constexpr std::chrono::microseconds kRequestSpinLimit{0};
constexpr std::chrono::microseconds kReplySpinLimit{0};
#endif

// Each side knows the other, to tell whether it was asleep.
struct HandOffWaits {
    SpinWait::Counter requestSleepers{0};
    SpinWait::Counter replySleepers{0};
    SpinWait request{kRequestSpinLimit, requestSleepers, replySleepers};
    SpinWait reply{kReplySpinLimit, replySleepers, requestSleepers};
};

HandOffWaits& handOffWaits() {
    static auto* const waits = new HandOffWaits;  // never destroyed, like the queue
    return *waits;
}

}  // namespace

SpinWait& requestWait() {
    return handOffWaits().request;
}

SpinWait& replyWait() {
    return handOffWaits().reply;
}

}  // namespace pylnk
