// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UsbDetector"

#include "usb/UsbDevicePublisher.h"

#include <libusb-1.0/libusb.h>
#include <log/log.h>
#include <velta_pps/Publisher.h>

#include <string>

#include "usb/UsbRecordNames.h"

namespace usb {

namespace {

constexpr int kStringSize = 128;

// Serial numbers of the root hubs are the names of their controllers.
constexpr const char* kOwnControllers[] = {"ehci-platform", "ohci-platform"};

struct DeviceStrings {
    std::string serial;
    std::string product;
    std::string manufacturer;
};

/** Text of the descriptor @p index; empty when the device has none, or does not give it. */
std::string readString(libusb_device_handle* handle, uint8_t index) {
    // One byte more than is told: the text ends, whatever the library writes.
    unsigned char text[kStringSize + 1] = {};
    if (libusb_get_string_descriptor_ascii(handle, index, text, kStringSize) < 1) {
        return std::string();
    }
    return reinterpret_cast<const char*>(text);
}

bool readStrings(libusb_device* device, DeviceStrings* strings) {
    libusb_device_handle* handle = nullptr;
    if (libusb_open(device, &handle) != LIBUSB_SUCCESS) {
        ALOGE("libusb open dev failed!");
        return false;
    }
    libusb_device_descriptor descriptor = {};
    const int result = libusb_get_device_descriptor(device, &descriptor);
    if (result < 0) {
        ALOGE("Error getting device descriptor[%s]\n", libusb_error_name(result));
    }
    strings->serial = readString(handle, descriptor.iSerialNumber);
    strings->product = readString(handle, descriptor.iProduct);
    strings->manufacturer = readString(handle, descriptor.iManufacturer);
    libusb_close(handle);
    return true;
}

bool isOwnRootHub(const std::string& serial) {
    for (const char* const controller : kOwnControllers) {
        if (serial.find(controller) != std::string::npos) {
            return true;
        }
    }
    return false;
}

void publish(const velta_pps::PPSNotification& notification) {
    if (velta_pps::Publisher::self().publish(notification) != 0) {
        ALOGE("publish failed!! obj_name[%s]", notification.object.name.c_str());
    }
}

}  // namespace

void UsbDevicePublisher::add(libusb_device* device) {
    const int busNumber = libusb_get_bus_number(device);
    DeviceStrings strings;
    if (!readStrings(device, &strings) || isOwnRootHub(strings.serial)) {
        return;
    }
    velta_pps::PPSNotification notification;
    notification.operation = velta_pps::PPSNotification::kPublish;
    notification.object.name = deviceRecordName(busNumber);
    notification.object.attributes = {{"MANUFACTURER", strings.manufacturer},
                                      {"PRODUCT", strings.product},
                                      // Readers know it by this name.
                                      {"SERVIAL", strings.serial}};
    publish(notification);
}

void UsbDevicePublisher::remove(libusb_device* device) {
    velta_pps::PPSNotification notification;
    notification.operation = velta_pps::PPSNotification::kRemove;
    notification.object.name = deviceRecordName(libusb_get_bus_number(device));
    publish(notification);
}

}  // namespace usb
