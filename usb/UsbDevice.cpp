// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UsbDevice"

#include "usb/UsbDevice.h"

#include <log/log.h>

namespace usb {

using android::sp;

UsbDevice::UsbDevice(uint32_t id, uint32_t busNumber, libusb_device* device, uint32_t productId,
                     uint32_t vendorId, uint32_t deviceClass, uint32_t deviceSubClass,
                     uint32_t deviceProtocol, const Interfaces& interfaces, const sp<UsbConfig>& config)
    : mId(id),
      mBusNumber(busNumber),
      mDevice(device),
      mProductId(productId),
      mVendorId(vendorId),
      mDeviceClass(deviceClass),
      mDeviceSubClass(deviceSubClass),
      mDeviceProtocol(deviceProtocol),
      mConfig(config),
      mInterfaceCount(static_cast<uint32_t>(interfaces.size())) {
    for (size_t i = 0; i < interfaces.size(); ++i) {
        if (mInterfaces.add(interfaces[i]) < 0) {
            ALOGE("Add UsbDeviceItf Fail");
        }
    }
}

sp<UsbInterfaceItf> UsbDevice::getInterface(size_t index) const {
    return index < mInterfaces.size() ? mInterfaces[index] : nullptr;
}

}  // namespace usb
