// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

struct libusb_device;

namespace usb {

/**
 * The vendor requests that phones answer, each with all that one transfer of it needs.
 */
struct UsbVendorRequest {
    /** What the host asks: bmRequestType, bRequest, wValue; wIndex is 0. */
    uint8_t requestType;
    uint8_t request;
    uint16_t value;
    /** Bytes that the device answers at most, up to kAnswerSize; 0 for a request without data. */
    uint16_t length;
    /** Limit of the transfer in milliseconds. */
    unsigned timeoutMillis;
    /** Numbers in the error lines of a device that does not open and of a transfer that fails. */
    int openLine;
    int transferLine;

    static constexpr size_t kAnswerSize = 4;

    static const UsbVendorRequest kRoleSwitchCarplay;
    static const UsbVendorRequest kRoleSwitchPlain;
    static const UsbVendorRequest kCarplaySupport;
    static const UsbVendorRequest kAoaProtocol;

    /**
     * Opens @p device, makes the transfer and closes the device again. Any thread; logs a failure.
     *
     * @param device  referenced by the caller; null fails as a device that has gone does
     * @param word    receives the first two bytes of the answer as the bus orders them, bytes not answered
     *                being 0; may be null
     * @return 0, or libusb's error code
     */
    int send(libusb_device* device, uint16_t* word) const;
};

}  // namespace usb
