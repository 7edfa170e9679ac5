// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "usb/UsbDetectorNotifierItf.h"

namespace usb {

class UsbManagerImpl;

/**
 * Passes what the detector finds on to the manager's two notifiers: devices to the host notifier, events to
 * the manager notifier. No lock is held meanwhile.
 */
class UsbManagerDetectorNotifier : public UsbDetectorNotifierItf {
  public:
    /** Does not keep @p manager, which keeps the detector. Aborts the process when it is null. */
    explicit UsbManagerDetectorNotifier(const android::wp<UsbManagerImpl>& manager);

    /** The detector's queue thread, as the operations below. @return 0 */
    int onAttach(const android::sp<UsbDeviceItf>& device) override;

    /** @return 0 */
    int onDetach(const android::sp<UsbDeviceItf>& device) override;

    /** An unknown event is passed on too, with a warning line. @return 0 */
    int onNotify(int event, int arg) override;

  protected:
    ~UsbManagerDetectorNotifier() override = default;

  private:
    const android::wp<UsbManagerImpl> mManager;
};

}  // namespace usb
