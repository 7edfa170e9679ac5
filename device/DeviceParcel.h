// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * The form of a device record in a parcel: String8 path, String8 subsystem, int32 number of properties, then
 * a String8 key and a String8 value for each, in the record's order.
 */

#include <binder/Parcel.h>
#include <utils/Errors.h>

#include "device/DeviceItf.h"

namespace device {

/** Writes @p device at the position of @p parcel. @return the first error of the parcel, OK if none */
android::status_t writeDevice(android::Parcel& parcel, const DeviceItf& device);

/** Reads a new record at the position of @p parcel; null when the parcel does not hold a whole one. */
android::sp<DeviceItf> readDevice(const android::Parcel& parcel);

}  // namespace device
