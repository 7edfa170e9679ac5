// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include <vector>

#include "tools/devicectl/UsbRequest.h"
#include "usb/IUsbManager.h"

namespace devicectl {

/** The attached devices in the order in which they came, each once. */
std::vector<android::sp<usb::UsbDeviceItf>> listUsbDevices(usb::IUsbManager& manager);

/** Has @p manager carry out @p request, any but the list. @return its answer; 0 when the call fails */
int askUsbManager(usb::IUsbManager& manager, const UsbRequest& request);

}  // namespace devicectl
