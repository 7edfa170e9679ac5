// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/String16.h>

#include "device/DeviceManagerItf.h"

namespace device {

/**
 * The device manager as the binder service holds it: what clients may ask, and the dump.
 */
class DeviceManagerImplItf : public DeviceManagerItf {
  public:
    /**
     * Appends the list of devices to @p result, lines cut at 1023 characters. Any thread.
     * @param args not used
     * @return 0
     */
    virtual int dump(const android::Vector<android::String16>& args, android::String8& result) = 0;

  protected:
    ~DeviceManagerImplItf() override = default;
};

}  // namespace device
