// SPDX-License-Identifier: Apache-2.0
#include "volume/BnVolumeManagerNotifier.h"

#include <binder/Parcel.h>

#include "common/Assert.h"
#include "common/NotifierAnswer.h"
#include "volume/VolumeParcel.h"

namespace volume {

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
    switch (code) {
        case kOnEvent:
            return answerEvent(*this, data, reply);
        case kOnVolumeAdded:
            return answerRecord(*this, &BnVolumeManagerNotifier::onVolumeAdded, readVolume, data, reply);
        case kOnVolumeRemoved:
            return answerRecord(*this, &BnVolumeManagerNotifier::onVolumeRemoved, readVolume, data, reply);
        default:
            return BBinder::onTransact(code, data, reply, flags);
    }
}

}  // namespace volume
