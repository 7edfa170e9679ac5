// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UsbManagerImpl"

#include "usb/UsbUeventObserverNotifier.h"

#include "common/Assert.h"
#include "usb/UsbManagerImpl.h"

namespace usb {

using android::sp;
using android::wp;

UsbUeventObserverNotifier::UsbUeventObserverNotifier(const wp<UsbManagerImpl>& manager) : mManager(manager) {
    SERVICE_ASSERT(manager != nullptr, "manager.get()", LOG_TAG);
}

int UsbUeventObserverNotifier::onUevent(const sp<Uevent>& event) {
    const sp<UsbManagerImpl> manager = mManager.promote();
    if (manager != nullptr) {
        manager->handleUevent(*event);
    }
    return 0;
}

}  // namespace usb
