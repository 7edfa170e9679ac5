// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/Looper.h>

namespace usb {

class UsbManagerImpl;

/** The handler of "UsbManagerQueue", to which nothing is posted. */
class UsbManagerMessageHandler : public android::MessageHandler {
  public:
    /** Aborts the process when @p manager is null. */
    explicit UsbManagerMessageHandler(const android::wp<UsbManagerImpl>& manager);

    /** Does nothing. Owner's queue thread. */
    void handleMessage(const android::Message& message) override;

  protected:
    ~UsbManagerMessageHandler() override = default;

  private:
    const android::wp<UsbManagerImpl> mManager;
};

}  // namespace usb
