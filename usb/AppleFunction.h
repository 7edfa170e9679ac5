// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * What the unit is toward an Apple device.
 */

#include <cstdint>

namespace usb {

class UsbConfiguration;

/**
 * The function that the unit offers to an Apple device: which one was asked for, which one is set up, and
 * whether such a device is there, in whose face nothing is changed.
 *
 * For its owner, under the owner's lock.
 */
class AppleFunction {
  public:
    /** The values are part of the client interface. */
    enum Function : int32_t {
        kNetworkGadget = 0,    ///< network interface "apple_usb0"
        kAccessoryGadget = 1,  ///< external accessory protocol
        kHostModeOn = 2,       ///< Apple function of the host's side on
        kHostModeOff = 3,      ///< Apple function of the host's side off
        kNone = 4,             ///< none was set up yet
    };

    /** What an Apple device is asked to become when the roles are switched. */
    enum RoleSwitchType : uint32_t {
        kRoleSwitchNone = 0,
        kRoleSwitchCarplay = 1,
        kRoleSwitchPlain = 2,
    };

    /** @param configuration holds the default modes; must outlive this */
    explicit AppleFunction(UsbConfiguration& configuration) : mConfiguration(configuration) {}

    /** Takes note of the function that is wanted, any value; apply() sets it up. */
    void request(int32_t function) { mRequestedAppleFunction = function; }

    /** Whether the function asked for last is not the one that is set up. */
    bool isPending() const { return mCurrentAppleFunction != mRequestedAppleFunction; }

    /** Sets the requested function up; waits for the shell. @return 0; -1 when there is none of that value */
    int apply();

    bool isDevicePresent() const { return mAppleDevicePresent; }
    void setDevicePresent(bool present) { mAppleDevicePresent = present; }

    /** What the function that was set up last makes of a role switch, see RoleSwitchType. */
    uint32_t roleSwitchType() const { return mRoleSwitchType; }

  private:
    int doConfigAppleFunction();

    UsbConfiguration& mConfiguration;
    int32_t mRequestedAppleFunction = kNone;
    int32_t mCurrentAppleFunction = kNone;
    bool mAppleDevicePresent = false;
    uint32_t mRoleSwitchType = kRoleSwitchNone;
};

/** Tells the unit's device controller that it is a device from now on, once a phone has agreed to be host. */
void becomeAppleDevice();

}  // namespace usb
