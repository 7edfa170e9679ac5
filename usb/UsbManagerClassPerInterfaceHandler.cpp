// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UsbManagerImpl"

#include "usb/UsbManagerClassPerInterfaceHandler.h"

#include "common/Assert.h"
#include "usb/UsbManagerImpl.h"

namespace usb {

using android::sp;
using android::wp;

UsbManagerClassPerInterfaceHandler::UsbManagerClassPerInterfaceHandler(const wp<UsbManagerImpl>& manager)
    : mManager(manager) {
    SERVICE_ASSERT(manager != nullptr, "manager.get()", LOG_TAG);
}

int UsbManagerClassPerInterfaceHandler::onAttach(void* ctx, void* dev) {
    SERVICE_ASSERT(ctx != nullptr, "ctx", LOG_TAG);
    SERVICE_ASSERT(dev != nullptr, "dev", LOG_TAG);
    const sp<UsbManagerImpl> manager = mManager.promote();
    if (manager != nullptr) {
        manager->applyDefaultMode(manager->attachModeMask());
    }
    return 0;
}

int UsbManagerClassPerInterfaceHandler::onDetach(void* ctx, void* dev) {
    SERVICE_ASSERT(ctx != nullptr, "ctx", LOG_TAG);
    SERVICE_ASSERT(dev != nullptr, "dev", LOG_TAG);
    return 0;
}

}  // namespace usb
