// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "usb/UsbDevice.h"

namespace usb {

/**
 * Makes the record of @p device from what libusb knows of its descriptors. Any thread.
 *
 * Never null: what cannot be read is logged with the tag "UsbDetector" and stands as 0, and a device whose
 * active configuration cannot be read has no interface. Aborts when the configuration lists an interface
 * without any setting.
 *
 * @param device  not null, referenced by the caller for the length of the call
 * @param id      the number that the device shall have
 */
android::sp<UsbDevice> buildUsbDevice(libusb_device* device, uint32_t id);

}  // namespace usb
