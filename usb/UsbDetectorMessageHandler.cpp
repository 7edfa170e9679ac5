// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UsbDetector"

#include "usb/UsbDetectorMessageHandler.h"

#include <log/log.h>

#include "common/Assert.h"
#include "usb/UsbDetectorImpl.h"

namespace usb {

using android::sp;

UsbDetectorMessageHandler::UsbDetectorMessageHandler(const sp<UsbDetectorImpl>& detector)
    : mDetector(detector) {
    SERVICE_ASSERT(mDetector != nullptr, "mDetector", LOG_TAG);
}

UsbDetectorMessageHandler::~UsbDetectorMessageHandler() = default;

void UsbDetectorMessageHandler::handleMessage(const android::Message& message) {
    switch (message.what) {
        case kMessageUpdate:
            mDetector->handleDeviceUpdate();
            break;
        case kMessageHubTooDeep: {
            const sp<UsbDetectorNotifierItf> notifier = mDetector->notifier();
            if (notifier != nullptr && notifier->onNotify(UsbDetectorNotifierItf::kEventHubTooDeep, 0) != 0) {
                ALOGE("%s %d:check return value failed", "handleMessage", 771);
            }
            break;
        }
        case kMessageTooManyDevices: {
            const sp<UsbDetectorNotifierItf> notifier = mDetector->notifier();
            if (notifier != nullptr) {
                notifier->onNotify(UsbDetectorNotifierItf::kEventTooManyDevices, 0);
            }
            break;
        }
        default:
            ALOGW("unknown message[%d]\n", message.what);
            break;
    }
}

}  // namespace usb
