// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IInterface.h>

#include "device/IDeviceManager.h"

namespace device {

/**
 * Client proxy of the service "DeviceManager"; see IDeviceManager for the operations.
 */
class BpDeviceManager : public android::BpInterface<IDeviceManager> {
  public:
    explicit BpDeviceManager(const android::sp<android::IBinder>& service)
        : android::BpInterface<IDeviceManager>(service) {}

    int startup() override;
    int shutdown() override;
    int addNotifier(const android::sp<android::IBinder>& notifier) override;
    int removeNotifier(const android::sp<android::IBinder>& notifier) override;
    android::sp<DeviceItf> getDevice(const android::String8& subsystem,
                                     const android::String8& devName) override;
    android::Vector<android::sp<DeviceItf>> getDevices(const android::String8& path) override;
    android::String8 getDevicePath(int type, int id) override;
};

}  // namespace device
