// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/SortedVector.h>

#include "usb/UsbConfig.h"
#include "usb/UsbDeviceItf.h"
#include "usb/UsbInterface.h"

namespace usb {

/**
 * The device record that the daemon keeps and that clients receive.
 */
class UsbDevice : public UsbDeviceItf {
  public:
    /** Interfaces, ordered by the addresses of the records. */
    using Interfaces = android::SortedVector<android::sp<UsbInterface>>;

    /**
     * Mind the order: product before vendor, vendor before class.
     *
     * @param id          the daemon's number of the device
     * @param device      libusb's object; not owned
     * @param interfaces  copied
     * @param config      not null; UsbConfig(0) when the active configuration could not be read
     */
    UsbDevice(uint32_t id, uint32_t busNumber, libusb_device* device, uint32_t productId, uint32_t vendorId,
              uint32_t deviceClass, uint32_t deviceSubClass, uint32_t deviceProtocol,
              const Interfaces& interfaces, const android::sp<UsbConfig>& config);

    uint32_t getId() const override { return mId; }
    uint32_t getBusNumber() const override { return mBusNumber; }
    libusb_device* getDevice() const override { return mDevice; }
    uint32_t getDeviceClass() const override { return mDeviceClass; }
    uint32_t getDeviceSubClass() const override { return mDeviceSubClass; }
    uint32_t getVendorId() const override { return mVendorId; }
    uint32_t getProductId() const override { return mProductId; }
    uint32_t getDeviceProtocol() const override { return mDeviceProtocol; }
    uint32_t getInterfaceCount() const override { return mInterfaceCount; }
    android::sp<UsbInterfaceItf> getInterface(size_t index) const override;
    android::sp<UsbConfigItf> getConfig() const override { return mConfig; }

  protected:
    ~UsbDevice() override = default;

  private:
    const uint32_t mId;
    const uint32_t mBusNumber;
    libusb_device* const mDevice;
    const uint32_t mProductId;
    const uint32_t mVendorId;
    const uint32_t mDeviceClass;
    const uint32_t mDeviceSubClass;
    const uint32_t mDeviceProtocol;
    const android::sp<UsbConfig> mConfig;
    /** Of the set that was given: mInterfaces is smaller when there was no memory for an entry. */
    const uint32_t mInterfaceCount;
    Interfaces mInterfaces;
};

}  // namespace usb
