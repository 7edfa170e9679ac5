// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UsbManagerImpl"

#include "usb/UsbManagerImpl.h"

#include <log/log.h>

#include <cstdio>
#include <cstring>

#include "usb/UEventPublisher.h"
#include "usb/UsbAttribute.h"
#include "usb/UsbManagerClassPerInterfaceHandler.h"
#include "usb/UsbManagerDetectorNotifier.h"
#include "usb/UsbManagerMessageHandler.h"
#include "usb/UsbManagerTestNotifier.h"
#include "usb/UsbPort.h"
#include "usb/UsbUeventObserverNotifier.h"

namespace usb {

using android::Mutex;
using android::sp;
using android::String16;
using android::String8;
using android::Vector;

namespace {

constexpr int kQueueTimeoutMillis = 100;

/** Subsystem of the uevents that tell of an Apple device. */
constexpr const char* kAppleSubsystem = "apple";

/** Loaded at each start and never removed: where one is loaded already, the shell says so. */
constexpr const char* kLoadDrivers[] = {
    "insmod /usr/local/drivers/ehci-hcd.ko",
    "insmod /usr/local/drivers/ohci-hcd.ko",
    "insmod /usr/local/drivers/vxsdv2.ko",
};

/** The default modes that are on from the start of the daemon, and off after a stop. */
constexpr int kPhoneModes = UsbConfiguration::kAppleDefaultMode | UsbConfiguration::kAndroidDefaultMode;

constexpr size_t kArgumentSize = 1024;

}  // namespace

UsbManagerImpl::UsbManagerImpl(const sp<UeventObserver>& observer)
    : mMessageQueue(
          new MessageQueue(new UsbManagerMessageHandler(this), kQueueTimeoutMillis, "UsbManagerQueue")),
      mDetector(new UsbDetector()),
      mUsbTest(new UsbTest(mDetector)),
      mUeventObserver(observer),
      mUeventNotifier(new UsbUeventObserverNotifier(this)),
      mConfiguration(mUsbTest->getCertificationMode()),
      mApple(mConfiguration) {
    mDetector->setClassPerInterfaceHandler(new UsbManagerClassPerInterfaceHandler(this));
}

void UsbManagerImpl::onFirstRef() {
    // Not in the constructor: a uevent would take the first reference there, and with the last one, at its
    // end, delete an object that is half built.
    mUeventObserver->registerNotifier(mUeventNotifier);
    configDefaultMode(kPhoneModes, true);
    configDefaultMode(UsbConfiguration::kAndroidInterfaceCheck, false);
}

UsbManagerImpl::~UsbManagerImpl() {
    mUeventObserver->unregisterNotifier(mUeventNotifier);
    if (mState == kStarted) {
        // Threads that run on would keep queue and detector alive for ever.
        stop();
    }
}

int UsbManagerImpl::startup() {
    Mutex::Autolock transition(mTransitionLock);
    const int32_t current = state();
    switch (current) {
        case kShutDown:
            start();
            setState(kStarted);
            break;
        case kStarted:
            ALOGW("already startup, no need re-startup");
            break;
        default:
            ALOGE("unknown state[%d], why??", current);
            break;
    }
    return 0;
}

int UsbManagerImpl::shutdown() {
    Mutex::Autolock transition(mTransitionLock);
    const int32_t current = state();
    switch (current) {
        case kShutDown:
            ALOGW("already shutdown, no need re-shutdown");
            break;
        case kStarted:
            stop();
            configDefaultMode(kPhoneModes, false);
            setState(kShutDown);
            break;
        default:
            ALOGE("unknown state[%d], why??", current);
            break;
    }
    return 0;
}

void UsbManagerImpl::start() {
    for (const char* const command : kLoadDrivers) {
        runShell(command);
    }
    mMessageQueue->start();
    mUsbTest->start();
    mDetector->start();
}

void UsbManagerImpl::stop() {
    // The detector's event thread may be in one of the test mode's waits.
    mUsbTest->endWaits();
    mDetector->stop();
    mUsbTest->stop();
    mMessageQueue->stop();
}

int UsbManagerImpl::setNotifier(const sp<UsbManagerNotifierItf>& notifier) {
    mNotifier = notifier;
    mUsbTest->setNotifier(new UsbManagerTestNotifier(this));
    return 0;
}

int UsbManagerImpl::setHostNotifier(const sp<UsbHostNotifierItf>& notifier) {
    mHostNotifier = notifier;
    mDetector->setNotifier(new UsbManagerDetectorNotifier(this));
    return 0;
}

bool UsbManagerImpl::checkAoaModeSupport(uint32_t deviceId) {
    return mDetector->checkAoaModeSupport(deviceId);
}

int UsbManagerImpl::configAoaDescription(const char* file) {
    return mConfiguration.configAoaDescription(file);
}

int UsbManagerImpl::aoaModeSwitchFilter(const char* serial) {
    return mConfiguration.aoaModeSwitchFilter(serial);
}

int UsbManagerImpl::configAoaTimeoutAction(bool reset) {
    return mConfiguration.configAoaTimeoutAction(reset);
}

int UsbManagerImpl::configUsbEnumerateScheme(bool oldFirst) {
    return mConfiguration.configUsbEnumerateScheme(oldFirst);
}

int UsbManagerImpl::configDefaultMode(int mask, bool on) {
    return mConfiguration.configDefaultMode(mask, on);
}

int UsbManagerImpl::applyDefaultMode(int mask) {
    return mConfiguration.applyDefaultMode(mask);
}

int UsbManagerImpl::switchUsbState(int function) {
    Mutex::Autolock lock(mLock);
    mApple.request(function);
    switch (mState) {
        case kShutDown:
            mApple.apply();
            break;
        case kStarted:
            // Not in the face of a device: what is pending waits for its "remove" uevent.
            if (!mApple.isDevicePresent()) {
                mApple.apply();
            }
            break;
        default:
            ALOGE("Error State, why?");
            break;
    }
    return 0;
}

int UsbManagerImpl::configAppleIapNodeName(const char* name) {
    return mConfiguration.configAppleIapNodeName(name);
}

int UsbManagerImpl::configAppleEanNodeName(const char* name) {
    return mConfiguration.configAppleEanNodeName(name);
}

int UsbManagerImpl::configAppleEanStringName(const char* name) {
    return mConfiguration.configAppleEanStringName(name);
}

int UsbManagerImpl::configKernelAutoRoleSwitch(bool on) {
    return mConfiguration.configKernelAutoRoleSwitch(on);
}

int UsbManagerImpl::appleDeviceRoleSwitch(int deviceId) {
    Mutex::Autolock lock(mLock);
    const int result = mDetector->appleRoleSwitch(static_cast<uint32_t>(deviceId), mApple.roleSwitchType());
    if (result >= 0) {
        becomeAppleDevice();
    } else {
        ALOGI("AppleDevice roleSwitch fail!");
    }
    return result;
}

bool UsbManagerImpl::isAppleCarplaySupport(uint32_t deviceId) {
    return mDetector->isAppleCarplaySupport(deviceId);
}

int UsbManagerImpl::setUsbPortPower(int port, bool on) {
    return usb::setUsbPortPower(port, on);
}

int UsbManagerImpl::resetUsbPort(int port) {
    return usb::resetUsbPort(port);
}

bool UsbManagerImpl::usbDeviceIsActived(int port) {
    return usb::usbDeviceIsActived(port);
}

int UsbManagerImpl::getUsbDeviceCount() {
    return static_cast<int>(mDetector->count());
}

sp<UsbDeviceItf> UsbManagerImpl::queryUsbDevice(int index) {
    // A negative one is beyond every count.
    return mDetector->query(static_cast<size_t>(index));
}

int UsbManagerImpl::postTestMessage(int what) {
    return mUsbTest->postTestMessage(what);
}

int UsbManagerImpl::switchPortChargingMode(int port, int mode) {
    return mUsbTest->switchPortChargingMode(port, mode);
}

int UsbManagerImpl::getPortChargingMode(int port) {
    return mUsbTest->getPortChargingMode(port);
}

int UsbManagerImpl::setMaxHubTier(int tier) {
    return mUsbTest->setMaxHubTier(tier);
}

int UsbManagerImpl::addUnsupportedClass(int interfaceClass) {
    return mUsbTest->addUnsupportedClass(interfaceClass);
}

int UsbManagerImpl::removeUnsupportedClass(int interfaceClass) {
    return mUsbTest->removeUnsupportedClass(interfaceClass);
}

int UsbManagerImpl::setCertificationMode(int mode) {
    return mUsbTest->setCertificationMode(mode);
}

int UsbManagerImpl::getCertificationMode() {
    return mUsbTest->getCertificationMode();
}

int UsbManagerImpl::dump(const Vector<String16>& args, String8& result) {
    result.append("---dump UsbManager---\n");
    for (size_t i = 0; i < args.size(); ++i) {
        char argument[kArgumentSize];
        snprintf(argument, sizeof(argument), "%s", String8(args[i]).string());
        ALOGI("arg[%d] : %s ", static_cast<int>(i), argument);
    }
    return 0;
}

void UsbManagerImpl::handleUevent(const Uevent& event) {
    UEventPublisher::instance().handle(event);
    const char* const subsystem = event.getSubsystem();
    if (subsystem == nullptr || strcmp(subsystem, kAppleSubsystem) != 0) {
        return;
    }
    ALOGI("process usb subsystem=[%s]!\n", subsystem);
    Mutex::Autolock lock(mLock);
    switch (event.getAction()) {
        case Uevent::kActionAdd:
            mApple.setDevicePresent(true);
            break;
        case Uevent::kActionRemove:
            mApple.setDevicePresent(false);
            if (mApple.isPending()) {
                mApple.apply();
            }
            break;
        default:
            ALOGW("unhandle action[%d]\n", event.getAction());
            break;
    }
}

int32_t UsbManagerImpl::state() const {
    Mutex::Autolock lock(mLock);
    return mState;
}

void UsbManagerImpl::setState(int32_t state) {
    Mutex::Autolock lock(mLock);
    mState = state;
}

}  // namespace usb
