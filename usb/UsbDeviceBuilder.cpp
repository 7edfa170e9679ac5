// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UsbDetector"

#include "usb/UsbDeviceBuilder.h"

#include <libusb-1.0/libusb.h>
#include <log/log.h>

#include "common/Assert.h"

namespace usb {

using android::sp;

namespace {

/** One entry per interface number, made of its first setting; further settings are the driver's affair. */
UsbDevice::Interfaces interfacesOf(const libusb_config_descriptor& config) {
    UsbDevice::Interfaces interfaces;
    for (uint8_t i = 0; i < config.bNumInterfaces; ++i) {
        const libusb_interface& settings = config.interface[i];
        const libusb_interface_descriptor* const first =
            settings.num_altsetting > 0 ? settings.altsetting : nullptr;
        SERVICE_ASSERT(first != nullptr, "interface_desc", LOG_TAG);
        const sp<UsbInterface> interface =
            new UsbInterface(first->bInterfaceClass, first->bInterfaceSubClass, first->bInterfaceProtocol);
        if (interfaces.add(interface) < 0) {
            ALOGE("UsbInterface add fail");
        }
    }
    return interfaces;
}

}  // namespace

sp<UsbDevice> buildUsbDevice(libusb_device* device, uint32_t id) {
    libusb_device_descriptor descriptor = {};
    const int descriptorResult = libusb_get_device_descriptor(device, &descriptor);
    if (descriptorResult < 0) {
        ALOGE("Error getting device descriptor[%s]\n", libusb_error_name(descriptorResult));
    }

    sp<UsbConfig> config;
    UsbDevice::Interfaces interfaces;
    libusb_config_descriptor* active = nullptr;
    const int configResult = libusb_get_active_config_descriptor(device, &active);
    if (configResult < 0) {
        ALOGW("fail to getting active configure descriptor[%s]\n", libusb_error_name(configResult));
        config = new UsbConfig(0);
    } else {
        interfaces = interfacesOf(*active);
        config = new UsbConfig(active->MaxPower);
        libusb_free_config_descriptor(active);
    }
    return new UsbDevice(id, libusb_get_bus_number(device), device, descriptor.idProduct, descriptor.idVendor,
                         descriptor.bDeviceClass, descriptor.bDeviceSubClass, descriptor.bDeviceProtocol,
                         interfaces, config);
}

}  // namespace usb
