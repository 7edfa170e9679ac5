// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <libusb-1.0/libusb.h>

namespace usb {

/** The answer of a self-powered device that may not wake the host. */
constexpr int kStatusSelfPowered = 1;

/**
 * Asks a device for its status (the standard request GET_STATUS).
 *
 * The request runs on the device's own context, not on one made for it: libusb 1.0.26 crashes at the end of a
 * context in which a hub that is just going could not be opened while a device behind it was still listed.
 *
 * Any thread, but never from inside a call-back of libusb; takes up to a second.
 *
 * @param device  may be null: a device that cannot be opened
 * @return the first byte of the status, or -1 with an error line
 */
int getDeviceStatus(libusb_device* device);

}  // namespace usb
