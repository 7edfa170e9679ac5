// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/String8.h>

#include "common/FileSystemObserverNotifier.h"
#include "volume/VolumeDetectorImpl.h"

namespace volume {

/**
 * The volume detector's ear on /dev: nodes whose path matches the name of a SCSI or MMC disk anywhere come
 * and go as devices. A device's name is the path from there on; one that is not plain (see DeviceNames.h) is
 * refused.
 */
class DevObserverNotifier : public FileSystemObserverNotifier {
  public:
    /** Aborts when @p detector is null or has no patterns. */
    explicit DevObserverNotifier(const android::sp<VolumeDetectorImpl>& detector);

    /** Observer thread. Takes as long as the disk does. */
    void onAdd(const android::String8& path) override;

    /** Observer thread. */
    void onRemove(const android::String8& path) override;

  protected:
    ~DevObserverNotifier() override = default;

  private:
    bool findName(const android::String8& path, android::String8* name) const;

    const android::sp<VolumeDetectorImpl> mDetector;
    const android::sp<Regex> mSCSIDeviceRegex;
    const android::sp<Regex> mMMCDeviceRegex;
};

}  // namespace volume
