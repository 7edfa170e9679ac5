// SPDX-License-Identifier: Apache-2.0
#include "volume/VolumeManagerDetectorNotifier.h"

#include "volume/VolumeManagerImpl.h"

namespace volume {

using android::sp;

void VolumeManagerDetectorNotifier::onVolumeAttached(const sp<Volume>& volume) {
    const sp<VolumeManagerNotifierItf> notifier = currentNotifier();
    if (notifier != nullptr) {
        notifier->onVolumeAdded(volume);
    }
}

void VolumeManagerDetectorNotifier::onVolumeDetached(const sp<Volume>& volume) {
    const sp<VolumeManagerNotifierItf> notifier = currentNotifier();
    if (notifier != nullptr) {
        notifier->onVolumeRemoved(volume);
    }
}

sp<VolumeManagerNotifierItf> VolumeManagerDetectorNotifier::currentNotifier() const {
    const sp<VolumeManagerImpl> manager = mManager.promote();
    return manager != nullptr ? manager->mNotifier : nullptr;
}

}  // namespace volume
