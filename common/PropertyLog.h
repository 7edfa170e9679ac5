// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * The log of the property store.
 */

#include <atomic>

/** Which of its lines are written. Any thread. */
struct PropertyLogSwitches {
    std::atomic<bool> error;
    std::atomic<bool> info;
    std::atomic<bool> warning;
};

/** On, off and off at first: a missing key is an everyday matter. */
extern PropertyLogSwitches sPropertyLogSwitches;

// Each writes one line with the tag "Property", cut to 499 bytes, if its switch is on. Any thread.
void propertyError(const char* format, ...) __attribute__((format(printf, 1, 2)));
void propertyWarning(const char* format, ...) __attribute__((format(printf, 1, 2)));
void propertyInfo(const char* format, ...) __attribute__((format(printf, 1, 2)));
