// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace devicectl {

/** Where a USB device is plugged in, as the kernel shows it. A value. */
struct UsbPlace {
    uint32_t bus = 0;
    std::vector<uint32_t> ports;  ///< from the root hub down; not empty
    uint32_t vendor = 0;
    uint32_t product = 0;
};

/**
 * The places of all devices but root hubs, in the order of buses and ports. The daemon tells a device's bus
 * alone; this tells the hub above it.
 *
 * @param folder the kernel's list of devices. @return empty if it cannot be read. Any thread.
 */
std::vector<UsbPlace> readUsbPlaces(const std::string& folder = "/sys/bus/usb/devices");

/**
 * Takes the first place out of @p places that a device of these numbers may have: devices that are alike are
 * told apart by nothing, and may stand in each other's place.
 * @return its ports; empty if there is none
 */
std::vector<uint32_t> takePlace(std::vector<UsbPlace>* places, uint32_t bus, uint32_t vendor,
                                uint32_t product);

}  // namespace devicectl
