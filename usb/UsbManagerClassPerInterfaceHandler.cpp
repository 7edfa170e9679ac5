// SPDX-License-Identifier: Apache-2.0
#include "usb/UsbManagerClassPerInterfaceHandler.h"

#include "common/Assert.h"
#include "usb/UsbManagerImpl.h"

namespace usb {

using android::sp;
using android::wp;

namespace {

constexpr const char* kFile = "UsbManagerImpl";

}  // namespace

UsbManagerClassPerInterfaceHandler::UsbManagerClassPerInterfaceHandler(const wp<UsbManagerImpl>& manager)
    : mManager(manager) {
    SERVICE_ASSERT(manager != nullptr, "manager.get()", kFile);
}

int UsbManagerClassPerInterfaceHandler::onAttach(void* context, void* device) {
    SERVICE_ASSERT(context != nullptr, "ctx", kFile);
    SERVICE_ASSERT(device != nullptr, "dev", kFile);
    const sp<UsbManagerImpl> manager = mManager.promote();
    if (manager != nullptr) {
        manager->applyDefaultMode(manager->mAttachModeMask);
    }
    return 0;
}

int UsbManagerClassPerInterfaceHandler::onDetach(void* context, void* device) {
    SERVICE_ASSERT(context != nullptr, "ctx", kFile);
    SERVICE_ASSERT(device != nullptr, "dev", kFile);
    return 0;
}

}  // namespace usb
