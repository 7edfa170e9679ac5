// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>
#include <binder/IInterface.h>

#include <cstdint>

#include "usb/UsbDeviceItf.h"

namespace usb {

/**
 * The service "UsbManager": the unit's USB ports, the devices on them, and what the unit is toward a phone.
 *
 * In a client, the proxy that android::interface_cast<IUsbManager>() makes of the service's binder; every
 * operation is one synchronous call, from any thread. When the call fails (the daemon died, the binder is not
 * of this interface) results are 0 or null; IBinder::isBinderAlive() of asBinder() tells a dead daemon.
 *
 * The texts of the configuration operations reach a shell of the daemon's, unquoted: pass none on that you
 * did not make yourself. Each of them is written as bytes up to its NUL; a null one is left out of the
 * request and is null to the daemon.
 */
class IUsbManager : public android::IInterface {
  public:
    DECLARE_META_INTERFACE(UsbManager)

    /** Name under which the service is registered. */
    static constexpr const char* kServiceName = "UsbManager";

    /** Transaction codes. The values are the wire contract. */
    enum Transaction : uint32_t {
        kAddNotifier = 1,
        kRemoveNotifier = 2,
        kStartup = 3,
        kShutdown = 4,
        kAddHostNotifier = 5,
        kRemoveHostNotifier = 6,
        kConfigUsbEnumerateScheme = 7,
        kConfigDefaultMode = 8,
        kCheckAoaModeSupport = 9,
        kConfigAoaDescription = 10,
        kAoaModeSwitchFilter = 11,
        kConfigAoaTimeoutAction = 12,
        kSwitchUsbState = 13,
        kConfigAppleIapNodeName = 14,
        kConfigAppleEanNodeName = 15,
        kConfigKernelAutoRoleSwitch = 16,
        kAppleDeviceRoleSwitch = 17,
        kIsAppleCarplaySupport = 18,
        kConfigAppleEanStringName = 19,
        kResetUsbPort = 20,
        kSetUsbPortPower = 21,
        kGetUsbDeviceCount = 22,
        kQueryUsbDevice = 23,
        kUsbDeviceIsActived = 24,
        kPostTestMessage = 25,
        kSwitchPortChargingMode = 26,
        kGetPortChargingMode = 27,
        kSetMaxHubTier = 28,
        kAddUnsupportedClass = 29,
        kRemoveUnsupportedClass = 30,
        kSetCertificationMode = 31,
        kGetCertificationMode = 32,
    };

    /** Starts the manager. @return 0; a repeated start is harmless */
    virtual int startup() = 0;

    /** Stops the manager; all devices are forgotten. @return 0; a repeated stop is harmless */
    virtual int shutdown() = 0;

    /**
     * Registers the calling process's manager notifier, which hears of events.
     *
     * One per process: a second one without a removal in between, or a null binder, is a broken contract and
     * ends the daemon.
     *
     * @param notifier binder of a BnUsbManagerNotifier of the caller; kept until it is removed or dies
     * @return 0
     */
    virtual int addNotifier(const android::sp<android::IBinder>& notifier) = 0;

    /**
     * Removes the calling process's manager notifier.
     *
     * Call it only with one registered: otherwise, and with a null binder, it ends the daemon.
     *
     * @param notifier the binder that was registered
     * @return 0
     */
    virtual int removeNotifier(const android::sp<android::IBinder>& notifier) = 0;

    /**
     * Registers the calling process's host notifier, which hears of devices. One per process, besides its
     * manager notifier; the conditions are those of addNotifier().
     *
     * @param notifier binder of a BnUsbHostNotifier of the caller; kept until it dies
     * @return 0
     */
    virtual int addHostNotifier(const android::sp<android::IBinder>& notifier) = 0;

    /**
     * Over the wire the same as removeNotifier(): the daemon removes the caller's manager notifier (and ends
     * when it has none), while the host notifier stays until its process dies. Called on the service object
     * itself, it removes the host notifier.
     */
    virtual int removeHostNotifier(const android::sp<android::IBinder>& notifier) = 0;

    /** Whether new devices are enumerated the old way first. @return 0 */
    virtual int configUsbEnumerateScheme(bool oldFirst) = 0;

    /**
     * Turns default modes on or off; without effect while the unit is in certification.
     * @param mask 1 Apple default mode, 2 Android default mode, 4 Android interface check, or a sum of these
     * @return 0
     */
    virtual int configDefaultMode(int mask, bool on) = 0;

    /** @return 1 when the Android phone @p deviceId has accessory mode, else 0. Takes up to 100 ms. */
    virtual int checkAoaModeSupport(uint32_t deviceId) = 0;

