// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include <cstdint>

#include "device/DeviceItf.h"

namespace device {

/**
 * Hears what the device manager reports: the one interface between the manager's core, the fan-out to
 * clients and the clients themselves.
 *
 * In the daemon the operations run on the device manager's queue thread, in a client on one of its binder
 * threads. The daemon waits for a client's answer: return soon.
 */
class DeviceManagerNotifierItf : public virtual android::RefBase {
  public:
    /** @p device appeared. The result is passed back to the daemon, which does nothing with it. */
    virtual int32_t onDeviceAdded(const android::sp<DeviceItf>& device) = 0;

    /** @p device went away; its path identifies it. */
    virtual int32_t onDeviceRemoved(const android::sp<DeviceItf>& device) = 0;

    /** A manager event. The device manager raises none at present. */
    virtual int32_t onEvent(int32_t event, int32_t value) = 0;

  protected:
    ~DeviceManagerNotifierItf() override = default;
};

}  // namespace device
