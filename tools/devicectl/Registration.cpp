// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/Registration.h"

#include <utils/Errors.h>

#include <utility>

#include "tools/devicectl/CallLimit.h"

namespace devicectl {

using android::IBinder;
using android::sp;
using android::wp;

Registration::Registration(const ServiceAccess& access, RegistrationKind kind, const sp<WakeUp>& wakeUp)
    : mAccess(access), mKind(std::move(kind)), mWakeUp(wakeUp) {}

void Registration::Death::binderDied(const wp<IBinder>& /*who*/) {
    mDied = true;
    mWakeUp->post();
}

bool Registration::make(const sp<IBinder>& service) {
    if (mService != nullptr) {
        return isThere();
    }
    // The watch comes first: a daemon that dies right after the registration must not go unnoticed.
    const sp<Death> death = new Death(mWakeUp);
    if (service->linkToDeath(death) != android::OK) {
        return false;
    }
    const sp<IBinder> ear = mKind.makeEar();
    {
        const CallLimit limit(mAccess.answerSeconds(), mKind.service);
        mKind.add(service, ear);
    }
    // The call tells success by zero and failure by zero.
    if (!mAccess.isAlive(mKind.service, service)) {
        return false;
    }
    mService = service;
    mEar = ear;
    mDeath = death;
    return true;
}

bool Registration::dropDead() {
    if (mService == nullptr || isThere()) {
        return false;
    }
    forget();
    return true;
}

void Registration::remove(unsigned seconds) {
    if (mService == nullptr) {
        return;
    }
    // Sent to the daemon of the registration, or to nobody: a proxy never reaches that daemon's successor.
    const CallLimit limit(seconds, mKind.service);
    mKind.remove(mService, mEar);
    forget();
}

void Registration::forget() {
    mService.clear();
    mEar.clear();
    mDeath.clear();
}

}  // namespace devicectl
