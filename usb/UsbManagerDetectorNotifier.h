// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "usb/UsbDetectorNotifierItf.h"

namespace usb {

class UsbManagerImpl;

/** Passes what the detector finds on to the manager's notifiers. Nothing happens when the manager is gone. */
class UsbManagerDetectorNotifier : public UsbDetectorNotifierItf {
  public:
    /** Aborts the process when @p manager is null. */
    explicit UsbManagerDetectorNotifier(const android::wp<UsbManagerImpl>& manager);

    int onAttach(const android::sp<UsbDeviceItf>& device) override;
    int onDetach(const android::sp<UsbDeviceItf>& device) override;
    /** An event other than those of UsbDetectorNotifierItf is passed on too, with a warning. */
    int onNotify(int event, int arg) override;

  protected:
    ~UsbManagerDetectorNotifier() override = default;

  private:
    const android::wp<UsbManagerImpl> mManager;
};

}  // namespace usb
