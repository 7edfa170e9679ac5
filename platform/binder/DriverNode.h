// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdlib>

/** The driver's node: what the environment variable BINDER_DEVICE says, of programs without privileges of
 * their own. */
inline const char* binderDriverNode() {
    static constexpr char kNodeVariable[] = "BINDER_DEVICE";
    const char* const path = secure_getenv(kNodeVariable);
    return path != nullptr && *path != '\0' ? path : "/dev/binder";
}
