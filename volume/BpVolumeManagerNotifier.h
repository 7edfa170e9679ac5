// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IInterface.h>

#include "volume/IVolumeManagerNotifier.h"

namespace volume {

/**
 * The service's proxy of a client's notifier. Each operation is one synchronous call to the client, from any
 * thread; the result is 0 when the client is dead.
 */
class BpVolumeManagerNotifier : public android::BpInterface<IVolumeManagerNotifier> {
  public:
    explicit BpVolumeManagerNotifier(const android::sp<android::IBinder>& client)
        : android::BpInterface<IVolumeManagerNotifier>(client) {}

    int32_t onEvent(int32_t event, int32_t value) override;
    int32_t onVolumeAdded(const android::sp<VolumeItf>& volume) override;
    int32_t onVolumeRemoved(const android::sp<VolumeItf>& volume) override;

  private:
    int32_t sendVolume(uint32_t code, const android::sp<VolumeItf>& volume);
};

}  // namespace volume
