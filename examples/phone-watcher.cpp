// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Says which phones come and go at the USB ports, and what they can do.
 *
 * Shows: USB events; the service's own interface, asked from inside a call-back; what to tell the user when
 * there is no daemon, or when it was restarted.
 */
#include <client/Client.h>

#include <cstdint>
#include <cstdio>

#include "Program.h"

namespace {

constexpr uint32_t kApple = 0x05ac;
constexpr uint32_t kFirstApplePhone = 0x1290;
constexpr uint32_t kLastApplePhone = 0x12af;

enum class Phone { kNone, kApple, kAndroid };

/** An Apple phone by its numbers; an Android phone by the interface through which it gives its files. */
Phone kindOf(const usb::UsbDeviceItf& device) {
    if (device.getVendorId() == kApple) {
        const uint32_t product = device.getProductId();
        return product >= kFirstApplePhone && product <= kLastApplePhone ? Phone::kApple : Phone::kNone;
    }
    constexpr uint32_t kStillImage = 6;
    constexpr uint32_t kVendorSpecific = 255;
    constexpr uint32_t kGoogle = 0x18d1;
    for (size_t i = 0; i < device.getInterfaceCount(); ++i) {
        const auto interface = device.getInterface(i);
        if (interface == nullptr) {
            continue;
        }
        const uint32_t interfaceClass = interface->getInterfaceClass();
        if (interfaceClass == kStillImage ||
            (interfaceClass == kVendorSpecific && device.getVendorId() == kGoogle)) {
            return Phone::kAndroid;
        }
    }
    return Phone::kNone;
}

void sayArrival(client::Client& client, const usb::UsbDeviceItf& device) {
    const Phone phone = kindOf(device);
    if (phone == Phone::kNone) {
        return;
    }
    // Null when the daemon died just now: then its departure follows.
    const auto manager = client.usbManager();
    const bool isApple = phone == Phone::kApple;
    const bool isAble = manager != nullptr && (isApple ? manager->isAppleCarplaySupport(device.getId())
                                                       : manager->checkAoaModeSupport(device.getId())) == 1;
    printf("%s phone %04x:%04x came to bus %u, %s%s\n", isApple ? "Apple" : "Android", device.getVendorId(),
           device.getProductId(), device.getBusNumber(), isAble ? "with " : "without ",
           isApple ? "CarPlay" : "accessory mode");
}

void sayDeparture(const usb::UsbDeviceItf& device) {
    const Phone phone = kindOf(device);
    if (phone != Phone::kNone) {
        printf("%s phone %04x:%04x went from bus %u\n", phone == Phone::kApple ? "Apple" : "Android",
               device.getVendorId(), device.getProductId(), device.getBusNumber());
    }
}

}  // namespace

int main(int argc, char** argv) {
    const Program program(argc, argv, "Says which phones come and go.");

    client::Client client;
    client::Events events;
    events.connected = [](client::Service) { printf("watching\n"); };
    events.disconnected = [](client::Service) { printf("the device service is gone, waiting for it\n"); };
    events.usbDeviceAttached = [&client](const auto& device) { sayArrival(client, *device); };
    events.usbDeviceDetached = [](const auto& device) { sayDeparture(*device); };

    client::Options options;
    options.services = static_cast<uint32_t>(client::Service::kUsbManager);
    if (client.start(events, options) != android::OK) {
        fprintf(stderr, "the client cannot be started\n");
        return 1;
    }
    if (!client.waitUntilConnected(std::chrono::seconds(1))) {
        printf("no device service yet, waiting for it\n");
    }
    program.runUntilEnd();
    return 0;
}
