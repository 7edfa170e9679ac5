// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "usb/UsbConfigItf.h"

namespace usb {

/**
 * The configuration record that the daemon keeps and that clients receive.
 */
class UsbConfig : public UsbConfigItf {
  public:
    /** @param maxPower  bMaxPower as the descriptor has it; 0 for a configuration that could not be read */
    explicit UsbConfig(uint32_t maxPower);

    uint32_t getMaxPower() const override { return mMaxPower; }

  protected:
    ~UsbConfig() override = default;

  private:
    const uint32_t mMaxPower;
};

}  // namespace usb
