// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IInterface.h>

#include "device/IDeviceManagerNotifier.h"

namespace device {

/**
 * The service's proxy of a client's notifier. Each operation is one synchronous call to the client, from any
 * thread; the result is 0 when the client is dead.
 */
class BpDeviceManagerNotifier : public android::BpInterface<IDeviceManagerNotifier> {
  public:
    explicit BpDeviceManagerNotifier(const android::sp<android::IBinder>& client)
        : android::BpInterface<IDeviceManagerNotifier>(client) {}

    int32_t onEvent(int32_t event, int32_t value) override;
    int32_t onDeviceAdded(const android::sp<DeviceItf>& device) override;
    int32_t onDeviceRemoved(const android::sp<DeviceItf>& device) override;

  private:
    int32_t sendDevice(uint32_t code, const android::sp<DeviceItf>& device);
};

}  // namespace device
