// SPDX-License-Identifier: Apache-2.0
#include "usb/BnUsbManager.h"

#include <binder/Parcel.h>

#include "usb/UsbDeviceParcel.h"

namespace usb {

using android::BAD_VALUE;
using android::IBinder;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;

NotifierRegistry<UsbManagerNotifierTraits>& UsbManagerNotifierTraits::registryOf(BnUsbManager& manager) {
    return manager.mNotifiers;
}

NotifierRegistry<UsbHostNotifierTraits>& UsbHostNotifierTraits::registryOf(BnUsbManager& manager) {
    return manager.mHostNotifiers;
}

BnUsbManager::BnUsbManager(const sp<UsbManagerImplItf>& impl)
    : ManagerService(impl),
      mHostNotifierProxy(new UsbHostNotifierProxy()),
      mHostNotifiers(mLock, mHostNotifierProxy) {
    mImpl->setHostNotifier(mHostNotifierProxy);
}

int BnUsbManager::addHostNotifier(const sp<IBinder>& notifier) {
    return mHostNotifiers.add(this, notifier, callingPid());
}

int BnUsbManager::removeHostNotifier(const sp<IBinder>& notifier) {
    return mHostNotifiers.remove(notifier, callingPid());
}

int BnUsbManager::configUsbEnumerateScheme(bool oldFirst) {
    return mImpl->configUsbEnumerateScheme(oldFirst);
}

int BnUsbManager::configDefaultMode(int mask, bool on) {
    return mImpl->configDefaultMode(mask, on);
}

int BnUsbManager::checkAoaModeSupport(uint32_t deviceId) {
    return mImpl->checkAoaModeSupport(deviceId) ? 1 : 0;
}

int BnUsbManager::configAoaDescription(const char* file) {
    return mImpl->configAoaDescription(file);
}

int BnUsbManager::aoaModeSwitchFilter(const char* serial) {
    return mImpl->aoaModeSwitchFilter(serial);
}

int BnUsbManager::configAoaTimeoutAction(bool reset) {
    return mImpl->configAoaTimeoutAction(reset);
}

int BnUsbManager::switchUsbState(int function) {
    return mImpl->switchUsbState(function);
}

int BnUsbManager::configAppleIapNodeName(const char* name) {
    return mImpl->configAppleIapNodeName(name);
}

int BnUsbManager::configAppleEanNodeName(const char* name) {
    return mImpl->configAppleEanNodeName(name);
}

int BnUsbManager::configKernelAutoRoleSwitch(bool on) {
    return mImpl->configKernelAutoRoleSwitch(on);
}

int BnUsbManager::appleDeviceRoleSwitch(int deviceId) {
    return mImpl->appleDeviceRoleSwitch(deviceId);
}

int BnUsbManager::isAppleCarplaySupport(uint32_t deviceId) {
    return mImpl->isAppleCarplaySupport(deviceId) ? 1 : 0;
}

int BnUsbManager::configAppleEanStringName(const char* name) {
    return mImpl->configAppleEanStringName(name);
}

int BnUsbManager::setUsbPortPower(int port, bool on) {
    return mImpl->setUsbPortPower(port, on);
}

int BnUsbManager::resetUsbPort(int port) {
    return mImpl->resetUsbPort(port);
}

int BnUsbManager::getUsbDeviceCount() {
    return mImpl->getUsbDeviceCount();
}

sp<UsbDeviceItf> BnUsbManager::queryUsbDevice(int index) {
    return mImpl->queryUsbDevice(index);
}

int BnUsbManager::usbDeviceIsActived(int port) {
    return mImpl->usbDeviceIsActived(port) ? 1 : 0;
}

int BnUsbManager::postTestMessage(int what) {
    return mImpl->postTestMessage(what);
}

int BnUsbManager::switchPortChargingMode(int port, int mode) {
    return mImpl->switchPortChargingMode(port, mode);
}

int BnUsbManager::getPortChargingMode(int port) {
    return mImpl->getPortChargingMode(port);
}

int BnUsbManager::setMaxHubTier(int tier) {
    return mImpl->setMaxHubTier(tier);
}

int BnUsbManager::addUnsupportedClass(int interfaceClass) {
    return mImpl->addUnsupportedClass(interfaceClass);
}

int BnUsbManager::removeUnsupportedClass(int interfaceClass) {
    return mImpl->removeUnsupportedClass(interfaceClass);
}

int BnUsbManager::setCertificationMode(int mode) {
    return mImpl->setCertificationMode(mode);
}

int BnUsbManager::getCertificationMode() {
    return mImpl->getCertificationMode();
}

status_t BnUsbManager::dispatch(uint32_t code, const Parcel& data, Parcel& reply) {
    switch (code) {
        case kGetUsbDeviceCount:
            return reply.writeInt32(getUsbDeviceCount());
        case kGetCertificationMode:
            return reply.writeInt32(getCertificationMode());
        // Clients count on it: over the wire this removes the manager notifier, never the host notifier.
        case kRemoveHostNotifier:
            return reply.writeInt32(removeNotifier(data.readStrongBinder()));
        case kAddHostNotifier:
            return reply.writeInt32(addHostNotifier(data.readStrongBinder()));
        case kConfigAoaDescription:
        case kAoaModeSwitchFilter:
        case kConfigAppleIapNodeName:
        case kConfigAppleEanNodeName:
        case kConfigAppleEanStringName:
            return dispatchText(code, data.readCString(), reply);
        default:
            break;
    }
    int32_t first = 0;
    if (data.readInt32(&first) != OK) {
        return BAD_VALUE;
    }
    if (code != kConfigDefaultMode && code != kSetUsbPortPower && code != kSwitchPortChargingMode) {
        return dispatchNumber(code, first, reply);
    }
    int32_t second = 0;
    if (data.readInt32(&second) != OK) {
        return BAD_VALUE;
    }
    return dispatchNumbers(code, first, second, reply);
}

status_t BnUsbManager::dispatchText(uint32_t code, const char* text, Parcel& reply) {
    switch (code) {
        case kConfigAoaDescription:
            return reply.writeInt32(configAoaDescription(text));
        case kAoaModeSwitchFilter:
            return reply.writeInt32(aoaModeSwitchFilter(text));
        case kConfigAppleIapNodeName:
            return reply.writeInt32(configAppleIapNodeName(text));
        case kConfigAppleEanNodeName:
            return reply.writeInt32(configAppleEanNodeName(text));
        default:
            return reply.writeInt32(configAppleEanStringName(text));
    }
}

status_t BnUsbManager::dispatchNumber(uint32_t code, int32_t value, Parcel& reply) {
    switch (code) {
        case kConfigUsbEnumerateScheme:
            return reply.writeInt32(configUsbEnumerateScheme(value != 0));
        case kCheckAoaModeSupport:
            return reply.writeInt32(checkAoaModeSupport(static_cast<uint32_t>(value)));
        case kConfigAoaTimeoutAction:
            return reply.writeInt32(configAoaTimeoutAction(value != 0));
        case kSwitchUsbState:
            return reply.writeInt32(switchUsbState(value));
        case kConfigKernelAutoRoleSwitch:
            return reply.writeInt32(configKernelAutoRoleSwitch(value != 0));
        case kAppleDeviceRoleSwitch:
            return reply.writeInt32(appleDeviceRoleSwitch(value));
        case kIsAppleCarplaySupport:
            return reply.writeInt32(isAppleCarplaySupport(static_cast<uint32_t>(value)));
        case kResetUsbPort:
            return reply.writeInt32(resetUsbPort(value));
        case kQueryUsbDevice:
            return replyUsbDevice(value, reply);
        case kUsbDeviceIsActived:
            return reply.writeInt32(usbDeviceIsActived(value));
        case kPostTestMessage:
            return reply.writeInt32(postTestMessage(value));
        case kGetPortChargingMode:
            return reply.writeInt32(getPortChargingMode(value));
        case kSetMaxHubTier:
            return reply.writeInt32(setMaxHubTier(value));
        case kAddUnsupportedClass:
            return reply.writeInt32(addUnsupportedClass(value));
        case kRemoveUnsupportedClass:
            return reply.writeInt32(removeUnsupportedClass(value));
        default:
            return reply.writeInt32(setCertificationMode(value));
    }
}

status_t BnUsbManager::dispatchNumbers(uint32_t code, int32_t first, int32_t second, Parcel& reply) {
    switch (code) {
        case kConfigDefaultMode:
            return reply.writeInt32(configDefaultMode(first, second != 0));
        case kSetUsbPortPower:
            return reply.writeInt32(setUsbPortPower(first, second != 0));
        default:
            return reply.writeInt32(switchPortChargingMode(first, second));
    }
}

status_t BnUsbManager::replyUsbDevice(int32_t index, Parcel& reply) {
    const sp<UsbDeviceItf> device = queryUsbDevice(index);
    // No device: the reply ends after its leading 0.
    return device != nullptr ? writeUsbDevice(reply, *device) : static_cast<status_t>(OK);
}

}  // namespace usb
