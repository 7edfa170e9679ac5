// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/UeventObserverNotifier.h"

namespace usb {

class UsbManagerImpl;

/** Passes every uevent on to the manager, as long as there is one. */
class UsbUeventObserverNotifier : public UeventObserverNotifier {
  public:
    /** Aborts the process when @p manager is null. */
    explicit UsbUeventObserverNotifier(const android::wp<UsbManagerImpl>& manager);

    /** @return 0 */
    int onUevent(const android::sp<Uevent>& event) override;

  protected:
    ~UsbUeventObserverNotifier() override = default;

  private:
    const android::wp<UsbManagerImpl> mManager;
};

}  // namespace usb
