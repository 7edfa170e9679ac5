// SPDX-License-Identifier: Apache-2.0
#include "usb/UsbInterface.h"

namespace usb {

UsbInterface::UsbInterface(uint32_t interfaceClass, uint32_t interfaceSubClass, uint32_t interfaceProtocol)
    : mInterfaceClass(interfaceClass),
      mInterfaceSubClass(interfaceSubClass),
      mInterfaceProtocol(interfaceProtocol) {}

}  // namespace usb
