// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <libusb-1.0/libusb.h>

namespace usb {

/** The answer of a self-powered device that may not wake the host. */
constexpr int kStatusSelfPowered = 1;

/**
 * Asks a device for its status (the standard request GET_STATUS).
 *
 * The request runs on a libusb context of its own, on which the device is found again by bus and address: on
 * the device's own context it could be refused as busy, since that context's events are handled elsewhere.
 *
 * Any thread but one that handles libusb's events; takes up to a second.
 *
 * @param device  may be null: a device that cannot be opened
 * @return the first byte of the status, or -1 with an error line
 */
int getDeviceStatus(libusb_device* device);

}  // namespace usb
