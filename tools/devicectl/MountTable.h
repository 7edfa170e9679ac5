// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace devicectl {

/** Whether @p path is a mount point by @p mountInfo, a text as of /proc/self/mountinfo. Pure, any thread. */
bool isMountPoint(std::string_view mountInfo, std::string_view path);

/** The mounts that this process sees now; empty if they cannot be read. Any thread. */
std::string readMountInfo();

}  // namespace devicectl
