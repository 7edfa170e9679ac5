// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/VolumeMonitorNotifier.h"

namespace devicectl {

using android::sp;
using volume::VolumeItf;

int32_t VolumeMonitorNotifier::onVolumeAdded(const sp<VolumeItf>& volume) {
    return mQueue->pushRecord(Event::Kind::kVolumeAdded, &Event::volume, volume);
}

int32_t VolumeMonitorNotifier::onVolumeRemoved(const sp<VolumeItf>& volume) {
    return mQueue->pushRecord(Event::Kind::kVolumeRemoved, &Event::volume, volume);
}

int32_t VolumeMonitorNotifier::onEvent(int32_t event, int32_t value) {
    return mQueue->pushCode(Event::Kind::kVolumeEvent, event, value);
}

}  // namespace devicectl
