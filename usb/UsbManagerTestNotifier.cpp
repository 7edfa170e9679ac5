// SPDX-License-Identifier: Apache-2.0
#include "usb/UsbManagerTestNotifier.h"

#include "common/Assert.h"
#include "usb/UsbManagerImpl.h"

namespace usb {

using android::sp;
using android::wp;

UsbManagerTestNotifier::UsbManagerTestNotifier(const wp<UsbManagerImpl>& manager) : mManager(manager) {
    SERVICE_ASSERT(manager != nullptr, "manager.get()", "UsbManagerImpl");
}

int UsbManagerTestNotifier::onEvent(int event, int arg) {
    const sp<UsbManagerImpl> manager = mManager.promote();
    if (manager != nullptr && manager->mNotifier != nullptr) {
        manager->mNotifier->onEvent(event, arg);
    }
    return 0;
}

}  // namespace usb
