// Every CPython with a shared library on this machine, each started in a
// process of its own and put through a short session. Absent versions are
// skipped, not failed.
#include <gtest/gtest.h>

#include <filesystem>

#include "support/session.h"

using namespace vxtest;

namespace {

std::string quoted(const std::string& s) {
    return "'" + s + "'";
}

CommandRun runSession(const PythonInstall& python) {
    return runCommand(quoted(VX_SESSION_CHECK) + " " + quoted(python.executable) + " " +
                      quoted(python.library) + " " + quoted(python.home) + " " +
                      quoted(python.version) + " " + quoted(moduleFolder()) + " 2>&1");
}

std::string pyenvPython(const std::string& minor) {
    namespace fs = std::filesystem;
    const fs::path versions = "/root/.pyenv/versions";
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(versions, ignored)) {
        const std::string name = entry.path().filename().string();
        if (name.rfind(minor + ".", 0) == 0) {
            return (entry.path() / "bin" / ("python" + minor)).string();
        }
    }
    return {};
}

class VersionMatrix : public ::testing::TestWithParam<std::string> {};

}  // namespace

TEST_P(VersionMatrix, StartsPingsAndCloses) {
    const std::string executable = pyenvPython(GetParam());
    std::optional<PythonInstall> python;
    if (!executable.empty()) {
        python = describePython(executable);
    }
    if (!python || !std::filesystem::exists(python->library)) {
        GTEST_SKIP() << "CPython " << GetParam() << " with a shared library is not on this machine";
    }
    const CommandRun outcome = runSession(*python);
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_NE(outcome.output.find("libvxbuffer.__file__: " + moduleFolder()), std::string::npos)
        << outcome.output;
    std::cout << "CPython " << GetParam() << ": " << outcome.output;
}

INSTANTIATE_TEST_SUITE_P(Pyenv, VersionMatrix,
                         ::testing::Values("3.8", "3.9", "3.10", "3.11", "3.12", "3.13"),
                         [](const auto& info) {
                             std::string name = "CPython" + info.param;
                             name.erase(std::remove(name.begin(), name.end(), '.'), name.end());
                             return name;
                         });

TEST(VersionMatrixSystem, DebianPythonAndAVirtualEnvironment) {
    CommandRun system = runSession(systemPython());
    EXPECT_EQ(system.status, 0) << system.output;

    namespace fs = std::filesystem;
    const fs::path venv = fs::temp_directory_path() / ("vx-venv-" + std::to_string(getpid()));
    const std::string make = "/usr/bin/python3 -m venv --without-pip " + quoted(venv.string());
    ASSERT_EQ(std::system(make.c_str()), 0);
    std::optional<PythonInstall> inVenv = describePython((venv / "bin" / "python").string());
    ASSERT_TRUE(inVenv);
    EXPECT_EQ(inVenv->executable, (venv / "bin" / "python").string());
    CommandRun venvRun = runSession(*inVenv);
    EXPECT_EQ(venvRun.status, 0) << venvRun.output;
    // The interpreter read the environment's pyvenv.cfg beside its executable.
    EXPECT_NE(venvRun.output.find("sys.prefix: " + venv.string() + "\n"), std::string::npos)
        << venvRun.output;
    fs::remove_all(venv);
}
