// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include <cstdint>

namespace usb {

/**
 * The active configuration of a USB device. Immutable; all operations: any thread.
 */
class UsbConfigItf : public virtual android::RefBase {
  public:
    /**
     * The configuration descriptor's byte bMaxPower as it stands, 0 to 255: in units of 2 mA for a device of
     * up to high speed, of 8 mA above. 0 also when the configuration could not be read.
     */
    virtual uint32_t getMaxPower() const = 0;

  protected:
    ~UsbConfigItf() override = default;
};

}  // namespace usb
