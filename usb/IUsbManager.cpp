// SPDX-License-Identifier: Apache-2.0
#include "usb/IUsbManager.h"

#include "usb/BpUsbManager.h"

namespace usb {

static_assert(IUsbManager::kAddNotifier == 1);
static_assert(IUsbManager::kResetUsbPort == 20);
static_assert(IUsbManager::kSetUsbPortPower == 21);
static_assert(IUsbManager::kGetCertificationMode == 32);

IMPLEMENT_META_INTERFACE(UsbManager, "usb.UsbManager")

}  // namespace usb
