// SPDX-License-Identifier: Apache-2.0
#include "usb/UsbManagerNotifierWapper.h"

#include "common/Assert.h"

namespace usb {

using android::IBinder;
using android::interface_cast;
using android::sp;

UsbManagerNotifierWapper::UsbManagerNotifierWapper(const sp<IBinder>& notifier)
    : mNotifier(interface_cast<IUsbManagerNotifier>(notifier)) {
    SERVICE_ASSERT(notifier != nullptr, "notifier.get()", "UsbManagerNotifierWapper");
}

int32_t UsbManagerNotifierWapper::onEvent(int32_t event, int32_t value) {
    return mNotifier->onEvent(event, value);
}

}  // namespace usb
