// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * The USB service around a core that remembers, and notifiers that remember.
 */

#include <binder/Parcel.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/unit/support/CallRecorder.h"
#include "tests/unit/support/LoopbackBinder.h"
#include "tests/unit/support/ServiceFixture.h"
#include "usb/BnUsbManager.h"
#include "usb/UsbDevice.h"

/** A core that remembers what it is asked; every int operation answers a number of its own. */
class FakeUsbCore : public usb::UsbManagerImplItf {
  public:
    int startup() override { return note("startup", 103); }
    int shutdown() override { return note("shutdown", 104); }
    int setNotifier(const android::sp<usb::UsbManagerNotifierItf>& notifier) override {
        mNotifier = notifier;
        return 0;
    }
    int setHostNotifier(const android::sp<usb::UsbHostNotifierItf>& notifier) override {
        mHostNotifier = notifier;
        return 0;
    }
    bool checkAoaModeSupport(uint32_t deviceId) override {
        note("checkAoaModeSupport " + std::to_string(deviceId), 0);
        return mSupport;
    }
    int configAoaDescription(const char* file) override { return text("configAoaDescription", file, 110); }
    int aoaModeSwitchFilter(const char* serial) override { return text("aoaModeSwitchFilter", serial, 111); }
    int configAoaTimeoutAction(bool reset) override { return number("configAoaTimeoutAction", reset, 112); }
    int configUsbEnumerateScheme(bool oldFirst) override {
        return number("configUsbEnumerateScheme", oldFirst, 107);
    }
    int configDefaultMode(int mask, bool on) override { return numbers("configDefaultMode", mask, on, 108); }
    int switchUsbState(int function) override { return number("switchUsbState", function, 113); }
    int configAppleIapNodeName(const char* name) override {
        return text("configAppleIapNodeName", name, 114);
    }
    int configAppleEanNodeName(const char* name) override {
        return text("configAppleEanNodeName", name, 115);
    }
    int configKernelAutoRoleSwitch(bool on) override { return number("configKernelAutoRoleSwitch", on, 116); }
    int appleDeviceRoleSwitch(int deviceId) override {
        return number("appleDeviceRoleSwitch", deviceId, -117);
    }
    bool isAppleCarplaySupport(uint32_t deviceId) override {
        note("isAppleCarplaySupport " + std::to_string(deviceId), 0);
        return mSupport;
    }
    int configAppleEanStringName(const char* name) override {
        return text("configAppleEanStringName", name, 119);
    }
    int setUsbPortPower(int port, bool on) override { return numbers("setUsbPortPower", port, on, 121); }
    int resetUsbPort(int port) override { return number("resetUsbPort", port, 120); }
    int getUsbDeviceCount() override { return note("getUsbDeviceCount", 122); }
    android::sp<usb::UsbDeviceItf> queryUsbDevice(int index) override {
        number("queryUsbDevice", index, 0);
        return mDevice;
    }
    bool usbDeviceIsActived(int port) override {
        number("usbDeviceIsActived", port, 0);
        return mSupport;
    }
    int postTestMessage(int what) override { return number("postTestMessage", what, 125); }
    int switchPortChargingMode(int port, int mode) override {
        return numbers("switchPortChargingMode", port, mode, 126);
    }
    int getPortChargingMode(int port) override { return number("getPortChargingMode", port, 127); }
    int setMaxHubTier(int tier) override { return number("setMaxHubTier", tier, 128); }
    int addUnsupportedClass(int interfaceClass) override {
        return number("addUnsupportedClass", interfaceClass, 129);
    }
    int removeUnsupportedClass(int interfaceClass) override {
        return number("removeUnsupportedClass", interfaceClass, 130);
    }
    int setCertificationMode(int mode) override { return number("setCertificationMode", mode, 131); }
    int getCertificationMode() override { return note("getCertificationMode", 132); }
    int dump(const android::Vector<android::String16>& args, android::String8& result) override {
        result.append("core dump\n");
        return note("dump " + std::to_string(args.size()), 0);
    }
    int applyDefaultMode(int mask) override { return number("applyDefaultMode", mask, 0); }

    /** The calls since the last time, each as "operation argument ...", a null text as "null". */
    std::vector<std::string> takeCalls() { return std::exchange(mCalls, {}); }

    android::sp<usb::UsbManagerNotifierItf> mNotifier;
    android::sp<usb::UsbHostNotifierItf> mHostNotifier;
    android::sp<usb::UsbDeviceItf> mDevice;
    bool mSupport = true;

  private:
    int note(const std::string& call, int result) {
        mCalls.push_back(call);
        return result;
    }
    int number(const std::string& operation, int value, int result) {
        return note(operation + " " + std::to_string(value), result);
    }
    int numbers(const std::string& operation, int first, int second, int result) {
        return note(operation + " " + std::to_string(first) + " " + std::to_string(second), result);
    }
    int text(const std::string& operation, const char* value, int result) {
        return note(operation + " " + (value != nullptr ? value : "null"), result);
    }

    std::vector<std::string> mCalls;
};

/** Remembers each event as "event CODE VALUE". Any thread. */
using EventRecorder = CallRecorder<usb::UsbManagerNotifierItf>;

/** Remembers each call as "attached ID", "detached ID" or "event CODE VALUE". Any thread. */
class HostRecorder : public CallRecorder<usb::UsbHostNotifierItf, usb::UsbDeviceItf> {
  public:
    using CallRecorder::CallRecorder;

    int32_t onUsbDeviceAttached(const android::sp<usb::UsbDeviceItf>& device) override {
        return note("attached " + std::to_string(device->getId()), device);
    }
    int32_t onUsbDeviceDetached(const android::sp<usb::UsbDeviceItf>& device) override {
        return note("detached " + std::to_string(device->getId()), device);
    }

    android::sp<usb::UsbDeviceItf> lastDevice() const { return last(); }
};

/** A device whose values all differ, with @p interfaces interfaces of classes 40, 41, ... */
android::sp<usb::UsbDeviceItf> makeUsbDevice(uint32_t id, uint32_t interfaces);

/** Compares records as clients may: the pointer counts for nothing, nor does the order of the interfaces. */
void expectSameUsbDevice(const android::sp<usb::UsbDeviceItf>& expected,
                         const android::sp<usb::UsbDeviceItf>& actual);

/** The service and, for what needs one, a client that calls it through parcels. */
class UsbServiceFixture : public ServiceFixture<usb::BnUsbManager, usb::IUsbManager, FakeUsbCore> {
  protected:
    android::status_t transact(uint32_t code, const Writer& write, android::Parcel* reply,
                               const char* token = "usb.UsbManager") {
        return ServiceFixture::transact(code, write, reply, token);
    }

    void addHost(const android::sp<android::IBinder>& notifier, pid_t pid);
    void removeHost(const android::sp<android::IBinder>& notifier, pid_t pid);

    /** Clients' notifiers as the service sees them from another process. */
    static android::sp<LoopbackBinder> remote(const android::sp<EventRecorder>& recorder);
    static android::sp<LoopbackBinder> remote(const android::sp<HostRecorder>& recorder);

    android::sp<EventRecorder> mEvents = new EventRecorder(77);
    android::sp<HostRecorder> mHosts = new HostRecorder(78);
};
