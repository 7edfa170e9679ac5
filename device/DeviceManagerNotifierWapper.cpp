// SPDX-License-Identifier: Apache-2.0
#include "device/DeviceManagerNotifierWapper.h"

#include "common/Assert.h"

namespace device {

using android::IBinder;
using android::interface_cast;
using android::sp;

DeviceManagerNotifierWapper::DeviceManagerNotifierWapper(const sp<IBinder>& notifier)
    : mNotifier(interface_cast<IDeviceManagerNotifier>(notifier)) {
    SERVICE_ASSERT(notifier != nullptr, "notifier.get()", "DeviceManagerNotifierWapper");
}

int32_t DeviceManagerNotifierWapper::onDeviceAdded(const sp<DeviceItf>& device) {
    return mNotifier->onDeviceAdded(device);
}

int32_t DeviceManagerNotifierWapper::onDeviceRemoved(const sp<DeviceItf>& device) {
    return mNotifier->onDeviceRemoved(device);
}

int32_t DeviceManagerNotifierWapper::onEvent(int32_t event, int32_t value) {
    return mNotifier->onEvent(event, value);
}

}  // namespace device
