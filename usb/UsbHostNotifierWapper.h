// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/Assert.h"
#include "common/NotifierWapper.h"
#include "usb/IUsbHostNotifier.h"

namespace usb {

/**
 * A registered client as a local host notifier: forwards every notification to the client's binder.
 *
 * The spelling of the name is part of the interface.
 */
class UsbHostNotifierWapper : public NotifierWapper<UsbHostNotifierItf, IUsbHostNotifier> {
  public:
    /** Aborts the process when @p notifier, the client's binder, is null. */
    explicit UsbHostNotifierWapper(const android::sp<android::IBinder>& notifier) : NotifierWapper(notifier) {
        SERVICE_ASSERT(notifier != nullptr, "notifier.get()", "UsbHostNotifierWapper");
    }

    int32_t onUsbDeviceAttached(const android::sp<UsbDeviceItf>& device) override {
        return mNotifier->onUsbDeviceAttached(device);
    }

    int32_t onUsbDeviceDetached(const android::sp<UsbDeviceItf>& device) override {
        return mNotifier->onUsbDeviceDetached(device);
    }

  protected:
    ~UsbHostNotifierWapper() override = default;
};

}  // namespace usb
