// SPDX-License-Identifier: Apache-2.0
#include "usb/UsbUeventObserverNotifier.h"

#include "common/Assert.h"
#include "common/Uevent.h"
#include "usb/UsbManagerImpl.h"

namespace usb {

using android::Mutex;
using android::sp;

UsbUeventObserverNotifier::UsbUeventObserverNotifier(UsbManagerImpl* manager) : mManager(manager) {
    SERVICE_ASSERT(manager != nullptr, "manager.get()", "UsbManagerImpl");
}

int UsbUeventObserverNotifier::onUevent(const sp<Uevent>& event) {
    Mutex::Autolock lock(mLock);
    if (mManager != nullptr) {
        mManager->handleUevent(*event);
    }
    return 0;
}

void UsbUeventObserverNotifier::detach() {
    Mutex::Autolock lock(mLock);
    mManager = nullptr;
}

}  // namespace usb
