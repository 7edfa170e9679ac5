// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IInterface.h>

#include "usb/IUsbManagerNotifier.h"

namespace usb {

/**
 * The service's proxy of a client's manager notifier. Each event is one synchronous call to the client, from
 * any thread; the result is 0 when the client is dead.
 */
class BpUsbManagerNotifier : public android::BpInterface<IUsbManagerNotifier> {
  public:
    explicit BpUsbManagerNotifier(const android::sp<android::IBinder>& client)
        : android::BpInterface<IUsbManagerNotifier>(client) {}

    int32_t onEvent(int32_t event, int32_t value) override;
};

}  // namespace usb
