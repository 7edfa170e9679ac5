// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/NotifierFanOut.h"
#include "usb/UsbManagerNotifierItf.h"

namespace usb {

/**
 * The USB manager core's one manager notifier: passes every event on to the registered clients.
 */
class UsbManagerNotifierProxy : public NotifierFanOut<UsbManagerNotifierItf> {
  public:
    UsbManagerNotifierProxy() : NotifierFanOut("UsbManagerNotifierProxy") {}

    int32_t onEvent(int32_t event, int32_t value) override {
        return callAll(&UsbManagerNotifierItf::onEvent, event, value);
    }

  protected:
    ~UsbManagerNotifierProxy() override = default;
};

}  // namespace usb
