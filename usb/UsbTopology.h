// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * What a device is, and where it sits below its root hub.
 */

struct libusb_device;
struct libusb_device_descriptor;

namespace usb {

/** What the detector makes of a device's class. */
enum class UsbKind {
    kHub,     //!< class 9
    kDevice,  //!< class 0, each interface with its own, or 31
    kOther,   //!< anything else, which is not taken
};

/** Any thread. */
UsbKind kindOf(const libusb_device_descriptor& descriptor);

/**
 * Number of hubs on the way from @p device up to the root hub, both included: 1 for a root hub, 2 for a hub
 * at one of its ports. Any thread; logs with the tag "UsbDetector" what it meets on the way and cannot read
 * or does not know.
 *
 * @param device  not null, referenced by the caller for the length of the call
 */
int hubDepth(libusb_device* device);

}  // namespace usb
