// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * The form of a USB device's record in a parcel, all int32: the eight values of the device in the order of
 * UsbDeviceItf's operations (identifier, bus number, pointer, class, subclass, vendor, product, protocol),
 * the raw maximum power of its configuration, the number of interfaces, then class, subclass and protocol of
 * each.
 *
 * The pointer is the lower half of the one in the daemon: it tells nothing outside, and two records of one
 * device need not agree in it.
 */

#include <binder/Parcel.h>
#include <utils/Errors.h>

#include "usb/UsbDeviceItf.h"

namespace usb {

/** Writes @p device at the position of @p parcel. @return the first error of the parcel, OK if none */
android::status_t writeUsbDevice(android::Parcel& parcel, const UsbDeviceItf& device);

/** Reads a new record at the position of @p parcel; null when the parcel does not hold a whole one. */
android::sp<UsbDeviceItf> readUsbDevice(const android::Parcel& parcel);

}  // namespace usb
