// SPDX-License-Identifier: Apache-2.0
#include "client/Environment.h"

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <bindercheck/BinderCheck.h>
#include <utils/String16.h>

#include <atomic>

#include "client/DevicePaths.h"

namespace client {

using android::IBinder;
using android::ProcessState;
using android::sp;

namespace {

/** Whether libbinder knows the service manager: from then on none of its calls waits for one to come. */
std::atomic<bool> sHasManager{false};

/**
 * A unit's libbinder may end a process that has no driver, and wait without end for a service manager that is
 * not there: it is not asked before both are.
 */
sp<IBinder> lookUpInSystem(const char* name) {
    if (!sHasManager) {
        if (!bindercheck::serviceManagerProblem().isEmpty()) {
            return nullptr;
        }
        // The driver may have come after the start.
        ProcessState::self()->startThreadPool();
    }
    const sp<IBinder> service = android::defaultServiceManager()->checkService(android::String16(name));
    sHasManager = true;
    return service;
}

void startThreadsIfPossible() {
    if (bindercheck::driverProblem().isEmpty()) {
        ProcessState::self()->startThreadPool();
    }
}

}  // namespace

Environment Environment::ofTheSystem() {
    Environment environment;
    environment.lookUp = lookUpInSystem;
    environment.startThreads = startThreadsIfPossible;
    environment.devicePaths = [] { return client::devicePaths(); };
    return environment;
}

}  // namespace client
