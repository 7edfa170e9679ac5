// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "usb/UsbDetectorHandlerItf.h"

namespace usb {

class UsbManagerImpl;

/** Has the default modes written anew as a device comes. Nothing happens when the manager is gone. */
class UsbManagerClassPerInterfaceHandler : public UsbDetectorHandlerItf {
  public:
    /** Aborts the process when @p manager is null. */
    explicit UsbManagerClassPerInterfaceHandler(const android::wp<UsbManagerImpl>& manager);

    /** Aborts the process when either pointer is null. @return 0 */
    int onAttach(void* ctx, void* dev) override;
    /** Aborts the process when either pointer is null. @return 0 */
    int onDetach(void* ctx, void* dev) override;

  protected:
    ~UsbManagerClassPerInterfaceHandler() override = default;

  private:
    const android::wp<UsbManagerImpl> mManager;
};

}  // namespace usb
