// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include <cstdint>

namespace usb {

/**
 * Hears the USB manager's events: the one interface between the manager's core, the fan-out to clients and
 * the clients themselves.
 *
 * In the daemon it runs on the thread that found the event, in a client on one of its binder threads. The
 * daemon waits for a client's answer: return soon.
 */
class UsbManagerNotifierItf : public virtual android::RefBase {
  public:
    /**
     * Something happened. The result is passed back to the daemon, which does nothing with it.
     *
     * @param event  a UsbDetectorNotifierItf::Event, or a UsbTestEvent while the unit is in certification
     * @param value  0 for the former; what the latter says of itself
     */
    virtual int32_t onEvent(int32_t event, int32_t value) = 0;

  protected:
    ~UsbManagerNotifierItf() override = default;
};

}  // namespace usb
