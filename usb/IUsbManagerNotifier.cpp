// SPDX-License-Identifier: Apache-2.0
#include "usb/IUsbManagerNotifier.h"

#include "usb/BpUsbManagerNotifier.h"

namespace usb {

static_assert(IUsbManagerNotifier::kOnEvent == 1);

IMPLEMENT_META_INTERFACE(UsbManagerNotifier, "usb.UsbManagerNotifier")

}  // namespace usb
