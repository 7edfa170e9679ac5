// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>
#include <utils/Timers.h>

#include <cstddef>
#include <cstdint>

#include "usb/UsbDetectorHandlerItf.h"
#include "usb/UsbDetectorNotifierItf.h"
#include "usb/UsbDeviceItf.h"

namespace usb {

class UsbDetectorImpl;

/**
 * Watches the USB host side: lists the devices that are attached, hubs other than root hubs included, reports
 * each that comes or goes, and asks devices what the rest of the system wants to know of them.
 *
 * A hot-plug event only schedules a scan; the difference between what libusb lists then and what was listed
 * before is reported. A scan waits until no event has come for the debounce time, so that a burst of events
 * makes one; phones of Apple are taken up at once.
 *
 * Devices that are neither hubs nor of class 0 (class per interface) or 31 are not listed.
 *
 * ## Life
 *
 * Stopped, start(), running, stop(), stopped with an empty list, and so on. Identifiers go on growing over
 * starts. The process ends by an assertion when libusb cannot be had or cannot report hot-plug events.
 */
class UsbDetector : public virtual android::RefBase {
  public:
    /** How long events must have been quiet before a scan, in nanoseconds. */
    static constexpr nsecs_t kDebounce = 1000000000;

    /** Values of the argument @c type of appleRoleSwitch(). */
    enum RoleSwitch : uint32_t {
        kRoleSwitchCarplay = 1,
        kRoleSwitchPlain = 2,
    };

    /** What stop() waits at most, in nanoseconds, for a handler that does not return. */
    static constexpr nsecs_t kStopLimit = 10000000000;

    /** Starts nothing. @param debounce  see kDebounce @param stopLimit  see kStopLimit; seams for tests */
    explicit UsbDetector(nsecs_t debounce = kDebounce, nsecs_t stopLimit = kStopLimit);

    /** Sets who hears of every hot-plug event; may be null. Before start only. */
    void setHandler(const android::sp<UsbDetectorHandlerItf>& handler);

    /** Sets who hears of hot-plug events of devices of class 0 or 31; may be null. Before start only. */
    void setClassPerInterfaceHandler(const android::sp<UsbDetectorHandlerItf>& handler);

    /** Sets who hears of what scans find; may be null. Before start only. */
    void setNotifier(const android::sp<UsbDetectorNotifierItf>& notifier);

    /**
     * Starts the threads; devices that are present already are reported as soon as the first scan finds them.
     * Any thread. Does nothing on a running detector.
     */
    void start();

    /**
     * Ends the threads and forgets all devices, without reporting them as gone. Any thread; may be called
     * from inside a notification.
     *
     * Takes a second at most, the longest wait for an event; longer while a handler or a transfer to a device
     * is under way. A handler that does not return is not waited for beyond kStopLimit, a notification not
     * beyond MessageQueue::kStopLimit, and neither when it calls itself: its thread ends when it returns.
     */
    void stop();

    /** Number of listed devices. Any thread. */
    size_t count();

    /**
     * The listed device at @p index, 0 to count() - 1, in an order without meaning. Any thread.
     *
     * @return null, with an error line, when there is none
     */
    android::sp<UsbDeviceItf> query(size_t index);

    /** Number of the bus that the device is on; -1, with an error line, when it is not listed. Any thread. */
    int getBusNumber(uint32_t deviceId);

    /**
     * Tells a phone of Apple to become the host. Any thread; takes up to two seconds.
     *
     * @param type  a RoleSwitch; for kRoleSwitchCarplay the phone is asked first whether it supports CarPlay
     * @return 0; libusb's error code when the phone did not take the request; -1 when the device is not
     * listed, does not support CarPlay, or @p type is something else. A line says why.
     */
    int appleRoleSwitch(uint32_t deviceId, uint32_t type);

    /** Asks a phone of Apple whether it supports CarPlay. Any thread; takes up to one second. */
    bool isAppleCarplaySupport(uint32_t deviceId);

    /** Asks an Android phone whether it has accessory mode. Any thread; takes up to 100 milliseconds. */
    bool checkAoaModeSupport(uint32_t deviceId);

  protected:
    /** Stops a detector that still runs. */
    ~UsbDetector() override;

  private:
    android::sp<UsbDetectorImpl> mDetector;
};

}  // namespace usb
