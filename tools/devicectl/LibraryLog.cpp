// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/LibraryLog.h"

#include <android/log.h>
#include <dlfcn.h>

#include <cstdlib>

namespace devicectl {

namespace {

constexpr const char* kFilterVariable = "ANDROID_LOG_TAGS";

}  // namespace

void quietLibraries() {
    // No other thread is there yet.
    if (getenv(kFilterVariable) != nullptr) {  // NOLINT(concurrency-mt-unsafe)
        return;
    }
    // A log library has the one or the other: older ones read the variable, newer ones have the function.
    setenv(kFilterVariable, "*:s", 1);  // NOLINT(concurrency-mt-unsafe)
    using SetMinimumPriority = int (*)(int);
    const auto setMinimumPriority =
        reinterpret_cast<SetMinimumPriority>(dlsym(RTLD_DEFAULT, "__android_log_set_minimum_priority"));
    if (setMinimumPriority != nullptr) {
        setMinimumPriority(ANDROID_LOG_SILENT);
    }
}

}  // namespace devicectl
