// The system's Python 3.11 (with NumPy and pandas), Python text run in
// __main__'s namespace, and a fixture that starts the interpreter once per
// test process.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "pylnk_core/pylnk_core.h"

namespace pylnk_core::testing {

using api::PyHolder;

struct PythonInstall {
    std::u16string version;
    std::u16string library;
    std::u16string executable;
};

inline const PythonInstall kSystemPython{u"3.11", u"/usr/lib/x86_64-linux-gnu/libpython3.11.so.1.0",
                                         u"/usr/bin/python3"};

inline bool installed(const PythonInstall& python) {
    return std::filesystem::exists(std::filesystem::path(python.library)) &&
           std::filesystem::exists(std::filesystem::path(python.executable));
}

inline int load(const PythonInstall& python, const std::u16string& home = u"",
                const std::u16string& path = u"") {
    return loader::attemptToLoadPython(python.version, python.library, python.executable, home,
                                       path, false);
}

// An expression's value, or (with exec) None after running statements.
inline PyHolder evaluate(const std::string& code, const char16_t* builtin = u"eval") {
    PyHolder scope = fetch::fetch(u"__main__.__dict__");
    return api::object::pyInvoke(fetch::fetch(builtin).get(),
                                 {api::primitive::pyCreateString(code), scope}, {});
}

inline void run(const std::string& code) {
    evaluate(code, u"exec");
}

inline std::string str(python::pyArray* object) {
    return api::object::pyGetChars(api::object::pyStr(object).get());
}

inline std::string textOf(const std::string& expression) {
    return str(evaluate(expression).get());
}

// The reference count of an object, without the two references that the
// call itself adds (the holder in the vector and the argument tuple).
inline long refcount(python::pyArray* object) {
    PyHolder getrefcount = fetch::fetch(u"sys.getrefcount");
    PyHolder count = api::object::pyInvoke(getrefcount.get(), {api::holdReference(object)}, {});
    return api::primitive::pyIntGetData(count.get()) - 2;
}

// The mask of signals that the process catches.
inline std::string caughtSignals() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("SigCgt:", 0) == 0) {
            return line;
        }
    }
    return "";
}

class PythonTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!loader::isPythonLoaded()) {
            if (!installed(kSystemPython)) {
                GTEST_SKIP() << "the system's Python 3.11 is not installed";
            }
            ASSERT_EQ(load(kSystemPython), 0);
        }
    }

    void TearDown() override { api::exception::pyErrorClear(); }
};

}  // namespace pylnk_core::testing
