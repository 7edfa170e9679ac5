// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * The names that the volume manager deals in: folders, patterns of device names, and which texts may become
 * part of a path or a shell command.
 */

#include <utils/String8.h>

#include <cstddef>

#include "volume/Regex.h"

namespace volume {

/** Where device nodes appear. */
constexpr const char* sDeviceDir = "/dev";
/** A volume N is mounted on "/mnt/N". */
constexpr const char* sMountDir = "/mnt";
/** The link "/media/N" leads to the mount. */
constexpr const char* sAccessDir = "/media";
constexpr const char* sSCSIDeviceRegex = "sd[a-z]*";
constexpr const char* sMMCDeviceRegex = "mmcblk[0-9]*";

/** "DIRECTORY/NAME". */
android::String8 joinPath(const char* directory, const android::String8& name);

/**
 * Whether @p name can be one component of a path and one word of a shell command as it is: not empty, no "/",
 * no "..", and nothing but letters, digits and a few signs that mean nothing to a shell. Any thread.
 */
bool isPlainName(const char* name);

/** As isPlainName() for an absolute path, whose components may be separated by "/". */
bool isPlainPath(const char* path);

/**
 * Looks for a disk's name in @p text: the pattern of SCSI disks first, else that of MMC disks.
 *
 * The patterns are not anchored. On success the occurrence is [@p start, @p end). Any thread.
 */
bool findDeviceName(const Regex& scsi, const Regex& mmc, const char* text, size_t* start, size_t* end);

}  // namespace volume
