// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "usb/UsbInterfaceItf.h"

namespace usb {

/**
 * The interface record that the daemon keeps and that clients receive.
 */
class UsbInterface : public UsbInterfaceItf {
  public:
    /** The codes of an interface's descriptor. */
    UsbInterface(uint32_t interfaceClass, uint32_t interfaceSubClass, uint32_t interfaceProtocol);
    uint32_t getInterfaceClass() const override { return mInterfaceClass; }
    uint32_t getInterfaceSubClass() const override { return mInterfaceSubClass; }
    uint32_t getInterfaceProtocol() const override { return mInterfaceProtocol; }

  protected:
    ~UsbInterface() override = default;

  private:
    const uint32_t mInterfaceClass;
    const uint32_t mInterfaceSubClass;
    const uint32_t mInterfaceProtocol;
};

}  // namespace usb
