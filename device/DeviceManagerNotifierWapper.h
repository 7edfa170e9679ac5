// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/Assert.h"
#include "common/NotifierWapper.h"
#include "device/IDeviceManagerNotifier.h"

namespace device {

/**
 * A registered client as a local notifier: forwards every notification to the client's binder.
 *
 * The spelling of the name is part of the interface.
 */
class DeviceManagerNotifierWapper : public NotifierWapper<DeviceManagerNotifierItf, IDeviceManagerNotifier> {
  public:
    /** Aborts the process when @p notifier, the client's binder, is null. */
    explicit DeviceManagerNotifierWapper(const android::sp<android::IBinder>& notifier)
        : NotifierWapper(notifier) {
        SERVICE_ASSERT(notifier != nullptr, "notifier.get()", "DeviceManagerNotifierWapper");
    }

    int32_t onDeviceAdded(const android::sp<DeviceItf>& device) override {
        return mNotifier->onDeviceAdded(device);
    }

    int32_t onDeviceRemoved(const android::sp<DeviceItf>& device) override {
        return mNotifier->onDeviceRemoved(device);
    }

  protected:
    ~DeviceManagerNotifierWapper() override = default;
};

}  // namespace device
