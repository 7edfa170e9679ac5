// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <libusb-1.0/libusb.h>

#include <cstdint>
#include <functional>

namespace usb {

/**
 * Walks over the configurations of a device, whose descriptors libusb has from the kernel: no transfer.
 *
 * @param count    bNumConfigurations
 * @param failed   gets libusb's error code for each descriptor that cannot be had; the walk goes on
 * @param matches  gets each descriptor, valid for the call; true ends the walk
 * @return whether one matched
 */
bool anyConfiguration(libusb_device* device, uint8_t count, const std::function<void(int)>& failed,
                      const std::function<bool(const libusb_config_descriptor&)>& matches);

/** Whether an interface of @p config, in any of its alternate settings, has a class that @p matches. */
bool anyInterfaceClass(const libusb_config_descriptor& config, const std::function<bool(uint8_t)>& matches);

}  // namespace usb
