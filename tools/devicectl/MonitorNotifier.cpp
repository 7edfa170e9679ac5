// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/MonitorNotifier.h"

namespace devicectl {

using android::sp;
using device::DeviceItf;

int32_t MonitorNotifier::onDeviceAdded(const sp<DeviceItf>& device) {
    return mQueue->pushRecord(Event::Kind::kDeviceAdded, &Event::device, device);
}

int32_t MonitorNotifier::onDeviceRemoved(const sp<DeviceItf>& device) {
    return mQueue->pushRecord(Event::Kind::kDeviceRemoved, &Event::device, device);
}

int32_t MonitorNotifier::onEvent(int32_t event, int32_t value) {
    return mQueue->pushCode(Event::Kind::kDeviceEvent, event, value);
}

}  // namespace devicectl
