// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * The parameters of the kernel's USB host stack and gadget drivers that clients set.
 */

#include <utils/Mutex.h>

#include <cstdint>

namespace usb {

/**
 * Writes the parameters of the USB host stack, of the accessory protocol and of the gadget toward Apple
 * devices; keeps which default modes are on. The paths stand in one table in the source file.
 *
 * Texts reach the shell as they are given, unquoted. No write is checked: a parameter that the kernel does
 * not have shows in the shell's message alone.
 *
 * Any thread; each operation waits for the shell.
 */
class UsbConfiguration {
  public:
    /** The bits of a default-mode mask. The values are part of the client interface. */
    enum DefaultMode : int {
        kAppleDefaultMode = 1,
        kAndroidDefaultMode = 2,
        kAndroidInterfaceCheck = 4,
    };

    /** @param certificationMode the mode that the daemon runs in, a CertificationMode, fixed for its life */
    explicit UsbConfiguration(int certificationMode) : mCertificationMode(certificationMode) {}

    UsbConfiguration(const UsbConfiguration&) = delete;
    UsbConfiguration& operator=(const UsbConfiguration&) = delete;

    /** Which of the two ways to enumerate a device is tried: the old one first, or both. @return 0 */
    int configUsbEnumerateScheme(bool oldFirst);

    /**
     * Turns the default modes of @p mask (see DefaultMode) on or off and remembers them; other bits of @p
     * mask are ignored. Outside normal operation it does nothing.
     * @return 0
     */
    int configDefaultMode(int mask, bool on);

    /**
     * Writes those default modes of @p mask anew that are on; writes none off. The kernel may have reset them
     * as a device came.
     * @return 0; outside normal operation the certification mode, with nothing written
     */
    int applyDefaultMode(int mask);

    /**
     * Sets what the unit tells a phone of itself in the accessory protocol, from a property file.
     *
     * Features that the file lacks, or whose values take 127 characters or more, are left as they are.
     *
     * @param file  path of the property file; aborts when null
     * @return 0; -1 when it cannot be opened
     */
    int configAoaDescription(const char* file);

    /** Sets the serial number of the phone that is not switched into accessory mode. @return 0 */
    int aoaModeSwitchFilter(const char* serial);

    /** Whether a write of the accessory protocol that times out resets the device. @return 0 */
    int configAoaTimeoutAction(bool reset);

    /** Names the gadget's node of the accessory protocol: "mfi_iap_" and @p name. @return 0; -1 for null */
    int configAppleIapNodeName(const char* name);

    /** Names the gadget's node of external accessories: "mfi_ean_" and @p name. @return 0; -1 for null */
    int configAppleEanNodeName(const char* name);

    /** Names the external accessory protocol. @return 0; -1 for null */
    int configAppleEanStringName(const char* name);

    /** Whether the kernel switches the port's role by itself. @return 1, in both directions */
    int configKernelAutoRoleSwitch(bool on);

  private:
    const int mCertificationMode;
    /** Guards mDefaultModeMask and its files; held while they are written. */
    android::Mutex mModeLock;
    /** The default modes that are on, of DefaultMode. */
    int mDefaultModeMask GUARDED_BY(mModeLock) = 0;
};

}  // namespace usb
