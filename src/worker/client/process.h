// Child processes of the client: spawning, and waiting for their end.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace vxpy::detail {

struct SpawnOptions {
    // The child gets this descriptor as its descriptor 3 (none when negative).
    int passAsFd3 = -1;
    // The child's standard output (inherited when negative).
    int standardOutput = -1;
    // Standard error to /dev/null instead of the parent's.
    bool quietErrors = false;
    // Look the program up on PATH when it has no '/'.
    bool searchPath = false;
    // A process group of its own: the terminal's Ctrl-C is the host's to handle.
    bool ownGroup = false;
};

// Starts argv[0] with argv and the parent's environment, standard input from
// /dev/null, no blocked signals. Returns the pid or throws vxpy::Error.
pid_t spawn(const std::vector<std::string>& argv, const SpawnOptions& options);

// "exited with status 3", "was killed by signal SIGSEGV (11)".
std::string describeEnd(int status);

// Waits for the child to end, kills it (SIGKILL) once `grace` has passed, and
// reaps it. Returns describeEnd of its status.
std::string reap(pid_t pid, std::chrono::milliseconds grace);

}  // namespace vxpy::detail
