// SPDX-License-Identifier: Apache-2.0
#include "client/Environment.h"

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <utils/String16.h>

#include "client/DevicePaths.h"

namespace client {

Environment Environment::ofTheSystem() {
    Environment environment;
    environment.lookUp = [](const char* name) {
        return android::defaultServiceManager()->checkService(android::String16(name));
    };
    environment.startThreads = [] { android::ProcessState::self()->startThreadPool(); };
    environment.devicePaths = [] { return client::devicePaths(); };
    return environment;
}

}  // namespace client
