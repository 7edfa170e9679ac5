// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include "usb/CertificationMode.h"
#include "usb/UsbDetector.h"
#include "usb/UsbTestNotifierItf.h"
#include "usb/UsbTestWait.h"

namespace usb {

class UsbTestImpl;

/**
 * The certification mode of the USB host side: looks at what is attached, reports what the unit cannot serve,
 * and puts the ports into test modes on request. See docs/certification.md.
 *
 * What it is for stands in the unit's vendor data and is read once, at construction. In normal operation
 * ("O") nothing is watched and no message taken; the charging mode of the ports and the mode for the next
 * start can be set all the same.
 *
 * ## Life
 *
 * Constructed, start(), running, stop(), and so on. Destroyed only when no other thread uses it and the
 * detector is stopped.
 *
 * Long waits (the logo test's loop, the forced-enable watch, attributes that are not there yet) end at once
 * with endWaits() and stop(). The detector's stop waits for the logo test's loop: call endWaits() before it.
 */
class UsbTest : public android::RefBase {
  public:
    /** Values of @c mode of switchPortChargingMode() and results of getPortChargingMode(). */
    enum ChargingMode : int {
        kChargingC = 0,       //!< letter "C"
        kChargingD = 1,       //!< letter "D"
        kChargingS = 2,       //!< letter "S"
        kChargingUnknown = 3  //!< never set, or unreadable
    };

    /**
     * Reads the mode; takes about five seconds when the vendor data cannot be read.
     *
     * @param detector  gets a handler unless the mode is normal operation; not null then, and not started yet
     * @param wait      makes the waits; null for one that waits as long as it is told
     */
    explicit UsbTest(const android::sp<UsbDetector>& detector,
                     const android::sp<UsbTestWait>& wait = nullptr);

    /** Sets who hears of findings; null for nobody. Any thread. */
    void setNotifier(const android::sp<UsbTestNotifierItf>& notifier);

    /** Starts the queue. One thread at a time, the same that calls stop(). Before the detector's start. */
    void start();

    /**
     * Ends all waits and the queue. A handler that does not return otherwise is not waited for beyond
     * MessageQueue::kStopLimit. One thread at a time.
     */
    void stop();

    /** Ends all waits at hand, those of normal operation too; new ones of the test end at once until the next
     *  start(). Any thread. */
    void endWaits();

    /**
     * Has the ports put into a test mode; a pending message of the same code gives way. Any thread.
     *
     * @param what  a UsbTestMessage; others are logged when their turn comes
     * @return 1 in normal operation, else 0, also when the message is dropped, with a warning line, because
     *         nothing is started
     */
    int postTestMessage(int what);

    /**
     * Switches a port's battery charging, with its power off meanwhile, and keeps the mode for later starts.
     * Any thread; waits for the charging driver, without limit but the end of endWaits() or stop(). The
     * port's power comes back in any case.
     *
     * @param port  0 to 2
     * @param mode  a ChargingMode; others count as kChargingC in what is kept
     * @return 0, or 1 when the mode could not be kept or there is no such port, for which nothing is done
     */
    int switchPortChargingMode(int port, int mode);

    /** The ChargingMode kept for @p port; kChargingUnknown for other ports than 0 to 2. Any thread. */
    int getPortChargingMode(int port);

    /** As UsbTID::setMaxHubTier(). Any thread. @return 0; 1 in normal operation */
    int setMaxHubTier(int tier);

    /** As UsbTID::addUnsupportedClass(). Any thread. @return 0; 1 in normal operation */
    int addUnsupportedClass(int interfaceClass);

    /** As UsbTID::removeUnsupportedClass(). Any thread. @return 0; 1 in normal operation */
    int removeUnsupportedClass(int interfaceClass);

    /**
     * Keeps the mode for the next start of the process; the present one stays. Any thread.
     *
     * @param mode  a CertificationMode; any other counts as kModeNormal
     * @return 0, or 1 when it could not be kept
     */
    int setCertificationMode(int mode);

    /** The mode of this process: kModeNormal, kModeLogo or kModeTestDevices. Any thread. */
    int getCertificationMode();

  protected:
    ~UsbTest() override;

  private:
    void readCertificationMode();
    void setChargingSwitch(int port, int mode);

    int mMode = kModeUnread;
    // "test" in the texts of assertions.
    android::sp<UsbTestImpl> mTest;
};

}  // namespace usb
