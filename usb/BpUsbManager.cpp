// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "IUsbManager"

#include "usb/BpUsbManager.h"

#include <log/log.h>

#include "common/ServiceCall.h"
#include "usb/UsbDeviceParcel.h"

namespace usb {

using android::IBinder;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;

namespace {

/**
 * One request whose steps are looked at: each that fails is logged by the operation's name and the step's
 * number, and the next one is taken all the same.
 */
class CheckedCall {
  public:
    /** The numbers of the four steps, in their order. */
    struct Steps {
        int token;
        int argument;
        int transaction;
        int exceptionCode;
    };

    CheckedCall(const char* operation, const Steps& steps) : mOperation(operation), mSteps(steps) {}

    void writeToken(const IUsbManager& interface) {
        check(mRequest.writeInterfaceToken(interface.getInterfaceDescriptor()), mSteps.token);
    }
    void writeArgument(int32_t value) { check(mRequest.writeInt32(value), mSteps.argument); }
    void writeArgument(const char* text) { check(mRequest.writeCString(text), mSteps.argument); }

    /** @return the int32 read last, 0 when there is none */
    int32_t send(IBinder& service, uint32_t code) {
        check(service.transact(code, mRequest, &mReply, 0), mSteps.transaction);
        check(mReply.readExceptionCode(), mSteps.exceptionCode);
        return mReply.readInt32();
    }

  private:
    void check(status_t status, int step) {
        if (status != OK) {
            ALOGE("%s %d:check return value failed", mOperation, step);
        }
    }

