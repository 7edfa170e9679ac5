// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include "volume/VolumeDetectorNotifierItf.h"
#include "volume/VolumeManagerNotifierItf.h"

namespace volume {

class VolumeManagerImpl;

/**
 * Passes what the detector reports on to the manager's notifier, on the detector's queue thread. Nothing is
 * passed on once the manager is gone, or while it has no notifier.
 */
class VolumeManagerDetectorNotifier : public VolumeDetectorNotifierItf {
  public:
    explicit VolumeManagerDetectorNotifier(const android::wp<VolumeManagerImpl>& manager)
        : mManager(manager) {}

    void onVolumeAttached(const android::sp<Volume>& volume) override;
    void onVolumeDetached(const android::sp<Volume>& volume) override;

  protected:
    ~VolumeManagerDetectorNotifier() override = default;

  private:
    /** Null when the manager is gone or has none. */
    android::sp<VolumeManagerNotifierItf> currentNotifier() const;

    const android::wp<VolumeManagerImpl> mManager;
};

}  // namespace volume
