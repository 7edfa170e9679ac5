// SPDX-License-Identifier: Apache-2.0
#include "usb/UsbRecordNames.h"

namespace usb {

namespace {

constexpr char kUsb[] = "usbdev.";
constexpr char kBus[] = "bus.";
constexpr char kDevice[] = ".dev";
constexpr char kInterface[] = ".itf.";

std::string busPrefix(int busNumber) {
    return std::string(kUsb) + kBus + std::to_string(busNumber);
}

}  // namespace

std::string deviceRecordName(int busNumber) {
    return busPrefix(busNumber) + kDevice;
}

std::string interfaceRecordName(int busNumber, uint32_t index) {
    return busPrefix(busNumber) + kInterface + std::to_string(index);
}

}  // namespace usb
