// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>
#include <utils/String16.h>
#include <utils/String8.h>
#include <utils/Vector.h>

#include <cstdint>

#include "usb/UsbDeviceItf.h"
#include "usb/UsbHostNotifierItf.h"
#include "usb/UsbManagerNotifierItf.h"

namespace usb {

/**
 * The USB manager's core as the binder service holds it.
 *
 * All operations: any thread, several at once, unless said otherwise. What they write to the kernel, and what
 * reaches a shell unquoted on the way: docs/usb-configuration.md.
 */
class UsbManagerImplItf : public virtual android::RefBase {
  public:
    /** Loads the host controllers' drivers and starts looking for devices. A second start only logs. @return
     * 0
     */
    virtual int startup() = 0;

    /** Stops looking; all devices are forgotten, none is reported as gone. A second stop only logs. @return 0
     */
    virtual int shutdown() = 0;

    /** Sets the one notifier that hears of events. Before start only. @return 0 */
    virtual int setNotifier(const android::sp<UsbManagerNotifierItf>& notifier) = 0;

    /** Sets the one notifier that hears of devices. Before start only. @return 0 */
    virtual int setHostNotifier(const android::sp<UsbHostNotifierItf>& notifier) = 0;

    /** Asks an Android phone whether it has accessory mode. */
    virtual bool checkAoaModeSupport(uint32_t deviceId) = 0;

    /** Sets what the unit tells phones of itself, from the property file @p file. @return 0; -1 if it cannot
     * be opened. Aborts when @p file is null. */
    virtual int configAoaDescription(const char* file) = 0;

    /** Sets the serial number of the phone that is left out of accessory mode. @return 0 */
    virtual int aoaModeSwitchFilter(const char* serial) = 0;

    /** Whether a timed-out write of the accessory protocol resets the device. @return 0 */
    virtual int configAoaTimeoutAction(bool reset) = 0;

    /** Which way to enumerate a device is tried first. @return 0 */
    virtual int configUsbEnumerateScheme(bool oldFirst) = 0;

    /** Turns default modes on or off, see UsbConfiguration::DefaultMode. @return 0 */
    virtual int configDefaultMode(int mask, bool on) = 0;

    /**
     * Asks for an Apple function, see AppleFunction::Function. With an Apple device present and the manager
     * started, it is set up once that device is gone.
     * @return 0
     */
    virtual int switchUsbState(int function) = 0;

    /** Names the node of the accessory protocol. @return 0; -1 for null */
    virtual int configAppleIapNodeName(const char* name) = 0;

    /** Names the node of external accessories. @return 0; -1 for null */
    virtual int configAppleEanNodeName(const char* name) = 0;

    /** Whether the kernel switches roles by itself. @return 1 */
    virtual int configKernelAutoRoleSwitch(bool on) = 0;

    /** Makes the phone the host and the unit its device, as the Apple function says. @return 0 or more;
     * negative when the phone did not take it */
    virtual int appleDeviceRoleSwitch(int deviceId) = 0;

    /** Asks an Apple phone whether it supports CarPlay. */
    virtual bool isAppleCarplaySupport(uint32_t deviceId) = 0;

    /** Names the external accessory protocol. @return 0; -1 for null */
    virtual int configAppleEanStringName(const char* name) = 0;

    /** Turns the power of port 0 to 2 on or off. @return 0 */
    virtual int setUsbPortPower(int port, bool on) = 0;

    /** Takes the power of port 0 to 2 away for a second. @return 0 */
    virtual int resetUsbPort(int port) = 0;

    /** Number of attached devices, hubs other than root hubs included. */
    virtual int getUsbDeviceCount() = 0;

    /** The device at @p index, 0 to getUsbDeviceCount() - 1; null when there is none. */
    virtual android::sp<UsbDeviceItf> queryUsbDevice(int index) = 0;

    /** Whether port 0 or 1 is in the role of a host. */
    virtual bool usbDeviceIsActived(int port) = 0;

    /** @name The certification test mode, see UsbTest. */
    ///@{
    virtual int postTestMessage(int what) = 0;
    virtual int switchPortChargingMode(int port, int mode) = 0;
    virtual int getPortChargingMode(int port) = 0;
    virtual int setMaxHubTier(int tier) = 0;
    virtual int addUnsupportedClass(int interfaceClass) = 0;
    virtual int removeUnsupportedClass(int interfaceClass) = 0;
    virtual int setCertificationMode(int mode) = 0;
    virtual int getCertificationMode() = 0;
    ///@}

    /** Appends the head of the core's dump to @p result and logs @p args. @return 0 */
    virtual int dump(const android::Vector<android::String16>& args, android::String8& result) = 0;

    /** Writes those default modes of @p mask anew that are on. @return not to be used */
    virtual int applyDefaultMode(int mask) = 0;

  protected:
    ~UsbManagerImplItf() override = default;
};

}  // namespace usb