    const char* const mOperation;
    const Steps mSteps;
    Parcel mRequest;
    Parcel mReply;
};

/** Step numbers by operation, as the log shows them. */
constexpr CheckedCall::Steps kEnumerateSchemeSteps = {116, 117, 118, 119};
constexpr CheckedCall::Steps kAoaModeSupportSteps = {140, 141, 142, 143};
constexpr CheckedCall::Steps kAoaModeFilterSteps = {160, 161, 162, 163};
constexpr CheckedCall::Steps kAoaTimeoutSteps = {170, 171, 172, 173};
constexpr CheckedCall::Steps kIsActivedSteps = {302, 303, 304, 305};

template <typename Argument>
int callChecked(IUsbManager& proxy, IBinder& service, uint32_t code, const char* operation,
                const CheckedCall::Steps& steps, Argument argument) {
    CheckedCall call(operation, steps);
    call.writeToken(proxy);
    call.writeArgument(argument);
    return call.send(service, code);
}

int32_t asInt32(bool value) {
    return value ? 1 : 0;
}

}  // namespace

int BpUsbManager::call(uint32_t code) {
    ServiceCall call(getInterfaceDescriptor());
    return call.send(*remote(), code).readInt32();
}

int BpUsbManager::call(uint32_t code, int32_t value) {
    ServiceCall call(getInterfaceDescriptor());
    call.request().writeInt32(value);
    return call.send(*remote(), code).readInt32();
}

int BpUsbManager::call(uint32_t code, int32_t first, int32_t second) {
    ServiceCall call(getInterfaceDescriptor());
    call.request().writeInt32(first);
    call.request().writeInt32(second);
    return call.send(*remote(), code).readInt32();
}

int BpUsbManager::call(uint32_t code, const char* text) {
    ServiceCall call(getInterfaceDescriptor());
    // Left out, a null text is null on the other side too, and the operation answers as it does to null.
    if (text != nullptr) {
        call.request().writeCString(text);
    }
    return call.send(*remote(), code).readInt32();
}

int BpUsbManager::call(uint32_t code, const sp<IBinder>& object) {
    ServiceCall call(getInterfaceDescriptor());
    call.request().writeStrongBinder(object);
    return call.send(*remote(), code).readInt32();
}

int BpUsbManager::startup() {
    return call(kStartup);
}

int BpUsbManager::shutdown() {
    return call(kShutdown);
}

int BpUsbManager::addNotifier(const sp<IBinder>& notifier) {
    return call(kAddNotifier, notifier);
}

int BpUsbManager::removeNotifier(const sp<IBinder>& notifier) {
    return call(kRemoveNotifier, notifier);
}

int BpUsbManager::addHostNotifier(const sp<IBinder>& notifier) {
    return call(kAddHostNotifier, notifier);
}

int BpUsbManager::removeHostNotifier(const sp<IBinder>& notifier) {
    return call(kRemoveHostNotifier, notifier);
}

int BpUsbManager::configUsbEnumerateScheme(bool oldFirst) {
    return callChecked(*this, *remote(), kConfigUsbEnumerateScheme, __func__, kEnumerateSchemeSteps,
                       asInt32(oldFirst));
}

int BpUsbManager::configDefaultMode(int mask, bool on) {
    return call(kConfigDefaultMode, mask, asInt32(on));
}

int BpUsbManager::checkAoaModeSupport(uint32_t deviceId) {
    return callChecked(*this, *remote(), kCheckAoaModeSupport, __func__, kAoaModeSupportSteps,
                       static_cast<int32_t>(deviceId));
}

int BpUsbManager::configAoaDescription(const char* file) {
    return call(kConfigAoaDescription, file);
}

int BpUsbManager::aoaModeSwitchFilter(const char* serial) {
    return callChecked(*this, *remote(), kAoaModeSwitchFilter, __func__, kAoaModeFilterSteps, serial);
}

int BpUsbManager::configAoaTimeoutAction(bool reset) {
    return callChecked(*this, *remote(), kConfigAoaTimeoutAction, __func__, kAoaTimeoutSteps, asInt32(reset));
}

int BpUsbManager::switchUsbState(int function) {
    return call(kSwitchUsbState, function);
}

int BpUsbManager::configAppleIapNodeName(const char* name) {
    return call(kConfigAppleIapNodeName, name);
}

int BpUsbManager::configAppleEanNodeName(const char* name) {
    return call(kConfigAppleEanNodeName, name);
}

int BpUsbManager::configKernelAutoRoleSwitch(bool on) {
    return call(kConfigKernelAutoRoleSwitch, asInt32(on));
}

int BpUsbManager::appleDeviceRoleSwitch(int deviceId) {
    return call(kAppleDeviceRoleSwitch, deviceId);
}

int BpUsbManager::isAppleCarplaySupport(uint32_t deviceId) {
    return call(kIsAppleCarplaySupport, static_cast<int32_t>(deviceId));
}

int BpUsbManager::configAppleEanStringName(const char* name) {
    return call(kConfigAppleEanStringName, name);
}

int BpUsbManager::setUsbPortPower(int port, bool on) {
    return call(kSetUsbPortPower, port, asInt32(on));
}

int BpUsbManager::resetUsbPort(int port) {
    return call(kResetUsbPort, port);
}

int BpUsbManager::getUsbDeviceCount() {
    return call(kGetUsbDeviceCount);
}

sp<UsbDeviceItf> BpUsbManager::queryUsbDevice(int index) {
    ServiceCall call(getInterfaceDescriptor());
    call.request().writeInt32(index);
    // A reply without a device ends after its leading 0.
    return readUsbDevice(call.send(*remote(), kQueryUsbDevice));
}

int BpUsbManager::usbDeviceIsActived(int port) {
    return callChecked(*this, *remote(), kUsbDeviceIsActived, __func__, kIsActivedSteps, port);
}

int BpUsbManager::postTestMessage(int what) {
    return call(kPostTestMessage, what);
}

int BpUsbManager::switchPortChargingMode(int port, int mode) {
    return call(kSwitchPortChargingMode, port, mode);
}

int BpUsbManager::getPortChargingMode(int port) {
    return call(kGetPortChargingMode, port);
}

int BpUsbManager::setMaxHubTier(int tier) {
    return call(kSetMaxHubTier, tier);
}

int BpUsbManager::addUnsupportedClass(int interfaceClass) {
    return call(kAddUnsupportedClass, interfaceClass);
}

int BpUsbManager::removeUnsupportedClass(int interfaceClass) {
    return call(kRemoveUnsupportedClass, interfaceClass);
}

int BpUsbManager::setCertificationMode(int mode) {
    return call(kSetCertificationMode, mode);
}

int BpUsbManager::getCertificationMode() {
    return call(kGetCertificationMode);
}

}  // namespace usb
