// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "tests/support/PrivateNamespaces.h"

namespace {

/** Skips everything, visibly, for a user who may not make namespaces; for root a failure is one. */
class NamespaceEnvironment : public ::testing::Environment {
  public:
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "needs root";
        }
        ASSERT_EQ("", enterPrivateNamespaces());
    }
};

}  // namespace

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    ::testing::AddGlobalTestEnvironment(new NamespaceEnvironment());
    return RUN_ALL_TESTS();
}
