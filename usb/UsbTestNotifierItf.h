// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include "usb/UsbManagerNotifierItf.h"

namespace usb {

/** What the certification mode reports: the manager notifier's events, which they become. */
enum UsbTestEvent : int {
    kTestHubTooDeep = UsbManagerNotifierItf::kHubTooDeep,
    kTestClassUnsupported = UsbManagerNotifierItf::kClassUnsupported,
    kTestPowerExceeded = UsbManagerNotifierItf::kPowerExceeded,
    kTestDeviceUnsupported = UsbManagerNotifierItf::kDeviceUnsupported,
    kTestRoleDevice = UsbManagerNotifierItf::kRoleDevice,
    kTestRoleHost = UsbManagerNotifierItf::kRoleHost,
    kTestPortDisconnected = UsbManagerNotifierItf::kPortDisconnected,
    kTestTooManyDevices = UsbManagerNotifierItf::kTooManyDevices,
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
