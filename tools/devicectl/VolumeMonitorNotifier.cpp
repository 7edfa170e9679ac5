// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/VolumeMonitorNotifier.h"

#include <utility>

namespace devicectl {

using android::sp;
using volume::VolumeItf;

int32_t VolumeMonitorNotifier::onVolumeAdded(const sp<VolumeItf>& volume) {
    Event event = Event::now(Event::Kind::kVolumeAdded);
    event.volume = volume;
    mQueue->push(std::move(event));
    return 0;
}

int32_t VolumeMonitorNotifier::onVolumeRemoved(const sp<VolumeItf>& volume) {
    Event event = Event::now(Event::Kind::kVolumeRemoved);
    event.volume = volume;
    mQueue->push(std::move(event));
    return 0;
}

int32_t VolumeMonitorNotifier::onEvent(int32_t event, int32_t value) {
    Event reported = Event::now(Event::Kind::kVolumeEvent);
    reported.code = event;
    reported.value = value;
    mQueue->push(std::move(reported));
    return 0;
}

}  // namespace devicectl
