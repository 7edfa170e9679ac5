// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/Assert.h"
#include "common/NotifierWapper.h"
#include "volume/IVolumeManagerNotifier.h"

namespace volume {

/**
 * A registered client as a local notifier: forwards every notification to the client's binder.
 *
 * The spelling of the name is part of the interface.
 */
class VolumeManagerNotifierWapper : public NotifierWapper<VolumeManagerNotifierItf, IVolumeManagerNotifier> {
  public:
    /** Aborts the process when @p notifier, the client's binder, is null. */
    explicit VolumeManagerNotifierWapper(const android::sp<android::IBinder>& notifier)
        : NotifierWapper(notifier) {
        SERVICE_ASSERT(notifier != nullptr, "notifier.get()", "VolumeManagerNotifierWapper");
    }

    int32_t onVolumeAdded(const android::sp<VolumeItf>& volume) override {
        return mNotifier->onVolumeAdded(volume);
    }

    int32_t onVolumeRemoved(const android::sp<VolumeItf>& volume) override {
        return mNotifier->onVolumeRemoved(volume);
    }

  protected:
    ~VolumeManagerNotifierWapper() override = default;
};

}  // namespace volume
