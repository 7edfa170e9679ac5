// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "usb/UsbTIDNotifierItf.h"
#include "usb/UsbTestImpl.h"

namespace usb {

/**
 * Hands the checker's findings to whoever the manager set.
 */
class UsbTestTidNotifier : public UsbTIDNotifierItf {
  public:
    /** @param test  asserted not to be null */
    explicit UsbTestTidNotifier(const android::sp<UsbTestImpl>& test);

    /** @return what the manager's notifier returned, which is logged when it is negative; 0 without one */
    int onTidEvent(int event, int arg) override;

  protected:
    ~UsbTestTidNotifier() override = default;

  private:
    const android::sp<UsbTestImpl> mTest;
};

}  // namespace usb
