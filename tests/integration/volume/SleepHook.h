// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * Lets a test act while the product waits: the program is linked with --wrap=usleep.
 */

#include <functional>

/** Ends with the object. */
class SleepHook {
  public:
    /** @param instead  called in place of each usleep(3), on the thread that would have slept */
    explicit SleepHook(std::function<void()> instead);
    ~SleepHook();
    SleepHook(const SleepHook&) = delete;
    SleepHook& operator=(const SleepHook&) = delete;
};
