// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UsbManagerImpl"

#include "usb/UsbManagerImpl.h"

#include <log/log.h>

#include <cstdio>
#include <cstring>

#include "common/DumpText.h"
#include "common/Uevent.h"
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

constexpr const char* kAppleSubsystem = "apple";

/** Room for one argument of a dump in the log, its final NUL included. */
constexpr size_t kArgumentSize = 1024;

/** The drivers of the unit's controllers, in the order in which they are loaded. */
constexpr const char* kLoadDrivers[] = {
    "insmod /usr/local/drivers/ehci-hcd.ko",
    "insmod /usr/local/drivers/ohci-hcd.ko",
    "insmod /usr/local/drivers/vxsdv2.ko",
};

}  // namespace

UsbManagerImpl::UsbManagerImpl(const sp<UeventObserver>& observer)
    : mMessageQueue(
          new MessageQueue(new UsbManagerMessageHandler(this), kQueueTimeoutMillis, "UsbManagerQueue")),
      mDetector(new UsbDetector()),
      mUsbTest(new UsbTest(mDetector)),
      mUeventObserver(observer),
      mConfiguration(mUsbTest->getCertificationMode()),
      mAppleFunction(mConfiguration),
      mState(LOG_TAG) {
    mDetector->setClassPerInterfaceHandler(new UsbManagerClassPerInterfaceHandler(this));
}

UsbManagerImpl::~UsbManagerImpl() {
    mUeventNotifier->detach();
    mUeventObserver->unregisterNotifier(mUeventNotifier);
    if (state() == ManagerState::kStarted) {
        // Threads that run on would keep detector and queue alive for ever.
        mUsbTest->endWaits();
        mDetector->stop();
        mUsbTest->stop();
        mMessageQueue->stop();
    }
}

void UsbManagerImpl::onFirstRef() {
    mUeventNotifier = new UsbUeventObserverNotifier(this);
    mUeventObserver->registerNotifier(mUeventNotifier);
    configDefaultMode(UsbConfiguration::kAppleDefaultMode | UsbConfiguration::kAndroidDefaultMode, true);
    configDefaultMode(UsbConfiguration::kAndroidInterfaceCheck, false);
}

int UsbManagerImpl::startup() {
    mState.startup([this] {
        for (const char* const command : kLoadDrivers) {
            runShell(command);
        }
        mMessageQueue->start();
        mUsbTest->start();
        mDetector->start();
        return true;
    });
    return 0;
}

int UsbManagerImpl::shutdown() {
    mState.shutdown([this] {
        // The detector's stop waits for a handler of the test mode, which may be minutes into a wait.
        mUsbTest->endWaits();
        mDetector->stop();
        mUsbTest->stop();
        mMessageQueue->stop();
        configDefaultMode(UsbConfiguration::kAppleDefaultMode | UsbConfiguration::kAndroidDefaultMode, false);
    });
    return 0;
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

int UsbManagerImpl::switchUsbState(int function) {
    Mutex::Autolock lock(mLock);
    mAppleFunction.request(function);
    switch (state()) {
        case ManagerState::kShutDown:
            mAppleFunction.apply();
            break;
        case ManagerState::kStarted:
            // Not in the face of a device that uses the present one: its removal sets the new one up.
            if (!mAppleFunction.isDevicePresent()) {
                mAppleFunction.apply();
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

int UsbManagerImpl::configKernelAutoRoleSwitch(bool on) {
    return mConfiguration.configKernelAutoRoleSwitch(on);
}

int UsbManagerImpl::appleDeviceRoleSwitch(int deviceId) {
    Mutex::Autolock lock(mLock);
    const int result =
        mDetector->appleRoleSwitch(static_cast<uint32_t>(deviceId), mAppleFunction.roleSwitchType());
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

int UsbManagerImpl::configAppleEanStringName(const char* name) {
    return mConfiguration.configAppleEanStringName(name);
}

int UsbManagerImpl::setUsbPortPower(int port, bool on) {
    return usb::setUsbPortPower(port, on);
}

int UsbManagerImpl::resetUsbPort(int port) {
    return usb::resetUsbPort(port);
}

int UsbManagerImpl::getUsbDeviceCount() {
    return static_cast<int>(mDetector->count());
}

sp<UsbDeviceItf> UsbManagerImpl::queryUsbDevice(int index) {
    // A negative index lies beyond every list.
    return mDetector->query(static_cast<size_t>(index));
}

bool UsbManagerImpl::usbDeviceIsActived(int port) {
    return usb::usbDeviceIsActived(port);
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
    appendDumpLine(result, "---dump UsbManager---\n");
    for (size_t i = 0; i < args.size(); ++i) {
        char argument[kArgumentSize];
        snprintf(argument, sizeof(argument), "%s", String8(args[i]).string());
        ALOGI("arg[%d] : %s ", static_cast<int>(i), argument);
    }
    return 0;
}

int UsbManagerImpl::applyDefaultMode(int mask) {
    return mConfiguration.applyDefaultMode(mask);
}

void UsbManagerImpl::handleUevent(const Uevent& event) {
    UEventPublisher::instance().handle(event);
    const char* const subsystem = event.getSubsystem();
    if (subsystem != nullptr && strcmp(subsystem, kAppleSubsystem) == 0) {
        handleAppleUevent(event);
    }
}

void UsbManagerImpl::handleAppleUevent(const Uevent& event) {
    ALOGI("process usb subsystem=[%s]!\n", event.getSubsystem());
    Mutex::Autolock lock(mLock);
    switch (event.getAction()) {
        case Uevent::kActionAdd:
            mAppleFunction.setDevicePresent(true);
            break;
        case Uevent::kActionRemove:
            mAppleFunction.setDevicePresent(false);
            if (mAppleFunction.isPending()) {
                mAppleFunction.apply();
            }
            break;
        default:
            ALOGW("unhandle action[%d]\n", event.getAction());
            break;
    }
}

}  // namespace usb
