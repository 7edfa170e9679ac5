// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UsbTID"

#include "usb/UsbTID.h"

#include <log/log.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "usb/AttributeFile.h"
#include "usb/CertificationMode.h"
#include "usb/CertificationPaths.h"
#include "usb/ConfigDescriptors.h"
#include "usb/DeviceStatus.h"
#include "usb/UsbTestNotifierItf.h"

namespace usb {

using android::Mutex;
using android::sp;

namespace {

/** Vendor and products of the certification's test devices. */
constexpr uint16_t kTestVendor = 6666;
constexpr uint16_t kFirstLogoProduct = 257;
constexpr uint16_t kLastLogoProduct = 264;
constexpr uint16_t kRoleSwitchProduct = 260;
constexpr uint16_t kPoweredProduct = 512;
constexpr uint16_t kUnsupportedProducts[] = {513, 514};

constexpr uint8_t kUnservedDeviceClass = 31;
constexpr int kMaxInterfaceClass = 255;

/** In milliamperes. The first is one unit load, the second what a port with a supply of its own gives. */
constexpr int kUnitLoad = 100;
constexpr int kFullPortLoad = 500;
constexpr int kMilliamperesPerUnit = 2;

constexpr int kFindingArg = 3;
constexpr int kNoFinding = 0;
constexpr int kReportedBefore = -1;

constexpr int kRoleSeconds = 300;
constexpr nsecs_t kRoleTime = kRoleSeconds * INT64_C(1000000000);
constexpr int kRolePasses = 100000;

/** Numbers of the log lines, fixed for those who search logs. */
enum Line : int {
    kLinePower = 269,
    kLineNotSupported = 352,
    kLineHub = 410,
    kLineEvent = 540,
    kLineAction = 587,
};

void put(const char* function, const char* attribute, const std::string& value) {
    if (!AttributeFile::put(attribute, value)) {
        ALOGE("[%s:%d] can't write [%s] to [%s]\n", function, __LINE__, value.c_str(), attribute);
    }
}

void logConfigurationFailure(const char* function, int line, int error) {
    ALOGE("[%s:%d] Error getting configure descriptor[%s]\n", function, line, libusb_error_name(error));
}

PowerTable::Place placeOf(libusb_device* device) {
    return {libusb_get_bus_number(device), libusb_get_device_address(device)};
}

/** The devices of a context, for as long as this lives; none, with an error line, when they cannot be had. */
class DeviceList {
  public:
    explicit DeviceList(libusb_context* context) {
        const ssize_t count = libusb_get_device_list(context, &mList);
        if (count < 0) {
            ALOGE("[%s:%d] libusb_get_device_list() failed: %s\n", "DeviceList", __LINE__,
                  libusb_error_name(static_cast<int>(count)));
            return;
        }
        mCount = static_cast<size_t>(count);
    }
    ~DeviceList() {
        if (mList != nullptr) {
            libusb_free_device_list(mList, /*unref_devices=*/1);
        }
    }
    DeviceList(const DeviceList&) = delete;
    DeviceList& operator=(const DeviceList&) = delete;

    libusb_device** begin() const { return mList; }
    libusb_device** end() const { return mList + mCount; }

