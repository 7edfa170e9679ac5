// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>
#include <utils/String8.h>

namespace volume {

/**
 * A volume: one mountable block device (a partition, or a whole disk without partition table) as the daemon
 * probed and mounted it.
 *
 * What is not known reads "unknown" or is empty, see each operation. The texts come from the medium or the
 * kernel: a label or an identity may hold any bytes but NUL. They are data, never to be handed to a shell or
 * used as part of a path.
 *
 * Any thread. References returned stay valid as long as the record lives.
 */
class VolumeItf : public virtual android::RefBase {
  public:
    /** The kernel's device name, such as "sda1" or "mmcblk0p1". */
    virtual const android::String8& getName() const = 0;

    /**
     * The identity of the volume: UUID of the partition entry, a hyphen and UUID of the file system, so that
     * two partitions formatted from one image stay distinct; the file system's alone where there is no
     * partition entry.
     */
    virtual const android::String8& getUuid() const = 0;

    /** The name of the partition entry; where it is empty, the label of the file system. */
    virtual const android::String8& getLabel() const = 0;

    /** The type of the file system as libblkid names it, such as "vfat"; "unknown" when none was found. */
    virtual const android::String8& getFormat() const = 0;

    /** The link under which clients reach the files, such as "/media/sda1"; "unknown" when there is none. */
    virtual const android::String8& getAccessPath() const = 0;

    /** The device node, such as "/dev/sda1". */
    virtual const android::String8& getDevicePath() const = 0;

    /** The mount point, such as "/mnt/sda1"; "unknown" when the volume is not mounted. */
    virtual const android::String8& getMountPath() const = 0;

    /** The device node of the disk that carries the volume; "unknown" when no disk is known. */
    virtual const android::String8& getMbrPath() const = 0;

  protected:
    ~VolumeItf() override = default;
};

}  // namespace volume
