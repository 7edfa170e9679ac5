// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/Registration.h"

#include <utils/Errors.h>

#include "device/BnDeviceManagerNotifier.h"
#include "tools/devicectl/CallLimit.h"

namespace devicectl {

using android::IBinder;
using android::interface_cast;
using android::sp;
using android::wp;
using device::BnDeviceManagerNotifier;
using device::IDeviceManager;

void Registration::Death::binderDied(const wp<IBinder>& /*who*/) {
    mDied = true;
    mWakeUp->post();
}

bool Registration::make(const sp<IBinder>& service) {
    if (mManager != nullptr) {
        return isThere();
    }
    // The watch comes first: a daemon that dies right after the registration must not go unnoticed.
    const sp<Death> death = new Death(mWakeUp);
    if (service->linkToDeath(death) != android::OK) {
        return false;
    }
    const sp<IDeviceManager> manager = interface_cast<IDeviceManager>(service);
    const sp<IBinder> ear = new BnDeviceManagerNotifier(mNotifier);
    {
        const CallLimit limit(mAccess.answerSeconds(), IDeviceManager::kServiceName);
        manager->addNotifier(ear);
    }
    // The call tells success by zero and failure by zero.
    if (!mAccess.isAlive(IDeviceManager::kServiceName, service)) {
        return false;
    }
    mManager = manager;
    mEar = ear;
    mDeath = death;
    return true;
}

bool Registration::dropDead() {
    if (mManager == nullptr || isThere()) {
        return false;
    }
    mManager.clear();
    mEar.clear();
    mDeath.clear();
    return true;
}

void Registration::remove(unsigned seconds) {
    if (mManager == nullptr) {
        return;
    }
    // Sent to the daemon of the registration, or to nobody: a proxy never reaches that daemon's successor.
    const CallLimit limit(seconds, IDeviceManager::kServiceName);
    mManager->removeNotifier(mEar);
    mManager.clear();
    mEar.clear();
    mDeath.clear();
}

}  // namespace devicectl
