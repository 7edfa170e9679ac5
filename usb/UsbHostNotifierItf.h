// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include <cstdint>

#include "usb/UsbDeviceItf.h"

namespace usb {

/**
 * Hears of the USB devices that come and go, hubs included: the one interface between the manager's core, the
 * fan-out to clients and the clients themselves.
 *
 * In the daemon the operations run on the detector's queue thread, in a client on one of its binder threads.
 * The daemon waits for a client's answer: return soon.
 */
class UsbHostNotifierItf : public virtual android::RefBase {
  public:
    /** @p device was attached. The result is passed back to the daemon, which does nothing with it. */
    virtual int32_t onUsbDeviceAttached(const android::sp<UsbDeviceItf>& device) = 0;

    /** @p device was detached; its identifier tells which one. */
    virtual int32_t onUsbDeviceDetached(const android::sp<UsbDeviceItf>& device) = 0;

    /** A host event. The USB manager raises none at present. */
    virtual int32_t onEvent(int32_t event, int32_t value) = 0;

  protected:
    ~UsbHostNotifierItf() override = default;
};

}  // namespace usb
