// SPDX-License-Identifier: Apache-2.0
#include "tests/support/PrivateNamespaces.h"

#include <sched.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstring>

std::string enterPrivateNamespaces() {
    const auto problem = [](const char* step) { return std::string(step) + ": " + strerror(errno); };
    if (unshare(CLONE_NEWNS | CLONE_NEWNET) != 0) {
        return problem("unshare");
    }
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        return problem("mount --make-rprivate /");
    }
    if (mount("sysfs", "/sys", "sysfs", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0) {
        return problem("mount sysfs on /sys");
    }
    return std::string();
}
