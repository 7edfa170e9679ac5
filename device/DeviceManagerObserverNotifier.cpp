// SPDX-License-Identifier: Apache-2.0
#include "device/DeviceManagerObserverNotifier.h"

#include "device/DeviceManagerImpl.h"
#include "device/DeviceManagerMessageHandler.h"

namespace device {

using android::sp;

void DeviceManagerObserverNotifier::onAdd(const sp<DeviceItf>& device) {
    const sp<DeviceManagerImpl> manager = mManager.promote();
    if (manager == nullptr) {
        return;
    }
    manager->addDevice(device);
    manager->mMessageQueue->sendMessage(new DeviceMessageHandler(mManager, device),
                                        DeviceManagerImpl::kMessageAttached);
}

void DeviceManagerObserverNotifier::onRemove(const sp<DeviceItf>& device) {
    const sp<DeviceManagerImpl> manager = mManager.promote();
    if (manager == nullptr) {
        return;
    }
    manager->removeDevice(device);
    manager->mMessageQueue->sendMessage(new DeviceMessageHandler(mManager, device),
                                        DeviceManagerImpl::kMessageDetached);
}

}  // namespace device
