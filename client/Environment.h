// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>
#include <utils/RefBase.h>

#include <functional>
#include <string>
#include <vector>

namespace client {

/** What a client takes from around it, so that a test can give it something else. */
struct Environment {
    /** A service by its name; null when it is not there now. Does not wait. */
    std::function<android::sp<android::IBinder>(const char* name)> lookUp;
    /**
     * Starts the threads on which the services' calls and notices of death arrive; where they cannot be yet,
     * they are there by the time that a service is found.
     */
    std::function<void()> startThreads;
    /** Paths of devices that the device manager may list. */
    std::function<std::vector<std::string>()> devicePaths;

    /** The system's own: its service manager, the process's binder threads, the kernel's devices. */
    static Environment ofTheSystem();
};

}  // namespace client
