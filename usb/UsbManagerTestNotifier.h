// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "usb/UsbTestNotifierItf.h"

namespace usb {

class UsbManagerImpl;

/** Passes the findings of the test mode on to the manager's notifier. Nothing happens when the manager is
 * gone. */
class UsbManagerTestNotifier : public UsbTestNotifierItf {
  public:
    /** Aborts the process when @p manager is null. */
    explicit UsbManagerTestNotifier(const android::wp<UsbManagerImpl>& manager);

    /** @return 0 */
    int onEvent(int event, int arg) override;

  protected:
    ~UsbManagerTestNotifier() override = default;

  private:
    const android::wp<UsbManagerImpl> mManager;
};

}  // namespace usb
