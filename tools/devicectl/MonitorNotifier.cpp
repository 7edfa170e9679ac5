// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/MonitorNotifier.h"

#include <utility>

namespace devicectl {

using android::sp;
using device::DeviceItf;

namespace {

Event eventOf(Event::Kind kind) {
    Event event;
    event.kind = kind;
    event.time = Event::Clock::now();
    return event;
}

}  // namespace

int32_t MonitorNotifier::onDeviceAdded(const sp<DeviceItf>& device) {
    Event event = eventOf(Event::Kind::kDeviceAdded);
    event.device = device;
    mQueue->push(std::move(event));
    return 0;
}

int32_t MonitorNotifier::onDeviceRemoved(const sp<DeviceItf>& device) {
    Event event = eventOf(Event::Kind::kDeviceRemoved);
    event.device = device;
    mQueue->push(std::move(event));
    return 0;
}

int32_t MonitorNotifier::onEvent(int32_t event, int32_t value) {
    Event reported = eventOf(Event::Kind::kDeviceEvent);
    reported.code = event;
    reported.value = value;
    mQueue->push(std::move(reported));
    return 0;
}

}  // namespace devicectl
