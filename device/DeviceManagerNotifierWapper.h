// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>

#include "device/IDeviceManagerNotifier.h"

namespace device {

/**
 * A registered client as a local notifier: forwards every notification to the client's binder.
 *
 * The spelling of the name is part of the interface.
 */
class DeviceManagerNotifierWapper : public DeviceManagerNotifierItf {
  public:
    /** Aborts the process when @p notifier, the client's binder, is null. */
    explicit DeviceManagerNotifierWapper(const android::sp<android::IBinder>& notifier);

    int32_t onDeviceAdded(const android::sp<DeviceItf>& device) override;
    int32_t onDeviceRemoved(const android::sp<DeviceItf>& device) override;
    int32_t onEvent(int32_t event, int32_t value) override;

  protected:
    ~DeviceManagerNotifierWapper() override = default;

  private:
    const android::sp<IDeviceManagerNotifier> mNotifier;
};

}  // namespace device
