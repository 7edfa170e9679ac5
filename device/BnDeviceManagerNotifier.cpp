// SPDX-License-Identifier: Apache-2.0
#include "device/BnDeviceManagerNotifier.h"

#include <binder/Parcel.h>

#include "common/Assert.h"
#include "common/NotifierAnswer.h"
#include "device/DeviceParcel.h"

namespace device {

using android::Parcel;
using android::sp;
using android::status_t;

BnDeviceManagerNotifier::BnDeviceManagerNotifier(const sp<DeviceManagerNotifierItf>& impl) : mImpl(impl) {
    SERVICE_ASSERT(mImpl != nullptr, "impl.get()", "IDeviceManagerNotifier");
}

int32_t BnDeviceManagerNotifier::onEvent(int32_t event, int32_t value) {
    return mImpl->onEvent(event, value);
}

int32_t BnDeviceManagerNotifier::onDeviceAdded(const sp<DeviceItf>& device) {
    return mImpl->onDeviceAdded(device);
}

int32_t BnDeviceManagerNotifier::onDeviceRemoved(const sp<DeviceItf>& device) {
    return mImpl->onDeviceRemoved(device);
}

status_t BnDeviceManagerNotifier::onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                             uint32_t flags) {
    switch (code) {
        case kOnEvent:
            return answerEvent(*this, data, reply);
        case kOnDeviceAdded:
            return answerRecord(*this, &BnDeviceManagerNotifier::onDeviceAdded, readDevice, data, reply);
        case kOnDeviceRemoved:
            return answerRecord(*this, &BnDeviceManagerNotifier::onDeviceRemoved, readDevice, data, reply);
        default:
            return BBinder::onTransact(code, data, reply, flags);
    }
}

}  // namespace device
