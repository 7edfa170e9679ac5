// SPDX-License-Identifier: Apache-2.0
#include "volume/BpVolumeManager.h"

#include "common/ServiceCall.h"
#include "volume/VolumeParcel.h"

namespace volume {

using android::IBinder;
using android::sp;

int BpVolumeManager::startup() {
    ServiceCall call(getInterfaceDescriptor());
    return call.send(*remote(), kStartup).readInt32();
}

int BpVolumeManager::shutdown() {
    ServiceCall call(getInterfaceDescriptor());
    return call.send(*remote(), kShutdown).readInt32();
}

int BpVolumeManager::addNotifier(const sp<IBinder>& notifier) {
    ServiceCall call(getInterfaceDescriptor());
    call.request().writeStrongBinder(notifier);
    return call.send(*remote(), kAddNotifier).readInt32();
}

int BpVolumeManager::removeNotifier(const sp<IBinder>& notifier) {
    ServiceCall call(getInterfaceDescriptor());
    call.request().writeStrongBinder(notifier);
    return call.send(*remote(), kRemoveNotifier).readInt32();
}

int BpVolumeManager::getVolumeCount() {
    ServiceCall call(getInterfaceDescriptor());
    return call.send(*remote(), kGetVolumeCount).readInt32();
}

sp<VolumeItf> BpVolumeManager::queryVolume(int index) {
    ServiceCall call(getInterfaceDescriptor());
    call.request().writeInt32(index);
    return readVolume(call.send(*remote(), kQueryVolume));
}

}  // namespace volume
