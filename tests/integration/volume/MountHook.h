// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * Lets a test act at the moment of a mount: the program is linked with --wrap=mount.
 */

#include <functional>

/** Each returns to what it was when it goes. */
class MountHook {
  public:
    /**
     * @param before  called with the flags ahead of each mount(2); an error number other than 0 is its answer
     * @param after   called with the flags behind each mount(2) that succeeded
     */
    explicit MountHook(std::function<int(unsigned long)> before,
                       std::function<void(unsigned long)> after = nullptr);
    ~MountHook();
    MountHook(const MountHook&) = delete;
    MountHook& operator=(const MountHook&) = delete;
};
