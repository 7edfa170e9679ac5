// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UsbDetector"

#include "usb/UsbTopology.h"

#include <libusb-1.0/libusb.h>
#include <log/log.h>

namespace usb {

namespace {

constexpr uint8_t kClass31 = 31;

}  // namespace

UsbKind kindOf(const libusb_device_descriptor& descriptor) {
    switch (descriptor.bDeviceClass) {
        case LIBUSB_CLASS_HUB:
            return UsbKind::kHub;
        case LIBUSB_CLASS_PER_INTERFACE:
        case kClass31:
            return UsbKind::kDevice;
        default:
            return UsbKind::kOther;
    }
}

int hubDepth(libusb_device* device) {
    int hubs = 0;
    for (libusb_device* step = device; step != nullptr; step = libusb_get_parent(step)) {
        libusb_device_descriptor descriptor = {};
        const int result = libusb_get_device_descriptor(step, &descriptor);
        if (result < 0) {
            ALOGE("Error getting device descriptor[%s]\n", libusb_error_name(result));
            return hubs;
        }
        switch (descriptor.bDeviceClass) {
            case LIBUSB_CLASS_PER_INTERFACE:
                break;
            case LIBUSB_CLASS_HUB:
                ++hubs;
                break;
            default:
                ALOGW("unknown device class[%d]\n", descriptor.bDeviceClass);
                break;
        }
    }
    return hubs;
}

}  // namespace usb
