// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include <cstddef>
#include <cstdint>

#include "usb/UsbConfigItf.h"
#include "usb/UsbInterfaceItf.h"

// libusb's, named only: clients of the records need no libusb.
struct libusb_device;

namespace usb {

/**
 * One attached USB device, hubs included. Immutable; all operations: any thread.
 *
 * A record outlives the device: it lives as long as anyone refers to it.
 */
class UsbDeviceItf : public virtual android::RefBase {
  public:
    /** The daemon's number of the device: counted from 1 in order of arrival, never given twice. */
    virtual uint32_t getId() const = 0;

    /** Number of the bus that the device is on. */
    virtual uint32_t getBusNumber() const = 0;

    /**
     * libusb's object of the device, not owned by the record.
     *
     * Of meaning in the daemon alone, and only until the device is detached: in a client it is a number that
     * must not be followed.
     */
    virtual libusb_device* getDevice() const = 0;

    /** bDeviceClass of the device descriptor, 0 to 255; 0 says that each interface has a class of its own. */
    virtual uint32_t getDeviceClass() const = 0;

    /** bDeviceSubClass of the device descriptor, 0 to 255. */
    virtual uint32_t getDeviceSubClass() const = 0;

    /** idVendor of the device descriptor, 0 to 65535. */
    virtual uint32_t getVendorId() const = 0;

    /** idProduct of the device descriptor, 0 to 65535. */
    virtual uint32_t getProductId() const = 0;

    /** bDeviceProtocol of the device descriptor, 0 to 255. */
    virtual uint32_t getDeviceProtocol() const = 0;

    /** Number of interfaces of the active configuration; 0 when it could not be read. */
    virtual uint32_t getInterfaceCount() const = 0;

    /**
     * One interface, in an order without meaning: it is not that of the interface numbers, and differs from
     * one record of a device to the next.
     *
     * @param index  0 to getInterfaceCount() - 1
     * @return null beyond that, and for an interface that was lost for want of memory
     */
    virtual android::sp<UsbInterfaceItf> getInterface(size_t index) const = 0;

    /** The active configuration; never null. */
    virtual android::sp<UsbConfigItf> getConfig() const = 0;

  protected:
    ~UsbDeviceItf() override = default;
};

}  // namespace usb
