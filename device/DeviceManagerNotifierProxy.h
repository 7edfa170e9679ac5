// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/NotifierFanOut.h"
#include "device/DeviceManagerNotifierItf.h"

namespace device {

/**
 * The device manager core's one notifier: passes every notification on to the registered clients.
 */
class DeviceManagerNotifierProxy : public NotifierFanOut<DeviceManagerNotifierItf> {
  public:
    DeviceManagerNotifierProxy() : NotifierFanOut("DeviceManagerNotifierProxy") {}

    int32_t onDeviceAdded(const android::sp<DeviceItf>& device) override {
        return callAll(&DeviceManagerNotifierItf::onDeviceAdded, device);
    }

    int32_t onDeviceRemoved(const android::sp<DeviceItf>& device) override {
        return callAll(&DeviceManagerNotifierItf::onDeviceRemoved, device);
    }

    int32_t onEvent(int32_t event, int32_t value) override {
        return callAll(&DeviceManagerNotifierItf::onEvent, event, value);
    }

  protected:
    ~DeviceManagerNotifierProxy() override = default;
};

}  // namespace device
