// SPDX-License-Identifier: Apache-2.0
#include "volume/BnVolumeManagerNotifier.h"

#include <binder/Parcel.h>

#include "common/Assert.h"
#include "volume/VolumeParcel.h"

namespace volume {

using android::BAD_VALUE;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;

BnVolumeManagerNotifier::BnVolumeManagerNotifier(const sp<VolumeManagerNotifierItf>& impl) : mImpl(impl) {
    SERVICE_ASSERT(mImpl != nullptr, "impl.get()", "IVolumeManagerNotifier");
}

int32_t BnVolumeManagerNotifier::onEvent(int32_t event, int32_t value) {
    return mImpl->onEvent(event, value);
}

int32_t BnVolumeManagerNotifier::onVolumeAdded(const sp<VolumeItf>& volume) {
    return mImpl->onVolumeAdded(volume);
}

int32_t BnVolumeManagerNotifier::onVolumeRemoved(const sp<VolumeItf>& volume) {
    return mImpl->onVolumeRemoved(volume);
}

status_t BnVolumeManagerNotifier::onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                             uint32_t flags) {
    if (code < kOnEvent || code > kOnVolumeRemoved) {
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
        const sp<VolumeItf> volume = readVolume(data);
        if (volume == nullptr) {
            return BAD_VALUE;
        }
        result = code == kOnVolumeAdded ? onVolumeAdded(volume) : onVolumeRemoved(volume);
    }
    return reply != nullptr ? reply->writeInt32(result) : OK;
}

}  // namespace volume
