#pragma once

#include "support/TempDirectory.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace Velmor {

/// Runtime directory, state directory and resource file of the test's own.
class RuntimeFixture : public testing::Test {
protected:
    RuntimeFixture() {
        setenv("VELMOR_RUNTIME_DIR", (directory / "run").c_str(), 1);
        setenv("VELMOR_STATE_DIR", (directory / "state").c_str(), 1);
        setenv("VELMOR_RESOURCES", (directory / "resources.toml").c_str(), 1);
    }
    ~RuntimeFixture() override {
        for (const char* name : {"VELMOR_RUNTIME_DIR", "VELMOR_STATE_DIR", "VELMOR_RESOURCES"})
            unsetenv(name);
    }

    TempDirectory directory;
};

} // namespace Velmor
