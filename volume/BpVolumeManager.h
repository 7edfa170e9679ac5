// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IInterface.h>

#include "volume/IVolumeManager.h"

namespace volume {

/**
 * Client proxy of the service "VolumeManager"; see IVolumeManager for the operations.
 */
class BpVolumeManager : public android::BpInterface<IVolumeManager> {
  public:
    explicit BpVolumeManager(const android::sp<android::IBinder>& service)
        : android::BpInterface<IVolumeManager>(service) {}

    int startup() override;
    int shutdown() override;
    int addNotifier(const android::sp<android::IBinder>& notifier) override;
    int removeNotifier(const android::sp<android::IBinder>& notifier) override;
    int getVolumeCount() override;
    android::sp<VolumeItf> queryVolume(int index) override;
};

}  // namespace volume
