// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * The names of this system's records in the unit's store. Other programs know them.
 */

#include <cstdint>
#include <string>

namespace usb {

/** Name of the record of the device on a bus, as in "usbdev.bus.2.dev". Any thread. */
std::string deviceRecordName(int busNumber);

/** Name of the record of an interface's device node, as in "usbdev.bus.2.itf.0". Any thread. */
std::string interfaceRecordName(int busNumber, uint32_t index);

}  // namespace usb
