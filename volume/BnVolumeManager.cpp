// SPDX-License-Identifier: Apache-2.0
#include "volume/BnVolumeManager.h"

#include <binder/Parcel.h>

#include "volume/Volume.h"
#include "volume/VolumeParcel.h"

namespace volume {

using android::BAD_VALUE;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;

NotifierRegistry<VolumeNotifierTraits>& VolumeNotifierTraits::registryOf(BnVolumeManager& manager) {
    return manager.mNotifiers;
}

BnVolumeManager::BnVolumeManager(const sp<VolumeManagerImplItf>& impl) : ManagerService(impl) {}

int BnVolumeManager::getVolumeCount() {
    return mImpl->getVolumeCount();
}

sp<VolumeItf> BnVolumeManager::queryVolume(int index) {
    const sp<VolumeItf> volume = mImpl->queryVolume(index);
    return volume != nullptr ? volume : new Volume();
}

status_t BnVolumeManager::dispatch(uint32_t code, const Parcel& data, Parcel& reply) {
    switch (code) {
        case kGetVolumeCount:
            return reply.writeInt32(getVolumeCount());
        default:
            return replyVolume(data, reply);
    }
}

status_t BnVolumeManager::replyVolume(const Parcel& data, Parcel& reply) {
    int32_t index = 0;
    if (data.readInt32(&index) != OK) {
        return BAD_VALUE;
    }
    return writeVolume(reply, *queryVolume(index));
}

}  // namespace volume
