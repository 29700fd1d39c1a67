// Test fixture: the system's Python 3.11 (with NumPy and pandas), started once
// per test process.
#pragma once

#include <gtest/gtest.h>

#include "python_helpers.h"

namespace pylnk_core::testing {

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
