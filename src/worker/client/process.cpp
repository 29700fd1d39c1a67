#include "process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>

#include "vxpy/client.h"

extern char** environ;

namespace vxpy::detail {

namespace {

// Frees the spawn attributes however spawn() leaves.
struct SpawnSetup {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    SpawnSetup() {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
    }
    ~SpawnSetup() {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
};

}  // namespace

pid_t spawn(const std::vector<std::string>& argv, const SpawnOptions& options) {
    SpawnSetup setup;
    posix_spawn_file_actions_addopen(&setup.actions, 0, "/dev/null", O_RDONLY, 0);
    if (options.standardOutput >= 0) {
        posix_spawn_file_actions_adddup2(&setup.actions, options.standardOutput, 1);
    }
    if (options.quietErrors) {
        posix_spawn_file_actions_addopen(&setup.actions, 2, "/dev/null", O_WRONLY, 0);
    }
    int passed = options.passAsFd3;
    int moved = -1;
    if (passed == 3) {
        // dup2 onto itself would keep close-on-exec: pass a copy instead.
        moved = ::fcntl(passed, F_DUPFD_CLOEXEC, 4);
        passed = moved;
    }
    if (passed >= 0) {
        posix_spawn_file_actions_adddup2(&setup.actions, passed, 3);
    }
    sigset_t none;
    sigemptyset(&none);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    sigaddset(&defaults, SIGINT);
    sigaddset(&defaults, SIGTERM);
    short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
    if (options.ownGroup) {
        flags |= POSIX_SPAWN_SETPGROUP;
        posix_spawnattr_setpgroup(&setup.attributes, 0);
    }
    posix_spawnattr_setsigmask(&setup.attributes, &none);
    posix_spawnattr_setsigdefault(&setup.attributes, &defaults);
    posix_spawnattr_setflags(&setup.attributes, flags);

    std::vector<char*> args;
    for (const std::string& arg : argv) {
        args.push_back(const_cast<char*>(arg.c_str()));
    }
    args.push_back(nullptr);
    pid_t pid = -1;
    const int status =
        options.searchPath
            ? ::posix_spawnp(&pid, args[0], &setup.actions, &setup.attributes, args.data(), environ)
            : ::posix_spawn(&pid, args[0], &setup.actions, &setup.attributes, args.data(), environ);
    if (moved >= 0) {
        ::close(moved);
    }
    if (status != 0) {
        throw Error("cannot run '" + argv[0] + "': " + std::strerror(status));
    }
    return pid;
}

std::string describeEnd(int status) {
    if (WIFEXITED(status)) {
        return "exited with status " + std::to_string(WEXITSTATUS(status));
    }
    if (WIFSIGNALED(status)) {
        const int signal = WTERMSIG(status);
        const char* name = ::sigabbrev_np(signal);
        return "was killed by signal " + (name ? "SIG" + std::string(name) : std::string("?")) +
               " (" + std::to_string(signal) + ")";
    }
    return "ended with wait status " + std::to_string(status);
}

std::string reap(pid_t pid, std::chrono::milliseconds grace) {
    const auto deadline = std::chrono::steady_clock::now() + grace;
    auto pause = std::chrono::microseconds(100);
    int status = 0;
    for (;;) {
        const pid_t done = ::waitpid(pid, &status, WNOHANG);
        if (done == pid) {
            return describeEnd(status);
        }
        if (done < 0 && errno != EINTR) {
            return "ended (its status was collected elsewhere)";
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            ::kill(pid, SIGKILL);
            while (::waitpid(pid, &status, 0) < 0) {
                if (errno != EINTR) {
                    return "was killed (its status was collected elsewhere)";
                }
            }
            return describeEnd(status);
        }
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, std::chrono::microseconds(10000));
    }
}

}  // namespace vxpy::detail
