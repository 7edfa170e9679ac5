// SPDX-License-Identifier: Apache-2.0
#include "usb/UsbHostNotifierWapper.h"

#include "common/Assert.h"

namespace usb {

using android::IBinder;
using android::interface_cast;
using android::sp;

UsbHostNotifierWapper::UsbHostNotifierWapper(const sp<IBinder>& notifier)
    : mNotifier(interface_cast<IUsbHostNotifier>(notifier)) {
    SERVICE_ASSERT(notifier != nullptr, "notifier.get()", "UsbHostNotifierWapper");
}

int32_t UsbHostNotifierWapper::onUsbDeviceAttached(const sp<UsbDeviceItf>& device) {
    return mNotifier->onUsbDeviceAttached(device);
}

int32_t UsbHostNotifierWapper::onUsbDeviceDetached(const sp<UsbDeviceItf>& device) {
    return mNotifier->onUsbDeviceDetached(device);
}

int32_t UsbHostNotifierWapper::onEvent(int32_t event, int32_t value) {
    return mNotifier->onEvent(event, value);
}

}  // namespace usb
