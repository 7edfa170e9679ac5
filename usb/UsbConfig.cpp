// SPDX-License-Identifier: Apache-2.0
#include "usb/UsbConfig.h"

namespace usb {

UsbConfig::UsbConfig(uint32_t maxPower) : mMaxPower(maxPower) {}

}  // namespace usb
