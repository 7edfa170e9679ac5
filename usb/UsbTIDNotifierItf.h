// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

namespace usb {

/**
 * Takes the findings of the test-device checker (UsbTID).
 */
class UsbTIDNotifierItf : virtual public android::RefBase {
  public:
    /**
     * One finding, on the thread that runs the check, with no lock held.
     *
     * @param event  a UsbTestEvent
     * @param arg    its argument
     * @return 0 when it was taken
     */
    virtual int onTidEvent(int event, int arg) = 0;

  protected:
    ~UsbTIDNotifierItf() override = default;
};

}  // namespace usb