  private:
    libusb_device** mList = nullptr;
    size_t mCount = 0;
};

/** Hubs count as devices, root hubs do not. */
size_t countDevices(libusb_context* context) {
    size_t count = 0;
    for (libusb_device* device : DeviceList(context)) {
        count += libusb_get_parent(device) != nullptr ? 1 : 0;
    }
    return count;
}

int hubTierOf(libusb_device* device) {
    int tier = 0;
    for (libusb_device* parent = libusb_get_parent(device); parent != nullptr;
         parent = libusb_get_parent(parent)) {
        ++tier;
    }
    return tier;
}

/** What the host stack calls the mode. */
const char* environmentOf(int mode) {
    switch (mode) {
        case kModeLogo:
            return "MFI";
        case kModeTestDevices:
            return "TID";
        default:
            return "ORI";
    }
}

}  // namespace

UsbTID::UsbTID(const sp<UsbTIDNotifierItf>& notifier, int mode, const sp<UsbTestWait>& wait)
    : mNotifier(notifier), mMode(mode), mWait(wait) {
    initTestEnvironment();
}

UsbTID::~UsbTID() {
    put("~UsbTID", path::kSpecificTestSet, environmentOf(kModeNormal));
}

// Phones stay what they are, so that the tester's device and not the unit's idea of it is measured, and
// descriptors may take the five seconds that USB allows a control transfer.
void UsbTID::initTestEnvironment() {
    put("initTestEnvironment", path::kSpecificTestSet, environmentOf(mMode));
    put("initTestEnvironment", path::kAndroidDefaultMode, "0");
    put("initTestEnvironment", path::kAoaDescriptionUser, "0");
    put("initTestEnvironment", path::kInitialDescriptorTimeout, "5000");
    if (!setMaxHubTier(kDefaultMaxHubTier)) {
        ALOGE("[%s:%d] set MaxHubTier failed\n", "initTestEnvironment", __LINE__);
    }
}

int UsbTID::doAction(const char* action, libusb_context* context, libusb_device* device) {
    const bool attached = strcmp(action, "attach") == 0;
    if (!attached && strcmp(action, "detach") != 0) {
        ALOGE("[%s:%d] unknown action[%s]\n", "doAction", __LINE__, action);
        return -1;
    }
    libusb_device_descriptor descriptor = {};
    const int read = libusb_get_device_descriptor(device, &descriptor);
    if (read < 0) {
        ALOGE("[%s:%d] Error getting device descriptor[%s]\n", "doAction", kLineAction,
              libusb_error_name(read));
    }
    int result = 0;
    if (attached) {
        result = attach(context, device, descriptor);
    } else {
        Mutex::Autolock lock(mLock);
        mPowerTable.remove(placeOf(device));
    }
    return read < 0 || result != 0 ? -1 : 0;
}

int UsbTID::attach(libusb_context* context, libusb_device* device,
                   const libusb_device_descriptor& descriptor) {
    const bool certifies = mMode == kModeLogo || mMode == kModeTestDevices;
    if (descriptor.bDeviceClass == kUnservedDeviceClass) {
        return sendEvent(kTestClassUnsupported, kFindingArg);
    }
    if (isLogoTestDevice(descriptor)) {
        {
            Mutex::Autolock lock(mLock);
            mLogoTestStarted = true;
        }
        return runLogoTest(device);
    }
    if (certifies) {
        put("doAction", path::kAppleDefaultMode, "1");
    }
    int finding = findingOf(context, device, descriptor);
    if (finding == kNoFinding && certifies && !isSpeedAllowed(device)) {
        finding = kTestDeviceUnsupported;
    }
    return finding > kNoFinding ? sendEvent(finding, kFindingArg) : 0;
}

bool UsbTID::isLogoTestDevice(const libusb_device_descriptor& descriptor) const {
    const uint16_t product = descriptor.idProduct;
    const bool fits =
        (mMode == kModeLogo && product == kRoleSwitchProduct) ||
        (mMode == kModeTestDevices && product >= kFirstLogoProduct && product <= kLastLogoProduct);
    Mutex::Autolock lock(mLock);
    return descriptor.idVendor == kTestVendor && fits && !mLogoTestStarted;
}

int UsbTID::runLogoTest(libusb_device* device) {
    put("runLogoTest", path::kChargingPolling, "0");
    put("runLogoTest", path::kLogoTestStart, "1");
    if (mMode != kModeLogo) {
        return 0;
    }
    put("runLogoTest", path::kGadgetFullSpeed, "i");
    return loopRoleSwitch(device);
}

/** Nothing that is told of a lost event stops the loop: the tester's equipment waits for the roles. */
int UsbTID::loopRoleSwitch(libusb_device* device) {
    char roleSwitch[sizeof(path::kRoleSwitchFormat) + 8];
    snprintf(roleSwitch, sizeof(roleSwitch), path::kRoleSwitchFormat, libusb_get_bus_number(device));
    const UsbTestWait::Span span = mWait->spanWhileStarted();
    int result = 0;
    for (int pass = 0; pass < kRolePasses && !mWait->isOver(span); ++pass) {
        const bool isHost = pass % 2 != 0;
        put("runLogoTest", roleSwitch, isHost ? "1" : "0");
        if (sendEvent(isHost ? kTestRoleHost : kTestRoleDevice, kRoleSeconds) != 0) {
            result = -1;
        }
        mWait->wait(span, kRoleTime);
    }
    return result;
}

/** The checks of every mode: the event of the first that fails, or one of the two constants above. */
int UsbTID::findingOf(libusb_context* context, libusb_device* device,
                      const libusb_device_descriptor& descriptor) {
    if (!checkPowerState(device, descriptor)) {
        return isNewPowerFinding(context, device) ? kTestPowerExceeded : kReportedBefore;
    }
    const bool isUnsupportedProduct =
        descriptor.idProduct == kUnsupportedProducts[0] || descriptor.idProduct == kUnsupportedProducts[1];
    if (descriptor.idVendor == kTestVendor && isUnsupportedProduct) {
        return kTestDeviceUnsupported;
    }
    if (checkNotSupportDevices(device, descriptor)) {
        return kTestDeviceUnsupported;
    }
    if (checkIsExceedMaxHub(device, descriptor)) {
        return kTestHubTooDeep;
    }
    return countDevices(context) > kMaxDevices ? kTestTooManyDevices : kNoFinding;
}

/** Whether the device's port gives what each of its configurations asks for. */
bool UsbTID::checkPowerState(libusb_device* device, const libusb_device_descriptor& descriptor) {
    if (descriptor.idVendor == kTestVendor || descriptor.idProduct == kPoweredProduct) {
        return true;
    }
    int asked = 0;
    anyConfiguration(
        device, descriptor.bNumConfigurations,
        [](int error) { logConfigurationFailure("checkPowerState", kLinePower, error); },
        [&asked](const libusb_config_descriptor& config) {
            asked = std::max(asked, config.MaxPower * kMilliamperesPerUnit);
            return false;
        });
    if (asked <= kUnitLoad) {
        return true;
    }
    return asked <= kFullPortLoad && getDeviceStatus(libusb_get_parent(device)) == kStatusSelfPowered;
}

bool UsbTID::isNewPowerFinding(libusb_context* context, libusb_device* device) {
    const DeviceList attached(context);
    Mutex::Autolock lock(mLock);
    mPowerTable.beginLook();
    for (libusb_device* other : attached) {
        mPowerTable.keep(placeOf(other));
    }
    mPowerTable.endLook();
    return mPowerTable.add(placeOf(device));
}

/** Whether the device has an interface that the unit was told not to serve. */
bool UsbTID::checkNotSupportDevices(libusb_device* device, const libusb_device_descriptor& descriptor) {
    android::SortedVector<int> unsupported;
    {
        Mutex::Autolock lock(mLock);
        unsupported = mUnsupportedClasses;
    }
    return anyConfiguration(
        device, descriptor.bNumConfigurations,
        [](int error) { logConfigurationFailure("checkNotSupportDevices", kLineNotSupported, error); },
        [&unsupported](const libusb_config_descriptor& config) {
            return anyInterfaceClass(config, [&unsupported](uint8_t interfaceClass) {
                return unsupported.indexOf(interfaceClass) >= 0;
            });
        });
}

/** Whether the device is a hub too many in its chain. */
bool UsbTID::checkIsExceedMaxHub(libusb_device* device, const libusb_device_descriptor& descriptor) {
    const bool isHub = anyConfiguration(
        device, descriptor.bNumConfigurations,
        [](int error) { logConfigurationFailure("checkIsExceedMaxHub", kLineHub, error); },
        [](const libusb_config_descriptor& config) {
            return anyInterfaceClass(
                config, [](uint8_t interfaceClass) { return interfaceClass == LIBUSB_CLASS_HUB; });
        });
    const int tier = isHub ? hubTierOf(device) : 0;
    Mutex::Autolock lock(mLock);
    return isHub && tier > mMaxHubTier;
}

bool UsbTID::isSpeedAllowed(libusb_device* device) const {
    const int speed = libusb_get_device_speed(device);
    return speed >= kMinSpeed && speed <= kMaxSpeed;
}

int UsbTID::sendEvent(int event, int arg) {
    const int result = mNotifier->onTidEvent(event, arg);
    if (result != 0) {
        ALOGE("[%s:%d] send event failed!", "sendEvent", kLineEvent);
    }
    return result;
}

bool UsbTID::setMaxHubTier(int tier) {
    Mutex::Autolock order(mTierLock);
    {
        Mutex::Autolock lock(mLock);
        mMaxHubTier = tier;
    }
    // The host stack counts the device itself. The number comes from a client: the highest one has no next.
    return AttributeFile::put(path::kHubLevelSet, std::to_string(int64_t{tier} + 1));
}

void UsbTID::addUnsupportedClass(int interfaceClass) {
    // No interface has a class beyond a byte, and a client must not fill the memory with such.
    if (interfaceClass < 0 || interfaceClass > kMaxInterfaceClass) {
        return;
    }
    Mutex::Autolock lock(mLock);
    mUnsupportedClasses.add(interfaceClass);
}

void UsbTID::removeUnsupportedClass(int interfaceClass) {
    Mutex::Autolock lock(mLock);
    mUnsupportedClasses.remove(interfaceClass);
}

void UsbTID::reset() {
    Mutex::Autolock lock(mLock);
    mPowerTable.clear();
}

}  // namespace usb
