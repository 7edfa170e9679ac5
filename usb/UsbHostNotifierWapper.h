// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>

#include "usb/IUsbHostNotifier.h"

namespace usb {

/**
 * A registered client as a local host notifier: forwards every notification to the client's binder.
 *
 * The spelling of the name is part of the interface.
 */
class UsbHostNotifierWapper : public UsbHostNotifierItf {
  public:
    /** Aborts the process when @p notifier, the client's binder, is null. */
    explicit UsbHostNotifierWapper(const android::sp<android::IBinder>& notifier);

    int32_t onUsbDeviceAttached(const android::sp<UsbDeviceItf>& device) override;
    int32_t onUsbDeviceDetached(const android::sp<UsbDeviceItf>& device) override;
    int32_t onEvent(int32_t event, int32_t value) override;

  protected:
    ~UsbHostNotifierWapper() override = default;

  private:
    const android::sp<IUsbHostNotifier> mNotifier;
};

}  // namespace usb
