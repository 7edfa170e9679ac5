// SPDX-License-Identifier: Apache-2.0
#include "usb/ConfigDescriptors.h"

#include <algorithm>
#include <memory>

namespace usb {

namespace {

struct FreeConfiguration {
    void operator()(libusb_config_descriptor* config) const { libusb_free_config_descriptor(config); }
};

}  // namespace

bool anyConfiguration(libusb_device* device, uint8_t count, const std::function<void(int)>& failed,
                      const std::function<bool(const libusb_config_descriptor&)>& matches) {
    for (uint8_t index = 0; index < count; ++index) {
        libusb_config_descriptor* read = nullptr;
        const int result = libusb_get_config_descriptor(device, index, &read);
        if (result < 0) {
            failed(result);
            continue;
        }
        const std::unique_ptr<libusb_config_descriptor, FreeConfiguration> config(read);
        if (matches(*config)) {
            return true;
        }
    }
    return false;
}

bool anyInterfaceClass(const libusb_config_descriptor& config, const std::function<bool(uint8_t)>& matches) {
    return std::any_of(
        config.interface, config.interface + config.bNumInterfaces, [&](const libusb_interface& interface) {
            return std::any_of(
                interface.altsetting, interface.altsetting + interface.num_altsetting,
                [&](const libusb_interface_descriptor& setting) { return matches(setting.bInterfaceClass); });
        });
}

}  // namespace usb
