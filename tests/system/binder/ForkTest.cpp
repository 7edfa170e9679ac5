// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A child that was forked from a process that uses the driver.
 */
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "tests/system/binder/DriverFixture.h"

using android::IBinder;
using android::NO_INIT;

namespace {

using ForkTest = DriverTest;

/** What the child finds; its exit status. */
enum Finding { kNoDriver = 0, kUsable, kDescriptor };

bool holdsDescriptorOf(const char* node) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (std::filesystem::read_symlink(entry.path(), gone) == node) {
            return true;
        }
    }
    return false;
}

Finding lookAround(IBinder& remote) {
    if (remote.pingBinder() != NO_INIT) {
        return kUsable;
    }
    return holdsDescriptorOf("/dev/binder") ? kDescriptor : kNoDriver;
}

}  // namespace

// The driver would take the child's calls for its parent's, and the child's descriptor for a living parent.
TEST_F(ForkTest, AChildHasNoDriver) {
    ASSERT_TRUE(holdsDescriptorOf("/dev/binder"));
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        _exit(lookAround(*mEcho));
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(kNoDriver, WEXITSTATUS(status));
    expectEcho();
}
