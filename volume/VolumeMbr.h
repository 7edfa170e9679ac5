// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>
#include <utils/String8.h>

#include <cstdint>

namespace volume {

/**
 * The disk that carries volumes: its partition table.
 *
 * The volume detector fills and changes the record under its lock; everyone else only reads the path, which
 * stays as it was built.
 */
class VolumeMbr : public virtual android::RefBase {
  public:
    /** A disk of the path "unknown". */
    VolumeMbr();

    /** @param path the disk's device node, such as "/dev/sda" */
    explicit VolumeMbr(const android::String8& path);

    /** Any thread. */
    const android::String8& getPath() const { return mPath; }

    /** The partition table's identifier; empty until it is set. */
    const android::String8& getUuid() const { return mUuid; }
    void setUuid(const android::String8& uuid) { mUuid = uuid; }  ///< Before it is shared.

    /** The partition table's type, such as "gpt" or "dos"; empty until it is set. */
    const android::String8& getType() const { return mType; }
    void setType(const android::String8& type) { mType = type; }  ///< Before it is shared.

    /** Number of volumes that were found on the disk, 0 or more. */
    int32_t getVolumeCount() const { return mVolumeCount; }
    void setVolumeCount(int32_t count) { mVolumeCount = count; }  ///< Under the detector's lock.

    /** The announce mark: not 0 when the disk was stored and its clients have not been told since. */
    int32_t getMark() const { return mMark; }
    void setMark(int32_t mark) { mMark = mark; }  ///< @param mark 0 when told

    /** Writes the record to the log at info priority with the tag "VolumeDetector". */
    void dump() const;

  protected:
    ~VolumeMbr() override = default;

  private:
    const android::String8 mPath;
    android::String8 mUuid;
    android::String8 mType;
    int32_t mVolumeCount = 0;
    int32_t mMark = 0;
};

}  // namespace volume
