// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include <cstdint>

namespace usb {

/**
 * Events of the USB manager. The values are part of the client interface.
 *
 * Hub nesting and device count come from the running system, the others from the certification test mode
 * (docs/certification.md).
 */
enum UsbEvent : int32_t {
    kUsbEventHubTooDeep = 1,      ///< a hub is nested deeper than the unit supports
    kUsbEventTooManyDevices = 9,  ///< more devices are connected than the unit supports
};

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
     * @param event  a UsbEvent or an event of the certification test mode
     * @param value  what the event says of itself; 0 for those of UsbEvent in normal operation
     */
    virtual int32_t onEvent(int32_t event, int32_t value) = 0;

  protected:
    ~UsbManagerNotifierItf() override = default;
};

}  // namespace usb
