// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IInterface.h>

#include "usb/UsbManagerNotifierItf.h"

namespace usb {

/**
 * A client's manager notifier as the service "UsbManager" calls it. Clients derive from UsbManagerNotifierItf
 * and wrap their object in a BnUsbManagerNotifier.
 */
class IUsbManagerNotifier : public android::IInterface, public UsbManagerNotifierItf {
  public:
    DECLARE_META_INTERFACE(UsbManagerNotifier)

    /** Transaction codes. The values are the wire contract. */
    enum Transaction : uint32_t {
        kOnEvent = 1,
    };

    int32_t onEvent(int32_t event, int32_t value) override = 0;
};

}  // namespace usb
