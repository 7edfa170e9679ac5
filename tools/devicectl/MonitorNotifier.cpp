// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/MonitorNotifier.h"

#include <utility>

namespace devicectl {

using android::sp;
using device::DeviceItf;

int32_t MonitorNotifier::onDeviceAdded(const sp<DeviceItf>& device) {
    Event event = Event::now(Event::Kind::kDeviceAdded);
    event.device = device;
    mQueue->push(std::move(event));
    return 0;
}

int32_t MonitorNotifier::onDeviceRemoved(const sp<DeviceItf>& device) {
    Event event = Event::now(Event::Kind::kDeviceRemoved);
    event.device = device;
    mQueue->push(std::move(event));
    return 0;
}

int32_t MonitorNotifier::onEvent(int32_t event, int32_t value) {
    Event reported = Event::now(Event::Kind::kDeviceEvent);
    reported.code = event;
    reported.value = value;
    mQueue->push(std::move(reported));
    return 0;
}

}  // namespace devicectl
