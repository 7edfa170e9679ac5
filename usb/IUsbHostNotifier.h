// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IInterface.h>

#include "usb/UsbHostNotifierItf.h"

namespace usb {

/**
 * A client's host notifier as the service "UsbManager" calls it. Clients derive from UsbHostNotifierItf and
 * wrap their object in a BnUsbHostNotifier.
 */
class IUsbHostNotifier : public android::IInterface, public UsbHostNotifierItf {
  public:
    DECLARE_META_INTERFACE(UsbHostNotifier)

    /** Transaction codes. The values are the wire contract. */
    enum Transaction : uint32_t {
        kOnEvent = 1,
        kOnUsbDeviceAttached = 2,
        kOnUsbDeviceDetached = 3,
    };

    int32_t onEvent(int32_t event, int32_t value) override = 0;
    int32_t onUsbDeviceAttached(const android::sp<UsbDeviceItf>& device) override = 0;
    int32_t onUsbDeviceDetached(const android::sp<UsbDeviceItf>& device) override = 0;
};

}  // namespace usb
