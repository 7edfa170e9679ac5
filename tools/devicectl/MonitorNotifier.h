// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "device/DeviceManagerNotifierItf.h"
#include "tools/devicectl/EventQueue.h"

namespace devicectl {

/**
 * The monitor's ear for devices: puts what the daemon reports into a queue, with the time, and returns.
 * Binder threads.
 */
class MonitorNotifier : public device::DeviceManagerNotifierItf {
  public:
    explicit MonitorNotifier(const android::sp<EventQueue>& queue) : mQueue(queue) {}

    int32_t onDeviceAdded(const android::sp<device::DeviceItf>& device) override;
    int32_t onDeviceRemoved(const android::sp<device::DeviceItf>& device) override;
    int32_t onEvent(int32_t event, int32_t value) override;

  protected:
    ~MonitorNotifier() override = default;

  private:
    const android::sp<EventQueue> mQueue;
};

}  // namespace devicectl
