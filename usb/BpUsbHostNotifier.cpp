// SPDX-License-Identifier: Apache-2.0
#include "usb/BpUsbHostNotifier.h"

#include "common/NotifierCall.h"
#include "usb/UsbDeviceParcel.h"

namespace usb {

using android::sp;

int32_t BpUsbHostNotifier::onEvent(int32_t event, int32_t value) {
    return NotifierCall(getInterfaceDescriptor()).sendEvent(*remote(), kOnEvent, event, value);
}

int32_t BpUsbHostNotifier::onUsbDeviceAttached(const sp<UsbDeviceItf>& device) {
    return sendDevice(kOnUsbDeviceAttached, device);
}

int32_t BpUsbHostNotifier::onUsbDeviceDetached(const sp<UsbDeviceItf>& device) {
    return sendDevice(kOnUsbDeviceDetached, device);
}

int32_t BpUsbHostNotifier::sendDevice(uint32_t code, const sp<UsbDeviceItf>& device) {
    NotifierCall call(getInterfaceDescriptor());
    writeUsbDevice(call.request(), *device);
    return call.send(*remote(), code);
}

}  // namespace usb
