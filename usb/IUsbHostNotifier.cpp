// SPDX-License-Identifier: Apache-2.0
#include "usb/IUsbHostNotifier.h"

#include "usb/BpUsbHostNotifier.h"

namespace usb {

static_assert(IUsbHostNotifier::kOnEvent == 1);
static_assert(IUsbHostNotifier::kOnUsbDeviceAttached == 2);
static_assert(IUsbHostNotifier::kOnUsbDeviceDetached == 3);

IMPLEMENT_META_INTERFACE(UsbHostNotifier, "usb.UsbHostNotifier")

}  // namespace usb
