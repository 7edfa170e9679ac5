// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>

#include "usb/IUsbManagerNotifier.h"

namespace usb {

/**
 * A registered client as a local manager notifier: forwards every notification to the client's binder.
 *
 * The spelling of the name is part of the interface.
 */
class UsbManagerNotifierWapper : public UsbManagerNotifierItf {
  public:
    /** Aborts the process when @p notifier, the client's binder, is null. */
    explicit UsbManagerNotifierWapper(const android::sp<android::IBinder>& notifier);

    int32_t onEvent(int32_t event, int32_t value) override;

  protected:
    ~UsbManagerNotifierWapper() override = default;

  private:
    const android::sp<IUsbManagerNotifier> mNotifier;
};

}  // namespace usb
