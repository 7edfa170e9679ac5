// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/NotifierFanOut.h"
#include "usb/UsbHostNotifierItf.h"

namespace usb {

/**
 * The USB manager core's one host notifier: passes every attach and detach on to the registered clients.
 */
class UsbHostNotifierProxy : public NotifierFanOut<UsbHostNotifierItf> {
  public:
    UsbHostNotifierProxy() : NotifierFanOut("UsbHostNotifierProxy") {}

    int32_t onUsbDeviceAttached(const android::sp<UsbDeviceItf>& device) override {
        return callAll(&UsbHostNotifierItf::onUsbDeviceAttached, device);
    }

    int32_t onUsbDeviceDetached(const android::sp<UsbDeviceItf>& device) override {
        return callAll(&UsbHostNotifierItf::onUsbDeviceDetached, device);
    }

    int32_t onEvent(int32_t event, int32_t value) override {
        return callAll(&UsbHostNotifierItf::onEvent, event, value);
    }

  protected:
    ~UsbHostNotifierProxy() override = default;
};

}  // namespace usb
