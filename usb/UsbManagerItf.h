// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include <cstddef>
#include <cstdint>

#include "usb/UsbDeviceItf.h"
#include "usb/UsbHostNotifierItf.h"
#include "usb/UsbManagerNotifierItf.h"

namespace usb {

/**
 * The USB manager as its users see it. All operations: any thread.
 *
 * Operations that write attributes of the kernel run shell commands and wait for them; whether a write
 * succeeded is not looked at, and a text reaches the shell unquoted (docs/usb-configuration.md). Operations
 * that ask a device wait for its answer, a second or two at most.
 */
class UsbManagerItf : public virtual android::RefBase {
  public:
    /**
     * Loads the drivers of the host controllers and starts to watch the USB side; devices that are present
     * are reported soon after. A second start in a row only logs.
     * @return 0 always
     */
    virtual int startup() = 0;

    /**
     * Stops watching and forgets the devices; the drivers stay loaded. A second stop in a row only logs.
     * @return 0 always
     */
    virtual int shutdown() = 0;

    /** Sets the one notifier that hears of events. Before start only. @return 0 always */
    virtual int setNotifier(const android::sp<UsbManagerNotifierItf>& notifier) = 0;

    /** Sets the one notifier that hears of devices. Before start only. @return 0 always */
    virtual int setHostNotifier(const android::sp<UsbHostNotifierItf>& notifier) = 0;

    /** Asks the device with this identifier whether it has accessory mode. @return false also on failure */
    virtual bool checkAoaModeSupport(uint32_t deviceId) = 0;

    /**
     * Sets what the unit tells phones of itself in the accessory protocol.
     * @param file  path of a property file; aborts when null
     * @return 0; -1 when the file cannot be opened
     */
    virtual int configAoaDescription(const char* file) = 0;

    /** Sets the serial number of the phone that is not switched into accessory mode. @return 0 */
    virtual int aoaModeSwitchFilter(const char* serial) = 0;

    /** Whether a write of the accessory protocol that times out resets the device. @return 0 */
    virtual int configAoaTimeoutAction(bool reset) = 0;

    /** Which scheme the kernel enumerates devices by: the old one first, or both. @return 0 */
    virtual int configUsbEnumerateScheme(bool oldFirst) = 0;

    /**
     * Turns default modes on or off; does nothing outside normal operation.
     * @param mask  1 Apple default mode, 2 Android default mode, 4 Android interface check; further bits are
     *              ignored
     * @return 0
     */
    virtual int configDefaultMode(int mask, bool on) = 0;

    /**
     * Asks for an Apple function: set up at once, or, when an Apple device is present, once it has gone.
     * @param function  0 network gadget, 1 accessory gadget, 2 host-mode function on, 3 off; any other is
     *                  refused with an error line when its time has come
     * @return 0
     */
    virtual int switchUsbState(int function) = 0;

    /** Names the gadget's node of the accessory protocol. @return 0; -1 when @p name is null */
    virtual int configAppleIapNodeName(const char* name) = 0;

    /** Names the gadget's node of external accessories. @return 0; -1 when @p name is null */
    virtual int configAppleEanNodeName(const char* name) = 0;

    /** Whether the kernel switches the port's role by itself. @return 1, in both directions */
    virtual int configKernelAutoRoleSwitch(bool on) = 0;

    /**
     * Tells a phone of Apple to become the host, in the way of the Apple function that was set up last.
     * @return 0; negative when the phone did not take it, is not listed, or no such function was set up
     */
    virtual int appleDeviceRoleSwitch(int deviceId) = 0;

    /** Asks a phone of Apple whether it supports CarPlay. @return false also on failure */
    virtual bool isAppleCarplaySupport(uint32_t deviceId) = 0;

    /** Names the external accessory protocol. @return 0; -1 when @p name is null */
    virtual int configAppleEanStringName(const char* name) = 0;

    /** Turns the power of a port on or off. @param port  0 to 2; any other only logs. @return 0 */
    virtual int setUsbPortPower(int port, bool on) = 0;

    /** Takes the power of a port away for a second. @param port  0 to 2; any other only logs. @return 0 */
    virtual int resetUsbPort(int port) = 0;

    /** Number of attached devices, hubs other than root hubs included. */
    virtual int getUsbDeviceCount() = 0;

    /**
     * One attached device.
     * @param index  0 to getUsbDeviceCount() - 1, in an order without meaning
     * @return null, with an error line, when there is none
     */
    virtual android::sp<UsbDeviceItf> queryUsbDevice(int index) = 0;

    /** Whether a port is in the role of a host. @param port  0 or 1; any other logs an error: false */
    virtual bool usbDeviceIsActived(int port) = 0;

    /** Posts a message to the certification test mode. @return 0; 1 in normal operation */
    virtual int postTestMessage(int what) = 0;

    /**
     * Switches the charging mode of a port and takes the port's power away meanwhile.
     * @param mode  1 or 2 for the two further modes, anything else for the first
     * @return 0; 1 when the mode could not be stored, it is switched all the same
     */
    virtual int switchPortChargingMode(int port, int mode) = 0;

    /** The stored charging mode of a port, 0 to 2. @return 3 when there is none or it cannot be read */
    virtual int getPortChargingMode(int port) = 0;

    /** Sets how deep hubs may nest in the test mode. @return 0; 1 in normal operation */
    virtual int setMaxHubTier(int tier) = 0;

    /** Counts an interface class as unsupported in the test mode. @return 0; 1 in normal operation */
    virtual int addUnsupportedClass(int interfaceClass) = 0;

    /** Takes addUnsupportedClass() back. @return 0; 1 in normal operation */
    virtual int removeUnsupportedClass(int interfaceClass) = 0;

    /**
     * Stores the certification mode that the daemon's next start begins in.
     * @param mode  84 or 77 for the two test modes, anything else for normal operation
     * @return 0; 1 when it could not be stored
     */
    virtual int setCertificationMode(int mode) = 0;

    /** The certification mode that the daemon runs in: 77, 79 (normal operation) or 84. */
    virtual int getCertificationMode() = 0;

  protected:
    ~UsbManagerItf() override = default;
};

}  // namespace usb
