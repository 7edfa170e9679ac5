// SPDX-License-Identifier: Apache-2.0
#include "tests/system/binder/ManagerOutliver.h"

#include <binder/Binder.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <bindercheck/BinderCheck.h>

#include <chrono>
#include <cstdio>

#include "tests/system/binder/DriverFixture.h"

using android::BBinder;
using android::DEAD_OBJECT;
using android::defaultServiceManager;
using android::IBinder;
using android::OK;
using android::ProcessState;
using android::sp;
using android::String16;

namespace {

constexpr const char* kName = "test.outliver";

bool check(bool holds, const char* what) {
    if (!holds) {
        printf("wrong: %s\n", what);
    }
    return holds;
}

void tell(const char* text) {
    puts(text);
    fflush(stdout);
}

/** Without a manager everything fails, and at once. */
bool fallsShort() {
    const auto begin = std::chrono::steady_clock::now();
    const bool right =
        check(defaultServiceManager()->checkService(String16(kName)) == nullptr, "a service is found") &&
        check(defaultServiceManager()->getService(String16(kName)) == nullptr, "a service is got") &&
        check(defaultServiceManager()->addService(String16(kName), new BBinder()) == DEAD_OBJECT,
              "the status of a registration") &&
        check(defaultServiceManager()->listServices().isEmpty(), "services are listed") &&
        check(!bindercheck::serviceManagerProblem().isEmpty(), "no problem is seen");
    return right && check(std::chrono::steady_clock::now() - begin < std::chrono::seconds(3), "it waits");
}

bool worksWith(const sp<IBinder>& service) {
    return check(defaultServiceManager()->addService(String16(kName), service) == OK, "no registration") &&
           check(defaultServiceManager()->checkService(String16(kName)) == service, "not found");
}

}  // namespace

int outliveManager() {
    ProcessState::self()->startThreadPool();
    const sp<IBinder> manager = ProcessState::self()->getContextObject();
    const sp<IBinder> service = new BBinder();
    for (int round = 0; round < 2; ++round) {
        const sp<Obituary> obituary = new Obituary();
        if (!worksWith(service) || !check(manager->linkToDeath(obituary) == OK, "no link")) {
            return 1;
        }
        tell("linked");
        if (!check(waitUntil([&] { return obituary->mCount == 1; }), "no notice of the death") ||
            !fallsShort() ||
            !check(manager->linkToDeath(obituary) == DEAD_OBJECT, "a link to a manager that is not there")) {
            return 1;
        }
        tell("died");
        if (!check(waitUntil([] { return bindercheck::serviceManagerProblem().isEmpty(); }),
                   "no new manager") ||
            !check(obituary->mCount == 1, "a second notice")) {
            return 1;
        }
    }
    return worksWith(service) ? 0 : 1;
}
