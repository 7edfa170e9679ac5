// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/Assert.h"
#include "common/NotifierWapper.h"
#include "usb/IUsbManagerNotifier.h"

namespace usb {

/**
 * A registered client as a local manager notifier: forwards every notification to the client's binder.
 *
 * The spelling of the name is part of the interface.
 */
class UsbManagerNotifierWapper : public NotifierWapper<UsbManagerNotifierItf, IUsbManagerNotifier> {
  public:
    /** Aborts the process when @p notifier, the client's binder, is null. */
    explicit UsbManagerNotifierWapper(const android::sp<android::IBinder>& notifier)
        : NotifierWapper(notifier) {
        SERVICE_ASSERT(notifier != nullptr, "notifier.get()", "UsbManagerNotifierWapper");
    }

  protected:
    ~UsbManagerNotifierWapper() override = default;
};

}  // namespace usb
