// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include <cstdint>

namespace usb {

/**
 * One interface of a USB device's active configuration. Immutable; all operations: any thread.
 */
class UsbInterfaceItf : public virtual android::RefBase {
  public:
    /** bInterfaceClass of the interface descriptor, 0 to 255. */
    virtual uint32_t getInterfaceClass() const = 0;

    /** bInterfaceSubClass of the interface descriptor, 0 to 255. */
    virtual uint32_t getInterfaceSubClass() const = 0;

    /** bInterfaceProtocol of the interface descriptor, 0 to 255. */
    virtual uint32_t getInterfaceProtocol() const = 0;

  protected:
    ~UsbInterfaceItf() override = default;
};

}  // namespace usb
