// SPDX-License-Identifier: Apache-2.0
#include "volume/BpVolumeManagerNotifier.h"

#include "common/NotifierCall.h"
#include "volume/VolumeParcel.h"

namespace volume {

using android::sp;

int32_t BpVolumeManagerNotifier::onEvent(int32_t event, int32_t value) {
    return NotifierCall(getInterfaceDescriptor()).sendEvent(*remote(), kOnEvent, event, value);
}

int32_t BpVolumeManagerNotifier::onVolumeAdded(const sp<VolumeItf>& volume) {
    return sendVolume(kOnVolumeAdded, volume);
}

int32_t BpVolumeManagerNotifier::onVolumeRemoved(const sp<VolumeItf>& volume) {
    return sendVolume(kOnVolumeRemoved, volume);
}

int32_t BpVolumeManagerNotifier::sendVolume(uint32_t code, const sp<VolumeItf>& volume) {
    NotifierCall call(getInterfaceDescriptor());
    writeVolume(call.request(), *volume);
    return call.send(*remote(), code);
}

}  // namespace volume
