// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <libusb-1.0/libusb.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>
#include <utils/SortedVector.h>

#include "usb/PowerTable.h"
#include "usb/UsbTIDNotifierItf.h"
#include "usb/UsbTestWait.h"

namespace usb {

/**
 * The test-device checker: looks at every device that is attached while the unit is set up for certification,
 * reports the first thing about it that the unit cannot serve, and starts the logo test when its test device
 * comes. docs/certification.md has the limits and their reasons.
 *
 * Its construction puts the host stack into the test environment, its end takes it out again.
 */
class UsbTID : public android::RefBase {
  public:
    /** Hubs between the unit and the farthest device that USB allows; the preset of the highest tier. */
    static constexpr int kDefaultMaxHubTier = 5;

    /**
     * Devices at once, hubs included and root hubs not: five hubs and a device on each of the three ports.
     * What the buses allow at most must not be reported as too much.
     */
    static constexpr size_t kMaxDevices = 18;

    /** The speeds of the unit's controllers: low, full and high. */
    static constexpr int kMinSpeed = LIBUSB_SPEED_LOW;
    static constexpr int kMaxSpeed = LIBUSB_SPEED_HIGH;

    /**
     * @param notifier  takes the findings
     * @param mode      kModeLogo or kModeTestDevices
     * @param wait      ends the logo test's loop
     */
    UsbTID(const android::sp<UsbTIDNotifierItf>& notifier, int mode, const android::sp<UsbTestWait>& wait);

    /**
     * Looks at a device that came or went; sends at most one finding, but for the logo test, which goes on
     * until it is stopped.
     *
     * The detector's event thread, outside of libusb's event handling. Takes up to a second when the hub
     * above the device must be asked, and hours for the logo test.
     *
     * @param action   "attach" or "detach"
     * @param context  the libusb context of @p device
     * @return 0; -1 when the device's descriptor could not be read, a finding could not be delivered or the
     *         action is another one
     */
    int doAction(const char* action, libusb_context* context, libusb_device* device);

    /**
     * Sets how many hubs and root hubs may lie above a hub, here and in the host stack. Any thread.
     *
     * @return false when the host stack did not take it; it holds here all the same
     */
    bool setMaxHubTier(int tier);

    /** Reports devices with an interface of @p interfaceClass, 0 to 255, from now on. Any thread. */
    void addUnsupportedClass(int interfaceClass);

    /** Takes addUnsupportedClass() back. Any thread. */
    void removeUnsupportedClass(int interfaceClass);

    /** Forgets what was attached; for a start, before which devices come and go unseen. Any thread. */
    void reset();

  protected:
    ~UsbTID() override;

  private:
    void initTestEnvironment();
    int attach(libusb_context* context, libusb_device* device, const libusb_device_descriptor& descriptor);
    bool isLogoTestDevice(const libusb_device_descriptor& descriptor) const;
    int runLogoTest(libusb_device* device);
    int loopRoleSwitch(libusb_device* device);
    int findingOf(libusb_context* context, libusb_device* device, const libusb_device_descriptor& descriptor);
    bool checkPowerState(libusb_device* device, const libusb_device_descriptor& descriptor);
    bool isNewPowerFinding(libusb_context* context, libusb_device* device);
    bool checkNotSupportDevices(libusb_device* device, const libusb_device_descriptor& descriptor);
    bool checkIsExceedMaxHub(libusb_device* device, const libusb_device_descriptor& descriptor);
    bool isSpeedAllowed(libusb_device* device) const;
    int sendEvent(int event, int arg);

    const android::sp<UsbTIDNotifierItf> mNotifier;
    const int mMode;
    const android::sp<UsbTestWait> mWait;
    /** Keeps the host stack's tier the one set last. Taken before mLock; held while it is written. */
    android::Mutex mTierLock;
    /** Guards what follows. Nothing is called with it held. */
    mutable android::Mutex mLock;
    bool mLogoTestStarted GUARDED_BY(mLock) = false;
    int mMaxHubTier GUARDED_BY(mLock) = kDefaultMaxHubTier;
    android::SortedVector<int> mUnsupportedClasses GUARDED_BY(mLock);
    PowerTable mPowerTable GUARDED_BY(mLock);
};

}  // namespace usb
