// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/String16.h>
#include <utils/String8.h>
#include <utils/Vector.h>

#include "usb/UsbManagerItf.h"

namespace usb {

/**
 * The USB manager as the binder service holds it: what clients may ask, the dump, and what the manager's own
 * companions ask of it. All operations: any thread.
 */
class UsbManagerImplItf : public UsbManagerItf {
  public:
    /**
     * Appends the manager's line to @p result, and logs the arguments.
     * @return 0
     */
    virtual int dump(const android::Vector<android::String16>& args, android::String8& result) = 0;

    /**
     * Writes those default modes of @p mask anew that are on; writes none off.
     * @return 0; outside normal operation the certification mode, with nothing written
     */
    virtual int applyDefaultMode(int mask) = 0;

  protected:
    ~UsbManagerImplItf() override = default;
};

}  // namespace usb
