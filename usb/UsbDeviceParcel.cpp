// SPDX-License-Identifier: Apache-2.0
#include "usb/UsbDeviceParcel.h"

#include "usb/UsbDevice.h"

namespace usb {

using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;

namespace {

constexpr size_t kScalars = 8;
constexpr size_t kInterfaceSize = 3 * sizeof(int32_t);

/** The pointer is a number to everyone but the daemon, and 32 bits wide on the wire. */
uint32_t toWire(const libusb_device* device) {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(device));
}

libusb_device* fromWire(uint32_t value) {
    return reinterpret_cast<libusb_device*>(static_cast<uintptr_t>(value));
}

template <size_t COUNT>
status_t writeAll(Parcel& parcel, const uint32_t (&values)[COUNT]) {
    for (const uint32_t value : values) {
        const status_t status = parcel.writeUint32(value);
        if (status != OK) {
            return status;
        }
    }
    return OK;
}

template <size_t COUNT>
bool readAll(const Parcel& parcel, uint32_t (&values)[COUNT]) {
    for (uint32_t& value : values) {
        if (parcel.readUint32(&value) != OK) {
            return false;
        }
    }
    return true;
}

}  // namespace

status_t writeUsbDevice(Parcel& parcel, const UsbDeviceItf& device) {
    const uint32_t count = device.getInterfaceCount();
    const uint32_t head[] = {
        device.getId(),
        device.getBusNumber(),
        toWire(device.getDevice()),
        device.getDeviceClass(),
        device.getDeviceSubClass(),
        device.getVendorId(),
        device.getProductId(),
        device.getDeviceProtocol(),
        device.getConfig()->getMaxPower(),
        count,
    };
    status_t status = writeAll(parcel, head);
    for (uint32_t i = 0; status == OK && i < count; ++i) {
        const sp<UsbInterfaceItf> interface = device.getInterface(i);
        uint32_t triple[] = {0, 0, 0};
        // Null where memory ran out as the record was made; the count on the wire holds all the same.
        if (interface != nullptr) {
            triple[0] = interface->getInterfaceClass();
            triple[1] = interface->getInterfaceSubClass();
            triple[2] = interface->getInterfaceProtocol();
        }
        status = writeAll(parcel, triple);
    }
    return status;
}

sp<UsbDeviceItf> readUsbDevice(const Parcel& parcel) {
    uint32_t scalar[kScalars];
    uint32_t maxPower[1];
    uint32_t count[1];
    if (!readAll(parcel, scalar) || !readAll(parcel, maxPower) || !readAll(parcel, count)) {
        return nullptr;
    }
    // Before anything is allocated for a count that the parcel cannot hold.
    if (count[0] > parcel.dataAvail() / kInterfaceSize) {
        return nullptr;
    }
    UsbDevice::Interfaces interfaces;
    for (uint32_t i = 0; i < count[0]; ++i) {
        uint32_t triple[3];
        if (!readAll(parcel, triple)) {
            return nullptr;
        }
        interfaces.add(new UsbInterface(triple[0], triple[1], triple[2]));
    }
    return new UsbDevice(scalar[0], scalar[1], fromWire(scalar[2]), scalar[6], scalar[5], scalar[3],
                         scalar[4], scalar[7], interfaces, new UsbConfig(maxPower[0]));
}

}  // namespace usb
