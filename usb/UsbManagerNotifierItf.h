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
     * What happened. The numbers are part of the client interface. In normal operation the first and the last
     * come, with the value 0. In certification all come, with the seconds until the next one as the value: 3,
     * or 300 for the roles.
     */
    enum UsbEvent : int32_t {
        kHubTooDeep = 1,         ///< a hub lies deeper than the unit serves
        kClassUnsupported = 2,   ///< a device is of a class that the unit does not serve at all
        kPowerExceeded = 3,      ///< a device asks for more power than its port gives
        kDeviceUnsupported = 4,  ///< a device, an interface or a speed that the unit does not serve
        kRoleDevice = 5,         ///< the logo test switched a port's role to 0
        kRoleHost = 6,           ///< the logo test switched a port's role to 1
        kPortDisconnected = 8,   ///< a port that is watched in the test mode "forced enable" lost its device
        kTooManyDevices = 9,     ///< more devices at once than the unit serves
    };

    /**
     * Something happened. The result is passed back to the daemon, which does nothing with it.
     *
     * @param event  a UsbEvent; a later daemon may know more of them
     * @param value  see UsbEvent
     */
    virtual int32_t onEvent(int32_t event, int32_t value) = 0;

  protected:
    ~UsbManagerNotifierItf() override = default;
};

}  // namespace usb
