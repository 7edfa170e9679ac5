// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include "device/DeviceItf.h"

namespace device {

/**
 * Hears of the devices of one subsystem.
 *
 * Called on the uevent thread with the device observer's lock held: an implementation must not add to or
 * remove from that observer, and hands longer work to a queue of its own.
 */
class DeviceObserverNotifierItf : public virtual android::RefBase {
  public:
    /** @p device appeared (uevent action "add"). */
    virtual void onAdd(const android::sp<DeviceItf>& device) = 0;

    /** @p device went away. The record is built from the "remove" uevent, not the one delivered by onAdd().
     */
    virtual void onRemove(const android::sp<DeviceItf>& device) = 0;

  protected:
    ~DeviceObserverNotifierItf() override = default;
};

}  // namespace device
