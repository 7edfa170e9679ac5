// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/Mutex.h>

#include <atomic>
#include <cstdint>

#include "volume/VolumeItf.h"
#include "volume/VolumeMbr.h"

namespace volume {

/**
 * The volume record that the daemon keeps and that clients receive.
 *
 * Setters: before the record is shared only. What changes afterwards is the reset of the mount path, from any
 * thread, and the announce mark, under the volume detector's lock.
 */
class Volume : public VolumeItf {
  public:
    /** The placeholder for a device that could not be identified: every text is "unknown", the disk's too. */
    Volume();

    /** A volume of these texts, on a disk of its own of the path @p mbrPath, without a partition entry. */
    Volume(const android::String8& name, const android::String8& uuid, const android::String8& label,
           const android::String8& format, const android::String8& accessPath,
           const android::String8& devicePath, const android::String8& mountPath,
           const android::String8& mbrPath);

    const android::String8& getName() const override { return mName; }
    const android::String8& getUuid() const override;
    const android::String8& getLabel() const override;
    const android::String8& getFormat() const override { return mFormat; }
    const android::String8& getAccessPath() const override { return mAccessPath; }
    const android::String8& getDevicePath() const override { return mDevicePath; }
    const android::String8& getMountPath() const override;
    const android::String8& getMbrPath() const override;

    void setName(const android::String8& name) { mName = name; }  ///< Name of the node, such as "sda1".
    /** The UUID of the file system. */
    void setUuid(const android::String8& uuid) { mUuid = uuid; }
    /** The label of the file system. */
    void setLabel(const android::String8& label) { mLabel = label; }
    void setFormat(const android::String8& format) { mFormat = format; }      ///< Such as "vfat".
    void setAccessPath(const android::String8& path) { mAccessPath = path; }  ///< The link below "/media".
    void setDevicePath(const android::String8& path) { mDevicePath = path; }  ///< Such as "/dev/sda1".
    void setMountPath(const android::String8& path) { mMountPath = path; }    ///< Where it is mounted.
    /** The UUID of the partition entry; empty where there is none. */
    void setPartitionUuid(const android::String8& uuid) { mPartitionUuid = uuid; }
    /** The name of the partition entry; empty where there is none. */
    void setPartitionLabel(const android::String8& label) { mPartitionLabel = label; }

    /** The disk that carries the volume; never null. */
    const android::sp<VolumeMbr>& getMbr() const { return mMbr; }
    /** @p mbr must not be null. */
    void setMbr(const android::sp<VolumeMbr>& mbr) { mMbr = mbr; }

    /**
     * The mount path reads "unknown" from now on. Any thread: readers that hold a reference to the old path
     * keep it.
     */
    void resetMountPath() { mMountPathReset.store(true, std::memory_order_release); }

    /** The announce mark: not 0 when the volume was stored and clients have not been told since. */
    int32_t getMark() const { return mMark; }
    void setMark(int32_t mark) { mMark = mark; }  ///< @param mark 0 when told

    /**
     * Writes the raw fields to the log at info priority with the tag "VolumeDetector"; the rules of getUuid()
     * and getLabel() are not applied. A control character shows as "?".
     */
    void dump() const;

  protected:
    ~Volume() override = default;

  private:
    android::String8 mName;
    android::String8 mUuid;
    android::String8 mLabel;
    android::String8 mFormat;
    android::String8 mAccessPath;
    android::String8 mDevicePath;
    android::String8 mMountPath;
    android::sp<VolumeMbr> mMbr;
    android::String8 mPartitionUuid;
    android::String8 mPartitionLabel;
    /** Guards mFullUuid while it is filled; once filled it does not change. */
    mutable android::Mutex mFullUuidLock;
    /** What getUuid() returned last. */
    mutable android::String8 mFullUuid;
    /** mMountPath itself stays as it is: another thread may be reading it. */
    std::atomic<bool> mMountPathReset{false};
    int32_t mMark = 0;
};

}  // namespace volume
