// SPDX-License-Identifier: Apache-2.0
#include "volume/VolumeManagerNotifierWapper.h"

#include "common/Assert.h"

namespace volume {

using android::IBinder;
using android::interface_cast;
using android::sp;

VolumeManagerNotifierWapper::VolumeManagerNotifierWapper(const sp<IBinder>& notifier)
    : mNotifier(interface_cast<IVolumeManagerNotifier>(notifier)) {
    SERVICE_ASSERT(notifier != nullptr, "notifier.get()", "VolumeManagerNotifierWapper");
}

int32_t VolumeManagerNotifierWapper::onVolumeAdded(const sp<VolumeItf>& volume) {
    return mNotifier->onVolumeAdded(volume);
}

int32_t VolumeManagerNotifierWapper::onVolumeRemoved(const sp<VolumeItf>& volume) {
    return mNotifier->onVolumeRemoved(volume);
}

int32_t VolumeManagerNotifierWapper::onEvent(int32_t event, int32_t value) {
    return mNotifier->onEvent(event, value);
}

}  // namespace volume
