// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IInterface.h>

#include "usb/IUsbHostNotifier.h"

namespace usb {

/**
 * The service's proxy of a client's host notifier. Each operation is one synchronous call to the client, from
 * any thread; the result is 0 when the client is dead.
 */
class BpUsbHostNotifier : public android::BpInterface<IUsbHostNotifier> {
  public:
    explicit BpUsbHostNotifier(const android::sp<android::IBinder>& client)
        : android::BpInterface<IUsbHostNotifier>(client) {}

    int32_t onEvent(int32_t event, int32_t value) override;
    int32_t onUsbDeviceAttached(const android::sp<UsbDeviceItf>& device) override;
    int32_t onUsbDeviceDetached(const android::sp<UsbDeviceItf>& device) override;

  private:
    int32_t sendDevice(uint32_t code, const android::sp<UsbDeviceItf>& device);
};

}  // namespace usb
