// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

namespace usb {

/** What the certification mode reports, as clients get it. */
enum UsbTestEvent : int {
    kTestHubTooDeep = 1,         //!< a hub lies deeper than the highest tier
    kTestClassUnsupported = 2,   //!< a device of a device class that the unit does not serve at all
    kTestPowerExceeded = 3,      //!< a device asks for more power than its port gives
    kTestDeviceUnsupported = 4,  //!< a device, interface or speed that the unit does not serve
    kTestRoleDevice = 5,         //!< the logo test's role switch was written 0
    kTestRoleHost = 6,           //!< the logo test's role switch was written 1
    kTestPortDisconnected = 8,   //!< the forced-enable watch saw a port lose its device
    kTestTooManyDevices = 9,     //!< more devices at once than the unit serves
};

/**
 * Hears the findings of the certification mode.
 */
class UsbTestNotifierItf : virtual public android::RefBase {
  public:
    /**
     * One finding. Called on the detector's event thread or on "UsbTestQueue", with no lock held.
     *
     * @param event  a UsbTestEvent
     * @param arg    3, or 300 for the two role events: seconds until the next one
     * @return negative when it could not be handled, which is logged; 0 otherwise
     */
    virtual int onEvent(int event, int arg) = 0;

  protected:
    ~UsbTestNotifierItf() override = default;
};

}  // namespace usb
