// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IInterface.h>

#include "device/DeviceManagerNotifierItf.h"

namespace device {

/**
 * A client's notifier as the service "DeviceManager" calls it. Clients derive from DeviceManagerNotifierItf
 * and wrap their object in a BnDeviceManagerNotifier.
 */
class IDeviceManagerNotifier : public android::IInterface, public DeviceManagerNotifierItf {
  public:
    DECLARE_META_INTERFACE(DeviceManagerNotifier)

    /** Transaction codes. The values are the wire contract. */
    enum Transaction : uint32_t {
        kOnEvent = 1,
        kOnDeviceAdded = 2,
        kOnDeviceRemoved = 3,
    };

    int32_t onEvent(int32_t event, int32_t value) override = 0;
    int32_t onDeviceAdded(const android::sp<DeviceItf>& device) override = 0;
    int32_t onDeviceRemoved(const android::sp<DeviceItf>& device) override = 0;
};

}  // namespace device
