// Every CPython on the machine, started in a child process of its own and put
// through the probe's checks. Versions that are absent are skipped.
#include <spawn.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

extern char** environ;

namespace {

struct Interpreter {
    const char* name;
    std::string version;
    std::string library;
    std::string executable;
};

std::ostream& operator<<(std::ostream& out, const Interpreter& python) {
    return out << python.name;
}

Interpreter pyenv(const char* name, const std::string& version) {
    const std::string root = "/root/.pyenv/versions/" + version;
    const std::string minor = version.substr(0, version.find('.', 2));
    return {name, version, root + "/lib/libpython" + minor + ".so", root + "/bin/python" + minor};
}

class BridgeVersionMatrixTest : public ::testing::TestWithParam<Interpreter> {};

TEST_P(BridgeVersionMatrixTest, ShortSessionInAChildProcess) {
    const Interpreter& python = GetParam();
    if (!std::filesystem::exists(python.library) || !std::filesystem::exists(python.executable)) {
        GTEST_SKIP() << python.library << " is not on this machine";
    }
    std::string probe = PYLNK_CORE_PROBE;
    char* argv[] = {probe.data(), const_cast<char*>(python.version.c_str()),
                    const_cast<char*>(python.library.c_str()),
                    const_cast<char*>(python.executable.c_str()), nullptr};
    // The probe leaves a thread running at pyClose on purpose; from 3.13 on
    // such a thread is joinable and, stopped by the interpreter, never joined,
    // which the thread sanitizer would report.
    std::vector<std::string> variables;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        if (std::string_view(*variable).rfind("TSAN_OPTIONS=", 0) != 0) {
            variables.emplace_back(*variable);
        }
    }
    const char* tsanOptions = std::getenv("TSAN_OPTIONS");
    variables.push_back(std::string("TSAN_OPTIONS=") + (tsanOptions ? tsanOptions : "") +
                        ":report_thread_leaks=0");
    std::vector<char*> envp;
    for (std::string& variable : variables) {
        envp.push_back(variable.data());
    }
    envp.push_back(nullptr);
    pid_t child = 0;
    ASSERT_EQ(::posix_spawn(&child, probe.c_str(), nullptr, nullptr, argv, envp.data()), 0);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status)) << "the probe was killed by signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 0) << "see the probe's output above";
}

INSTANTIATE_TEST_SUITE_P(
    Interpreters, BridgeVersionMatrixTest,
    ::testing::Values(pyenv("Python38", "3.8.18"), pyenv("Python39", "3.9.18"),
                      pyenv("Python310", "3.10.13"), pyenv("Python311", "3.11.7"),
                      pyenv("Python312", "3.12.1"), pyenv("Python313", "3.13.0"),
                      Interpreter{"System", "3.11",
                                  "/usr/lib/x86_64-linux-gnu/libpython3.11.so.1.0",
                                  "/usr/bin/python3"}),
    [](const ::testing::TestParamInfo<Interpreter>& info) { return std::string(info.param.name); });

}  // namespace
