// SPDX-License-Identifier: Apache-2.0
#include "usb/BnUsbHostNotifier.h"

#include <binder/Parcel.h>

#include "common/Assert.h"
#include "common/NotifierAnswer.h"
#include "usb/UsbDeviceParcel.h"

namespace usb {

using android::Parcel;
using android::sp;
using android::status_t;

BnUsbHostNotifier::BnUsbHostNotifier(const sp<UsbHostNotifierItf>& impl) : mImpl(impl) {
    SERVICE_ASSERT(mImpl != nullptr, "impl.get()", "IUsbHostNotifier");
}

int32_t BnUsbHostNotifier::onEvent(int32_t event, int32_t value) {
    return mImpl->onEvent(event, value);
}

int32_t BnUsbHostNotifier::onUsbDeviceAttached(const sp<UsbDeviceItf>& device) {
    return mImpl->onUsbDeviceAttached(device);
}

int32_t BnUsbHostNotifier::onUsbDeviceDetached(const sp<UsbDeviceItf>& device) {
    return mImpl->onUsbDeviceDetached(device);
}

status_t BnUsbHostNotifier::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    switch (code) {
        case kOnEvent:
            return answerEvent(*this, data, reply);
        case kOnUsbDeviceAttached:
            return answerRecord(*this, &BnUsbHostNotifier::onUsbDeviceAttached, readUsbDevice, data, reply);
        case kOnUsbDeviceDetached:
            return answerRecord(*this, &BnUsbHostNotifier::onUsbDeviceDetached, readUsbDevice, data, reply);
        default:
            return BBinder::onTransact(code, data, reply, flags);
    }
}

}  // namespace usb
