// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * The form of a volume record in a parcel: eight String8, one for each operation of VolumeItf, in its order:
 * name, identity, label, format, access path, device path, mount path, path of the disk.
 */

#include <binder/Parcel.h>
#include <utils/Errors.h>

#include "volume/VolumeItf.h"

namespace volume {

/** Writes @p volume at the position of @p parcel. @return the first error of the parcel, OK if none */
android::status_t writeVolume(android::Parcel& parcel, const VolumeItf& volume);

/** Reads a new record at the position of @p parcel; null when the parcel does not hold a whole one. */
android::sp<VolumeItf> readVolume(const android::Parcel& parcel);

}  // namespace volume
