// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UsbDetector"

#include "usb/UsbDetector.h"

#include <log/log.h>

#include "common/Assert.h"
#include "usb/UsbDetectorImpl.h"

namespace usb {

using android::sp;

UsbDetector::UsbDetector(nsecs_t debounce, nsecs_t stopLimit)
    : mDetector(new UsbDetectorImpl(debounce, stopLimit)) {
    mDetector->makeQueue();
}

UsbDetector::~UsbDetector() {
    SERVICE_ASSERT(mDetector != nullptr, "detector", LOG_TAG);
    mDetector->dissolve();
}

void UsbDetector::setHandler(const sp<UsbDetectorHandlerItf>& handler) {
    SERVICE_ASSERT(mDetector != nullptr, "detector", LOG_TAG);
    mDetector->setHandler(handler);
}

void UsbDetector::setClassPerInterfaceHandler(const sp<UsbDetectorHandlerItf>& handler) {
    SERVICE_ASSERT(mDetector != nullptr, "detector", LOG_TAG);
    mDetector->setClassPerInterfaceHandler(handler);
}

void UsbDetector::setNotifier(const sp<UsbDetectorNotifierItf>& notifier) {
    SERVICE_ASSERT(mDetector != nullptr, "detector", LOG_TAG);
    mDetector->setNotifier(notifier);
}

void UsbDetector::start() {
    SERVICE_ASSERT(mDetector != nullptr, "detector", LOG_TAG);
    mDetector->start();
}

void UsbDetector::stop() {
    SERVICE_ASSERT(mDetector != nullptr, "detector", LOG_TAG);
    mDetector->stop();
}

size_t UsbDetector::count() {
    SERVICE_ASSERT(mDetector != nullptr, "detector", LOG_TAG);
    return mDetector->count();
}

sp<UsbDeviceItf> UsbDetector::query(size_t index) {
    SERVICE_ASSERT(mDetector != nullptr, "detector", LOG_TAG);
    const sp<UsbDevice> device = mDetector->deviceAt(index);
    if (device == nullptr) {
        ALOGE("No this (index = %d) UsbDevie object in mUsbDeviceList", static_cast<int>(index));
    }
    return device;
}

int UsbDetector::getBusNumber(uint32_t deviceId) {
    SERVICE_ASSERT(mDetector != nullptr, "detector", LOG_TAG);
    const sp<UsbDevice> device = mDetector->deviceById(deviceId);
    return device != nullptr ? static_cast<int>(device->getBusNumber()) : -1;
}

int UsbDetector::appleRoleSwitch(uint32_t deviceId, uint32_t type) {
    SERVICE_ASSERT(mDetector != nullptr, "detector", LOG_TAG);
    switch (type) {
        case kRoleSwitchCarplay:
            ALOGI("Apple Carplay RoleSwitch!");
            if (!isAppleCarplaySupport(deviceId)) {
                ALOGI("The device(deviceId=%d) don't Support Carplay role switch",
                      static_cast<int>(deviceId));
                return -1;
            }
            return mDetector->request(deviceId, UsbVendorRequest::kRoleSwitchCarplay, nullptr);
        case kRoleSwitchPlain:
            ALOGI("Apple RoleSwitch");
            return mDetector->request(deviceId, UsbVendorRequest::kRoleSwitchPlain, nullptr);
        default:
            ALOGE("Error! Other usb device type,shouldn't role switch.");
            return -1;
    }
}

bool UsbDetector::isAppleCarplaySupport(uint32_t deviceId) {
    SERVICE_ASSERT(mDetector != nullptr, "detector", LOG_TAG);
    uint16_t support = 0;
    return mDetector->request(deviceId, UsbVendorRequest::kCarplaySupport, &support) == 0 && support == 1;
}

bool UsbDetector::checkAoaModeSupport(uint32_t deviceId) {
    SERVICE_ASSERT(mDetector != nullptr, "detector", LOG_TAG);
    uint16_t version = 0;
    return mDetector->request(deviceId, UsbVendorRequest::kAoaProtocol, &version) == 0 && version > 0;
}

}  // namespace usb
