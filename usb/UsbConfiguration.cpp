// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UsbManagerImpl"

#include "usb/UsbConfiguration.h"

#include <log/log.h>
#include <utils/String8.h>

#include "common/Property.h"
#include "usb/CertificationMode.h"
#include "usb/UsbAttribute.h"

namespace usb {

using android::Mutex;
using android::String8;

namespace {

/** Of the host stack: how a new device is enumerated. */
constexpr const char* kOldSchemeFirst = "/sys/module/usbcore/parameters/old_scheme_first";
constexpr const char* kUseBothSchemes = "/sys/module/usbcore/parameters/use_both_schemes";

/** Of the accessory protocol. */
constexpr const char* kAoaDescriptionByUser = "/sys/module/usbcore/parameters/android_aoa_description_user";
constexpr const char* kAoaExcludedSerial = "/sys/module/usbcore/parameters/not_run_aoa_serial_number";
constexpr const char* kAoaTimeoutResets = "/sys/module/aoa/parameters/aoa_write_timeout_reset_ctrl";

/** Of the gadget toward Apple devices. */
constexpr const char* kIapName = "/sys/module/g_android/parameters/iap_name";
constexpr const char* kEanName = "/sys/module/g_android/parameters/ean_name";
constexpr const char* kEanStringName = "/sys/module/g_android/parameters/ean_string_name";

constexpr const char* kKernelAutoRoleSwitch = "/sys/module/vx_usb_host/parameters/kernel_auto_role_switch";

/** The default modes, in the order in which they are written. */
constexpr struct {
    int bit;
    const char* file;
} kDefaultModes[] = {
    {UsbConfiguration::kAppleDefaultMode, "/sys/module/usbcore/parameters/apple_dev_default_mode"},
    {UsbConfiguration::kAndroidDefaultMode, "/sys/module/usbcore/parameters/android_default_mode"},
    {UsbConfiguration::kAndroidInterfaceCheck, "/sys/module/usbcore/parameters/android_interface_check"},
};

/** What the unit tells a phone of itself, in the order in which it is written. */
constexpr struct {
    const char* key;
    const char* file;
} kAoaFeatures[] = {
    {"AoaFeature.ManuFacturer", "/sys/module/usbcore/parameters/aoa_manufacturer"},
    {"AoaFeature.Model", "/sys/module/usbcore/parameters/aoa_model"},
    {"AoaFeature.Description", "/sys/module/usbcore/parameters/aoa_description"},
    {"AoaFeature.Version", "/sys/module/usbcore/parameters/aoa_version"},
    {"AoaFeature.Url", "/sys/module/usbcore/parameters/aoa_url"},
    {"AoaFeature.Serial", "/sys/module/usbcore/parameters/aoa_serial"},
    {"AoaFeature.Mode", "/sys/module/usbcore/parameters/aoa_mode"},
    {"AoaFeature.Name", "/sys/module/aoa/parameters/aoa_device_name"},
};

constexpr size_t kFeatureSize = 128;

}  // namespace

int UsbConfiguration::configUsbEnumerateScheme(bool oldFirst) {
    setValue(kOldSchemeFirst, oldFirst ? 1 : 0);
    setValue(kUseBothSchemes, oldFirst ? 0 : 1);
    return 0;
}

int UsbConfiguration::configDefaultMode(int mask, bool on) {
    if (mCertificationMode != kModeNormal) {
        return 0;
    }
    Mutex::Autolock lock(mModeLock);
    for (const auto& mode : kDefaultModes) {
        if ((mask & mode.bit) != 0) {
            setValue(mode.file, on ? 1 : 0);
            mDefaultModeMask = on ? mDefaultModeMask | mode.bit : mDefaultModeMask & ~mode.bit;
        }
    }
    return 0;
}

int UsbConfiguration::applyDefaultMode(int mask) {
    if (mCertificationMode != kModeNormal) {
        return mCertificationMode;
    }
    Mutex::Autolock lock(mModeLock);
    for (const auto& mode : kDefaultModes) {
        if ((mDefaultModeMask & mask & mode.bit) != 0) {
            setValue(mode.file, 1);
        }
    }
    return 0;
}

int UsbConfiguration::configAoaDescription(const char* file) {
    Property* const features = PropertyOpen(file, kPropertyRead);
    if (features == nullptr) {
        ALOGE("%s open aoa feature file fail", "configAoaFeature");
        return -1;
    }
    setValue(kAoaDescriptionByUser, 1);
    char value[kFeatureSize] = {};
    for (const auto& feature : kAoaFeatures) {
        if (PropertyGet(features, feature.key, value, sizeof(value)) == 0) {
            ALOGW("key:%s, value:%s\n", feature.key, value);
            setValueString(feature.file, value);
        } else {
            ALOGW("can't find feature: %s\n", feature.key);
        }
    }
    PropertyClose(features);
    return 0;
}

int UsbConfiguration::aoaModeSwitchFilter(const char* serial) {
    setValueString(kAoaExcludedSerial, serial);
    return 0;
}

int UsbConfiguration::configAoaTimeoutAction(bool reset) {
    setValue(kAoaTimeoutResets, reset ? 1 : 0);
    return 0;
}

int UsbConfiguration::configAppleIapNodeName(const char* name) {
    if (name == nullptr) {
        ALOGE("%s Iap node name is NULL", __func__);
        return -1;
    }
    setValueString(kIapName, String8::format("mfi_iap_%s", name).string());
    return 0;
}

int UsbConfiguration::configAppleEanNodeName(const char* name) {
    if (name == nullptr) {
        ALOGE("%s Ean node name is NULL", __func__);
        return -1;
    }
    setValueString(kEanName, String8::format("mfi_ean_%s", name).string());
    return 0;
}

int UsbConfiguration::configAppleEanStringName(const char* name) {
    if (name == nullptr) {
        ALOGE("%s Ean node name is NULL", __func__);
        return -1;
    }
    setValueString(kEanStringName, name);
    return 0;
}

int UsbConfiguration::configKernelAutoRoleSwitch(bool on) {
    if (on) {
        ALOGI("Enable kernel role switch(Auto Role Switch)");
        setValue(kKernelAutoRoleSwitch, 1);
    } else {
        ALOGI("Disable kernel role switch(Don't auto Role Switch)");
        setValue(kKernelAutoRoleSwitch, 0);
    }
    // Clients compare with it: not the 0 of the other operations.
    return 1;
}

}  // namespace usb
