// How the callers of feval_dispatcher and the Python thread wait for each
// other: the platform's spin-then-sleep policy, with the library's limits.
#pragma once

#include <foundation/msg_svc/spin_wait.h>

namespace pylnk {

using foundation::msg_svc::threadutil::SpinWait;

// The Python thread waiting for the next request, and a caller waiting for
// its reply. Their spin limits are set in hand_off_waits.cpp, the only file
// that the CMake option VX_SPIN_WAIT changes (off: both zero, the sleeping
// hand-offs kept measurable).
SpinWait& requestWait();
SpinWait& replyWait();

}  // namespace pylnk
