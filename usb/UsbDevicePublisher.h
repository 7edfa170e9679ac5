// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * The device records of the unit's store.
 */

struct libusb_device;

namespace usb {

/**
 * Publishes what a USB device says of itself, in one record per bus.
 *
 * There is no record per device: a device behind a hub replaces the record of the one that came before it on
 * the same bus, and whichever of them goes takes the record along. Readers know that.
 *
 * Failures are logged with the tag "UsbDetector" and not retried. Detector's queue thread.
 */
class UsbDevicePublisher {
  public:
    UsbDevicePublisher() = delete;

    /**
     * Publishes the record of the bus of @p device: its manufacturer, product and serial number. Opens the
     * device and reads its strings, one second at most for each. Nothing is published for a device that
     * cannot be opened, nor for the root hub of one of the unit's own controllers.
     *
     * @param device  not null, referenced by the caller for the length of the call, of a context whose
     *                events the calling thread does not handle
     */
    static void add(libusb_device* device);

    /** Withdraws the record of the bus of @p device, whoever published it. @param device as for add() */
    static void remove(libusb_device* device);
};

}  // namespace usb
