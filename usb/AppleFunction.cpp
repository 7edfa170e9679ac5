// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UsbManagerImpl"

#include "usb/AppleFunction.h"

#include <log/log.h>
#include <utils/String8.h>

#include "usb/UsbAttribute.h"
#include "usb/UsbConfiguration.h"

namespace usb {

using android::String8;

namespace {

constexpr const char* kGadgetEnable = "/sys/class/android_usb/android0/enable";
constexpr const char* kGadgetFunctions = "/sys/class/android_usb/android0/functions";
constexpr const char* kAppleRole = "/sys/module/usbcore/parameters/apple_role";
constexpr const char* kHostModeFunction = "/sys/module/usbcore/parameters/platform_host_mode_apple_function";

/** The network gadget's interface. */
constexpr const char* kNetworkUp = "ifconfig apple_usb0 up";
constexpr const char* kOptimisticAddresses = "/proc/sys/net/ipv6/conf/apple_usb0/optimistic_dad";
constexpr const char* kNeighbourRetrans = "/proc/sys/net/ipv6/neigh/apple_usb0/retrans_time";

constexpr const char* kFullSpeed = "/sys/devices/platform/vx4410-udc.%d/full_spd";
constexpr int kDeviceController = 1;

/** Values of kAppleRole. */
enum AppleRole : uint32_t { kRoleNetwork = 0, kRoleAccessory = 1 };

void switchGadget(const char* functions, AppleRole role) {
    setValue(kGadgetEnable, 0);
    setValueString(kGadgetFunctions, functions);
    setValue(kAppleRole, role);
    setValue(kGadgetEnable, 1);
}

}  // namespace

int AppleFunction::apply() {
    return doConfigAppleFunction();
}

int AppleFunction::doConfigAppleFunction() {
    switch (mRequestedAppleFunction) {
        case kNetworkGadget:
            switchGadget("ncm", kRoleNetwork);
            runShell(kNetworkUp);
            setValue(kOptimisticAddresses, 1);
            setValue(kNeighbourRetrans, 5);
            mRoleSwitchType = kRoleSwitchCarplay;
            break;
        case kAccessoryGadget:
            switchGadget("eap", kRoleAccessory);
            mRoleSwitchType = kRoleSwitchPlain;
            break;
        case kHostModeOn:
            mConfiguration.configDefaultMode(UsbConfiguration::kAppleDefaultMode, false);
            setValue(kHostModeFunction, 1);
            break;
        case kHostModeOff:
            mConfiguration.configDefaultMode(UsbConfiguration::kAppleDefaultMode, false);
            setValue(kHostModeFunction, 0);
            break;
        default:
            ALOGE("%s apple usb unknown", __func__);
            return -1;
    }
    mCurrentAppleFunction = mRequestedAppleFunction;
    return 0;
}

void becomeAppleDevice() {
    setValueString(String8::format(kFullSpeed, kDeviceController).string(), "s");
}

}  // namespace usb
