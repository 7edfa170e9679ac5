// SPDX-License-Identifier: Apache-2.0
#include "device/BnDeviceManagerNotifier.h"

#include <binder/Parcel.h>

#include "common/Assert.h"
#include "device/DeviceParcel.h"

namespace device {

using android::BAD_VALUE;
using android::OK;
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
    if (code < kOnEvent || code > kOnDeviceRemoved) {
        return BBinder::onTransact(code, data, reply, flags);
    }
    if (!data.checkInterface(this)) {
        return -1;
    }
    int32_t result = 0;
    if (code == kOnEvent) {
        int32_t event = 0;
        int32_t value = 0;
        if (data.readInt32(&event) != OK || data.readInt32(&value) != OK) {
            return BAD_VALUE;
        }
        result = onEvent(event, value);
    } else {
        const sp<DeviceItf> device = readDevice(data);
        if (device == nullptr) {
            return BAD_VALUE;
        }
        result = code == kOnDeviceAdded ? onDeviceAdded(device) : onDeviceRemoved(device);
    }
    return reply != nullptr ? reply->writeInt32(result) : OK;
}

}  // namespace device
