// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/Looper.h>

namespace usb {

/**
 * The handler of the USB manager's queue, to which nothing is posted.
 */
class UsbManagerMessageHandler : public android::MessageHandler {
  public:
    void handleMessage(const android::Message& /*message*/) override {}

  protected:
    ~UsbManagerMessageHandler() override = default;
};

}  // namespace usb
