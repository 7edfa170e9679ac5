// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/ServiceAccess.h"

#include <binder/IServiceManager.h>
#include <bindercheck/BinderCheck.h>
#include <utils/Errors.h>
#include <utils/String16.h>
#include <utils/String8.h>

#include "tools/devicectl/CallLimit.h"
#include "tools/devicectl/Managers.h"
#include "tools/devicectl/StandardStreams.h"

namespace devicectl {

using android::IBinder;
using android::sp;
using android::String16;
using android::String8;

namespace {

constexpr const char* kServiceManager = "the service manager";

bool isOfTheDaemon(const std::string& service) {
    for (const Manager* const manager : managersToStart("")) {
        if (service == manager->service) {
            return true;
        }
    }
    return false;
}

std::string remedyFor(const std::string& service, const char* verb) {
    return isOfTheDaemon(service) ? std::string(verb) + " device-service"
                                  : std::string(verb) + " its program";
}

}  // namespace

ExitCode ServiceAccess::checkEnvironment() const {
    const String8 driver = bindercheck::driverProblem();
    if (!driver.isEmpty()) {
        reportError(driver.string());
        return kNoDriver;
    }
    const CallLimit limit(mAnswerSeconds, kServiceManager);
    const String8 manager = bindercheck::serviceManagerProblem();
    if (!manager.isEmpty()) {
        reportError(manager.string());
        return kNoService;
    }
    return kOk;
}

ExitCode ServiceAccess::find(const std::string& name, sp<IBinder>* service) const {
    *service = lookUp(name);
    if (*service == nullptr) {
        reportError("service " + name + " is not registered: " + remedyFor(name, "start"));
        return kNoService;
    }
    if (!isAlive(name, *service)) {
        reportError("service " + name +
                    " is registered but its process is dead: " + remedyFor(name, "restart"));
        return kDaemonDied;
    }
    return kOk;
}

sp<IBinder> ServiceAccess::lookUp(const std::string& name) const {
    const CallLimit limit(mAnswerSeconds, kServiceManager);
    return android::defaultServiceManager()->checkService(String16(name.data(), name.size()));
}

bool ServiceAccess::isAlive(const std::string& name, const sp<IBinder>& service) const {
    const CallLimit limit(mAnswerSeconds, name);
    // Any other answer, even a refusal of the ping, comes from a process that lives.
    return service->pingBinder() != android::DEAD_OBJECT;
}

ExitCode ServiceAccess::confirmAlive(const std::string& name, const sp<IBinder>& service) const {
    if (isAlive(name, service)) {
        return kOk;
    }
    reportError("the process of service " + name + " died during the call: " + remedyFor(name, "restart"));
    return kDaemonDied;
}

}  // namespace devicectl
