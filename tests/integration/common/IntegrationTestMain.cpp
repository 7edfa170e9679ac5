// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string>

#include "tests/support/PrivateNamespaces.h"

namespace {

/** Nothing runs outside namespaces of the test's own; making them needs root. */
class NamespaceEnvironment : public ::testing::Environment {
  public:
    void SetUp() override { ASSERT_EQ("", enterPrivateNamespaces()) << "(root is needed)"; }
};

}  // namespace

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    ::testing::AddGlobalTestEnvironment(new NamespaceEnvironment());
    return RUN_ALL_TESTS();
}
