// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UsbManagerImpl"

#include "usb/UsbManagerMessageHandler.h"

#include "common/Assert.h"
#include "usb/UsbManagerImpl.h"

namespace usb {

using android::Message;
using android::wp;

UsbManagerMessageHandler::UsbManagerMessageHandler(const wp<UsbManagerImpl>& manager) : mManager(manager) {
    SERVICE_ASSERT(manager != nullptr, "manager.get()", LOG_TAG);
}

void UsbManagerMessageHandler::handleMessage(const Message& /*message*/) {}

}  // namespace usb