    /**
     * Sets what the unit tells Android phones of itself.
     * @param file path of a property file with the keys of the group "AoaFeature"; null ends the daemon
     * @return 0; -1 when it cannot be opened
     */
    virtual int configAoaDescription(const char* file) = 0;

    /** Sets the serial number of the phone that is left out of accessory mode. @return 0 */
    virtual int aoaModeSwitchFilter(const char* serial) = 0;

    /** Whether a timed-out write of the accessory protocol resets the device. @return 0 */
    virtual int configAoaTimeoutAction(bool reset) = 0;

    /**
     * Asks for what the unit is toward an Apple device: 0 network gadget, 1 accessory gadget, 2 Apple
     * function of the host's side on, 3 the same off. With an Apple device present, the change waits until it
     * is gone.
     * @return 0 also for any other value, which changes nothing
     */
    virtual int switchUsbState(int function) = 0;

    /** Names the gadget's node of the accessory protocol: "mfi_iap_" and @p name. @return 0; -1 for null */
    virtual int configAppleIapNodeName(const char* name) = 0;

    /** Names the gadget's node of external accessories: "mfi_ean_" and @p name. @return 0; -1 for null */
    virtual int configAppleEanNodeName(const char* name) = 0;

    /** Whether the kernel switches roles by itself. @return 1 */
    virtual int configKernelAutoRoleSwitch(bool on) = 0;

    /**
     * Makes the Apple phone @p deviceId the host and the unit its device, as the Apple function set up last
     * (see switchUsbState()) wants it.
     * @return negative when the phone did not take it
     */
    virtual int appleDeviceRoleSwitch(int deviceId) = 0;

    /** @return 1 when the Apple phone @p deviceId supports CarPlay, else 0. Takes up to a second. */
    virtual int isAppleCarplaySupport(uint32_t deviceId) = 0;

    /** Names the external accessory protocol. @return 0; -1 for null */
    virtual int configAppleEanStringName(const char* name) = 0;

    /** Turns the power of port 0 to 2 on or off. @return 0 also for any other port, where nothing is done */
    virtual int setUsbPortPower(int port, bool on) = 0;

    /** Takes the power of port 0 to 2 away for a second; the call takes as long. @return 0 */
    virtual int resetUsbPort(int port) = 0;

    /** Number of attached devices, hubs other than root hubs included. */
    virtual int getUsbDeviceCount() = 0;

    /** The device at @p index, 0 to getUsbDeviceCount() - 1; null when there is none (any more). */
    virtual android::sp<UsbDeviceItf> queryUsbDevice(int index) = 0;

    /** @return 1 when port 0 or 1 is in the role of a host, else 0 */
    virtual int usbDeviceIsActived(int port) = 0;

    /**
     * @name Charging and certification
     * In normal operation, which is that of every unit in use, only the charging modes and the certification
     * mode itself can be asked and set.
     */
    ///@{
    /**
     * Puts the host ports into an electrical test mode; returns before it is there.
     * @param what 1 all test modes off, 2 J state, 3 K state, 4 SE0 and NAK, 5 test packet, 6 forced enable,
     *             7 suspend and resume, 8 single step; 0 only waits for the kernel's attributes
     * @return 0, also for any other number, which is logged; 1 in normal operation
     */
    virtual int postTestMessage(int what) = 0;

    /**
     * Stores the charging mode of a port and switches to it; the port has no power meanwhile. Waits for the
     * charging driver as long as it takes.
     * @param port 0 to 2
     * @param mode 1 or 2 for modes "D" and "S", anything else for "C"
     * @return 0; 1 for any other port, where nothing is done, and when the mode could not be stored, which is
     *         switched to all the same
     */
    virtual int switchPortChargingMode(int port, int mode) = 0;

    /** The stored charging mode of port 0 to 2: 0 "C", 1 "D", 2 "S". @return 3 when there is none */
    virtual int getPortChargingMode(int port) = 0;

    /** Sets how many hubs may stand above a hub before that is reported. @return 0; 1 in normal operation */
    virtual int setMaxHubTier(int tier) = 0;

    /** Has interfaces of a class, 0 to 255, reported as unsupported. @return 0; 1 in normal operation */
    virtual int addUnsupportedClass(int interfaceClass) = 0;

    /** Takes addUnsupportedClass() back. @return 0; 1 in normal operation */
    virtual int removeUnsupportedClass(int interfaceClass) = 0;

    /**
     * Stores the mode that the daemon's next start begins in.
     * @param mode 84 for certification with test devices, 77 for the logo test, anything else for normal
     *             operation
     * @return 0; 1 when it could not be stored
     */
    virtual int setCertificationMode(int mode) = 0;

    /** The mode that the daemon runs in: 79 normal operation, 84 and 77 as in setCertificationMode(). */
    virtual int getCertificationMode() = 0;
    ///@}
};

}  // namespace usb
