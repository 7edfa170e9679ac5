// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/devicectl/EventQueue.h"
#include "volume/VolumeManagerNotifierItf.h"

namespace devicectl {

/**
 * The monitor's ear for volumes, as MonitorNotifier is for devices. Binder threads.
 */
class VolumeMonitorNotifier : public volume::VolumeManagerNotifierItf {
  public:
    explicit VolumeMonitorNotifier(const android::sp<EventQueue>& queue) : mQueue(queue) {}

    int32_t onVolumeAdded(const android::sp<volume::VolumeItf>& volume) override;
    int32_t onVolumeRemoved(const android::sp<volume::VolumeItf>& volume) override;
    int32_t onEvent(int32_t event, int32_t value) override;

  protected:
    ~VolumeMonitorNotifier() override = default;

  private:
    const android::sp<EventQueue> mQueue;
};

}  // namespace devicectl
