// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "usb/UsbTestNotifierItf.h"

namespace usb {

class UsbManagerImpl;

/**
 * Passes the findings of the certification test mode on to the manager notifier. No lock is held meanwhile.
 */
class UsbManagerTestNotifier : public UsbTestNotifierItf {
  public:
    /** Does not keep @p manager, which keeps the test mode. Aborts the process when it is null. */
    explicit UsbManagerTestNotifier(const android::wp<UsbManagerImpl>& manager);

    /** The test mode's threads. @return 0 */
    int onEvent(int event, int arg) override;

  protected:
    ~UsbManagerTestNotifier() override = default;

  private:
    const android::wp<UsbManagerImpl> mManager;
};

}  // namespace usb
