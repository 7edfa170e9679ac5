// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace client {

/**
 * The paths, below the sysfs root, of the kernel's devices of the subsystems that the device manager follows.
 * Any thread.
 *
 * @param sysfs where sysfs is mounted
 */
std::vector<std::string> devicePaths(const std::string& sysfs = "/sys");

/** Those of @p paths that have no other one below them, each once, in ascending order. Any thread. */
std::vector<std::string> deepest(const std::vector<std::string>& paths);

}  // namespace client
