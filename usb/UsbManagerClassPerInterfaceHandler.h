// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "usb/UsbDetectorHandlerItf.h"

namespace usb {

class UsbManagerImpl;

/**
 * Writes the default modes again whenever a device of class 0 or 31 is plugged: the kernel may have reset
 * them as the device came.
 */
class UsbManagerClassPerInterfaceHandler : public UsbDetectorHandlerItf {
  public:
    /** Does not keep @p manager, which keeps the detector. Aborts the process when it is null. */
    explicit UsbManagerClassPerInterfaceHandler(const android::wp<UsbManagerImpl>& manager);

    /** The detector's event thread; waits for the shell. Aborts the process on null. @return 0 */
    int onAttach(void* context, void* device) override;

    /** Does nothing. Aborts the process on null. @return 0 */
    int onDetach(void* context, void* device) override;

  protected:
    ~UsbManagerClassPerInterfaceHandler() override = default;

  private:
    const android::wp<UsbManagerImpl> mManager;
};

}  // namespace usb
