// SPDX-License-Identifier: Apache-2.0
#include "usb/UsbTestImpl.h"

#include "usb/UsbTestDetectorHandler.h"

namespace usb {

using android::Mutex;
using android::sp;

UsbTestImpl::UsbTestImpl(const sp<UsbDetector>& detector, const sp<UsbTestWait>& wait)
    : mDetector(detector), mWait(wait) {}

UsbTestImpl::~UsbTestImpl() = default;

sp<UsbTestNotifierItf> UsbTestImpl::notifier() const {
    Mutex::Autolock lock(mLock);
    return mNotifier;
}

sp<UsbTID> UsbTestImpl::checker() const {
    Mutex::Autolock lock(mLock);
    return mUsbTID;
}

}  // namespace usb
