// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "DeviceManagerImpl"

#include "device/DeviceManagerMessageHandler.h"

#include <log/log.h>

#include "device/DeviceManagerImpl.h"

namespace device {

using android::Message;
using android::sp;

void DeviceManagerMessageHandler::handleMessage(const Message& message) {
    ALOGI("message [%d]", message.what);
    const sp<DeviceManagerImpl> manager = mManager.promote();
}

void DeviceMessageHandler::handleMessage(const Message& message) {
    const sp<DeviceManagerNotifierItf> notifier = currentNotifier();
    switch (message.what) {
        case DeviceManagerImpl::kMessageAttached:
            if (notifier != nullptr) {
                notifier->onDeviceAdded(mDevice);
            }
            break;
        case DeviceManagerImpl::kMessageDetached:
            if (notifier != nullptr) {
                notifier->onDeviceRemoved(mDevice);
            }
            break;
        default:
            ALOGW("unknown message [%d]", message.what);
            break;
    }
}

sp<DeviceManagerNotifierItf> DeviceMessageHandler::currentNotifier() const {
    const sp<DeviceManagerImpl> manager = mManager.promote();
    return manager != nullptr ? manager->mNotifier : nullptr;
}

}  // namespace device
