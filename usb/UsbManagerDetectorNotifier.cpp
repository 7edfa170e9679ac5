// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UsbManagerImpl"

#include "usb/UsbManagerDetectorNotifier.h"

#include <log/log.h>

#include "common/Assert.h"
#include "usb/UsbManagerImpl.h"

namespace usb {

using android::sp;
using android::wp;

UsbManagerDetectorNotifier::UsbManagerDetectorNotifier(const wp<UsbManagerImpl>& manager)
    : mManager(manager) {
    SERVICE_ASSERT(manager != nullptr, "manager.get()", "UsbManagerImpl");
}

int UsbManagerDetectorNotifier::onAttach(const sp<UsbDeviceItf>& device) {
    const sp<UsbManagerImpl> manager = mManager.promote();
    if (manager != nullptr && manager->mHostNotifier != nullptr) {
        manager->mHostNotifier->onUsbDeviceAttached(device);
    }
    return 0;
}

int UsbManagerDetectorNotifier::onDetach(const sp<UsbDeviceItf>& device) {
    const sp<UsbManagerImpl> manager = mManager.promote();
    if (manager != nullptr && manager->mHostNotifier != nullptr) {
        manager->mHostNotifier->onUsbDeviceDetached(device);
    }
    return 0;
}

int UsbManagerDetectorNotifier::onNotify(int event, int arg) {
    if (event != kEventHubTooDeep && event != kEventTooManyDevices) {
        ALOGW("unknown event[%d]", event);
    }
    const sp<UsbManagerImpl> manager = mManager.promote();
    if (manager != nullptr && manager->mNotifier != nullptr) {
        manager->mNotifier->onEvent(event, arg);
    }
    return 0;
}

}  // namespace usb
