// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * What is asked of the kernel's block layer through the shell, one operation for each command.
 *
 * Each starts a shell and waits for it. A path or name that is not plain (see DeviceNames.h), wherever it
 * came from, starts nothing. Any thread; hold no lock that others wait for.
 */

#include <utils/String8.h>

namespace volume {

/** Whether the disk at @p sysPath says of itself that its medium can be taken out. */
bool isRemovable(const android::String8& sysPath);

/** Has the kernel look for a change of medium in every removable disk once a second. */
void pollRemovableMedia();

/** Has the SCSI device that carries the disk at @p sysPath look at its medium again; others have no such
 *  attribute, and nothing happens. */
void rescanDevice(const android::String8& sysPath);

/** Has the kernel read the partition table of the disk @p name again. */
void rereadPartitionTable(const android::String8& name);

/** Deletes the node of the first partition of the disk @p name, if one was left in /dev. */
void removeFirstPartitionNode(const android::String8& name);

}  // namespace volume
