// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UsbTID"

#include "usb/DeviceStatus.h"

#include <log/log.h>

#include <array>

namespace usb {

namespace {

constexpr unsigned kTimeoutMillis = 1000;
constexpr size_t kStatusSize = 2;

}  // namespace

int getDeviceStatus(libusb_device* device) {
    libusb_device_handle* handle = nullptr;
    if (device == nullptr || libusb_open(device, &handle) < 0) {
        ALOGE("[%s:%d] open libusb device failed\n", "getDeviceStatus", __LINE__);
        return -1;
    }
    std::array<unsigned char, kStatusSize> status = {};
    const int size = libusb_control_transfer(handle, LIBUSB_ENDPOINT_IN, LIBUSB_REQUEST_GET_STATUS, 0, 0,
                                             status.data(), status.size(), kTimeoutMillis);
    libusb_close(handle);
    // Without its first byte the answer is none.
    if (size < 1) {
        ALOGE("[%s:%d] libusb_control_transfer failed\n", "getDeviceStatus", __LINE__);
        return -1;
    }
    return status[0];
}

}  // namespace usb
