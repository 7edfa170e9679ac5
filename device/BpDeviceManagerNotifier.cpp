// SPDX-License-Identifier: Apache-2.0
#include "device/BpDeviceManagerNotifier.h"

#include "common/NotifierCall.h"
#include "device/DeviceParcel.h"

namespace device {

using android::sp;

int32_t BpDeviceManagerNotifier::onEvent(int32_t event, int32_t value) {
    return NotifierCall(getInterfaceDescriptor()).sendEvent(*remote(), kOnEvent, event, value);
}

int32_t BpDeviceManagerNotifier::onDeviceAdded(const sp<DeviceItf>& device) {
    return sendDevice(kOnDeviceAdded, device);
}

int32_t BpDeviceManagerNotifier::onDeviceRemoved(const sp<DeviceItf>& device) {
    return sendDevice(kOnDeviceRemoved, device);
}

int32_t BpDeviceManagerNotifier::sendDevice(uint32_t code, const sp<DeviceItf>& device) {
    NotifierCall call(getInterfaceDescriptor());
    writeDevice(call.request(), *device);
    return call.send(*remote(), code);
}

}  // namespace device
