// SPDX-License-Identifier: Apache-2.0
#include "volume/BpVolumeManagerNotifier.h"

#include "volume/VolumeParcel.h"

namespace volume {

using android::Parcel;
using android::sp;

int32_t BpVolumeManagerNotifier::onEvent(int32_t event, int32_t value) {
    Parcel request;
    Parcel reply;
    request.writeInterfaceToken(getInterfaceDescriptor());
    request.writeInt32(event);
    request.writeInt32(value);
    remote()->transact(kOnEvent, request, &reply, 0);
    return reply.readInt32();
}

int32_t BpVolumeManagerNotifier::onVolumeAdded(const sp<VolumeItf>& volume) {
    return sendVolume(kOnVolumeAdded, volume);
}

int32_t BpVolumeManagerNotifier::onVolumeRemoved(const sp<VolumeItf>& volume) {
    return sendVolume(kOnVolumeRemoved, volume);
}

int32_t BpVolumeManagerNotifier::sendVolume(uint32_t code, const sp<VolumeItf>& volume) {
    Parcel request;
    Parcel reply;
    request.writeInterfaceToken(getInterfaceDescriptor());
    writeVolume(request, *volume);
    remote()->transact(code, request, &reply, 0);
    return reply.readInt32();
}

}  // namespace volume
