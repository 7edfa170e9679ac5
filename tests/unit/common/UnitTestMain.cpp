// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "tests/support/TemporaryRoot.h"

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    // A death test starts the program anew instead of forking one that has threads.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    ::testing::AddGlobalTestEnvironment(new TemporaryRoot());
    return RUN_ALL_TESTS();
}
