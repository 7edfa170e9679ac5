// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>

#include "volume/IVolumeManagerNotifier.h"

namespace volume {

/**
 * A registered client as a local notifier: forwards every notification to the client's binder.
 *
 * The spelling of the name is part of the interface.
 */
class VolumeManagerNotifierWapper : public VolumeManagerNotifierItf {
  public:
    /** Aborts the process when @p notifier, the client's binder, is null. */
    explicit VolumeManagerNotifierWapper(const android::sp<android::IBinder>& notifier);

    int32_t onVolumeAdded(const android::sp<VolumeItf>& volume) override;
    int32_t onVolumeRemoved(const android::sp<VolumeItf>& volume) override;
    int32_t onEvent(int32_t event, int32_t value) override;

  protected:
    ~VolumeManagerNotifierWapper() override = default;

  private:
    const android::sp<IVolumeManagerNotifier> mNotifier;
};

}  // namespace volume
