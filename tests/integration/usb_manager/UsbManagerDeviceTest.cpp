// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The USB manager with devices: from a plug to the client of its service, and from the client to the device.
 */
#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vx_vendor_data.h>

#include <thread>

#include "tests/integration/usb/TestBed.h"
#include "tests/integration/usb_manager/AttributeBed.h"
#include "tests/integration/usb_manager/UsbRecorders.h"
#include "tests/unit/support/LogCapture.h"
#include "tests/unit/support/LoopbackBinder.h"
#include "usb/BnUsbHostNotifier.h"
#include "usb/BnUsbManager.h"
#include "usb/BnUsbManagerNotifier.h"
#include "usb/UsbManagerImpl.h"

using android::IBinder;
using android::sp;
using android::wp;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using usb::BnUsbManager;
using usb::IUsbManager;
using usb::UsbDeviceItf;
using usb::UsbManagerImpl;

namespace {

constexpr pid_t kClient = 1001;
constexpr uint16_t kPhone = 0x12a8;
const std::string kAttached = "attached " + std::to_string(kPhone);
const std::string kDetached = "detached " + std::to_string(kPhone);
const std::string kFullSpeed = "/sys/devices/platform/vx4410-udc.1/full_spd=s";
const std::string kAndroid = "/sys/module/usbcore/parameters/android_default_mode=1\n";

class UsbManagerDeviceTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ("", mAttributes.problem());
        const char letter = 'O';
        ASSERT_NE(-1, vx_vendor_data_write_string(&letter, 173, 1));
        mManager = new UsbManagerImpl(mUevents);
        mService = new BnUsbManager(mManager);
        mProxy = android::interface_cast<IUsbManager>(sp<IBinder>(new LoopbackBinder(mService, kClient)));
        const CallingAs caller(kClient);
        mService->addHostNotifier(new LoopbackBinder(new usb::BnUsbHostNotifier(mHosts), 1));
        mService->addNotifier(new LoopbackBinder(new usb::BnUsbManagerNotifier(mEvents), 1));
    }

    void TearDown() override {
        if (mManager != nullptr) {
            mManager->shutdown();
        }
    }

    /** Starts and waits for the first scan: what is plugged from now on comes by an event. */
    void start() {
        mLog.take();
        EXPECT_EQ(0, mProxy->startup());
        EXPECT_TRUE(
            mLog.waitFor(LogLine{ANDROID_LOG_WARN, "UsbDetector", "skip root usb hub[9]\n"}, 3 * kTestLimit));
    }

    /** Plugs a phone that answers @p responder's answers; its number. */
    uint32_t plugPhone(const TestBed::Responder& responder) {
        mBed.plug("1-1", UsbDeviceSpec::phoneOfApple(kPhone), responder);
        EXPECT_TRUE(mHosts->waitFor(kAttached));
        const sp<UsbDeviceItf> device = mProxy->queryUsbDevice(0);
        return device != nullptr ? device->getId() : 0;
    }

    /** A phone that supports CarPlay as @p support says and takes the role switch as @p taken says. */
    static TestBed::Responder phone(const UsbAnswer& support, const UsbAnswer& taken) {
        return
            [support, taken](const UsbRequest& request) { return request.request == 0x53 ? support : taken; };
    }

    LogCapture mLog;
    // The bed of devices comes after it: from then on this process sees another "/sys".
    AttributeBed mAttributes;
    TestBed mBed;
    sp<UeventObserver> mUevents = new UeventObserver();
    sp<HostMemory> mHosts = new HostMemory();
    sp<EventMemory> mEvents = new EventMemory();
    sp<UsbManagerImpl> mManager;
    sp<BnUsbManager> mService;
    sp<IUsbManager> mProxy;
};

}  // namespace

TEST_F(UsbManagerDeviceTest, ADeviceComesAndGoes) {
    start();
    EXPECT_EQ(0, mProxy->getUsbDeviceCount());
    mAttributes.take();
    const uint32_t id = plugPhone(phone(UsbAnswer::stall(), UsbAnswer::stall()));
    EXPECT_EQ(1U, id);
    EXPECT_EQ(1, mProxy->getUsbDeviceCount());
    const sp<UsbDeviceItf> device = mProxy->queryUsbDevice(0);
    ASSERT_NE(nullptr, device);
    EXPECT_EQ(0x05acU, device->getVendorId());
    EXPECT_EQ(kPhone, device->getProductId());
    EXPECT_EQ(1U, device->getBusNumber());
    EXPECT_EQ(nullptr, mProxy->queryUsbDevice(1));
    // The mode was written anew as it came.
    EXPECT_THAT(mAttributes.take(), ElementsAre(kAndroid));
    mBed.unplug("1-1");
    EXPECT_TRUE(mHosts->waitFor(kDetached));
    EXPECT_EQ(0, mProxy->getUsbDeviceCount());
    EXPECT_EQ(nullptr, mProxy->queryUsbDevice(0));
    EXPECT_THAT(mHosts->calls(), ElementsAre(kAttached, kDetached));
    EXPECT_THAT(mAttributes.take(), IsEmpty());
}

TEST_F(UsbManagerDeviceTest, DevicesThatWereThereAreFoundByTheStart) {
    mBed.plug("1-1", UsbDeviceSpec::phoneOfApple(kPhone));
    start();
    EXPECT_TRUE(mHosts->waitFor(kAttached));
    EXPECT_EQ(0, mProxy->shutdown());
    EXPECT_EQ(0, mProxy->getUsbDeviceCount());
    EXPECT_THAT(mHosts->calls(), Not(Contains(kDetached)));
}

TEST_F(UsbManagerDeviceTest, SwitchesTheRolesForCarplay) {
    start();
    mProxy->switchUsbState(0);
    const uint32_t id = plugPhone(phone(UsbAnswer::ok(std::string("\1\0\0\0", 4)), UsbAnswer::ok()));
    mAttributes.take();
    EXPECT_EQ(1, mProxy->isAppleCarplaySupport(id));
    EXPECT_EQ(0, mProxy->appleDeviceRoleSwitch(static_cast<int>(id)));
    EXPECT_THAT(mAttributes.take(), ElementsAre(kFullSpeed));
    const std::vector<UsbRequest> requests = mBed.requests("1-1");
    ASSERT_EQ(3U, requests.size());
    EXPECT_EQ(0x53, requests[1].request);
    EXPECT_EQ(0x40, requests[2].requestType);
    EXPECT_EQ(0x51, requests[2].request);
    EXPECT_EQ(1, requests[2].value);
}

TEST_F(UsbManagerDeviceTest, SwitchesTheRolesForAccessories) {
    start();
    mProxy->switchUsbState(1);
    const uint32_t id = plugPhone(phone(UsbAnswer::stall(), UsbAnswer::ok()));
    mAttributes.take();
    EXPECT_EQ(0, mProxy->appleDeviceRoleSwitch(static_cast<int>(id)));
    EXPECT_THAT(mAttributes.take(), ElementsAre(kFullSpeed));
    const std::vector<UsbRequest> requests = mBed.requests("1-1");
    ASSERT_EQ(1U, requests.size());
    EXPECT_EQ(0x51, requests[0].request);
    EXPECT_EQ(0, requests[0].value);
}

TEST_F(UsbManagerDeviceTest, APhoneThatDoesNotSwitchLeavesTheUnitAHost) {
    start();
    mProxy->switchUsbState(0);
    const uint32_t id = plugPhone(phone(UsbAnswer::ok(std::string("\2\0\0\0", 4)), UsbAnswer::stall()));
    mAttributes.take();
    EXPECT_EQ(0, mProxy->isAppleCarplaySupport(id));
    EXPECT_EQ(-1, mProxy->appleDeviceRoleSwitch(static_cast<int>(id)));
    mProxy->switchUsbState(1);
    mAttributes.take();
    EXPECT_GT(0, mProxy->appleDeviceRoleSwitch(static_cast<int>(id)));
    EXPECT_EQ(-1, mProxy->appleDeviceRoleSwitch(static_cast<int>(id) + 1));
    EXPECT_THAT(mAttributes.take(), IsEmpty());
    EXPECT_EQ(3U, mLog.count([](const LogLine& line) {
        return line == LogLine{ANDROID_LOG_INFO, "UsbManagerImpl", "AppleDevice roleSwitch fail!"};
    }));
}

TEST_F(UsbManagerDeviceTest, AsksAPhoneForAccessoryMode) {
    start();
    uint32_t id = plugPhone([](const UsbRequest& request) {
        return request.request == 0x33 ? UsbAnswer::ok(std::string("\2\0\0\0", 4)) : UsbAnswer::stall();
    });
    EXPECT_EQ(1, mProxy->checkAoaModeSupport(id));
    EXPECT_EQ(0, mProxy->checkAoaModeSupport(id + 1));
}

TEST_F(UsbManagerDeviceTest, AClientMayCallAnythingFromInsideItsCallBack) {
    sp<UsbDeviceItf> queried;
    int count = -1;
    mHosts->attachHook = [&](const sp<UsbDeviceItf>& /*device*/) {
        // From another thread, for which the call-back waits.
        std::thread([&] {
            count = mProxy->getUsbDeviceCount();
            queried = mProxy->queryUsbDevice(0);
            mProxy->switchUsbState(1);
            mProxy->removeNotifier(new usb::BnUsbManagerNotifier(mEvents));
            // Within the bound for a call-back that does not return: this one waits for it.
            mProxy->shutdown();
        }).join();
        mProxy->shutdown();
    };
    start();
    mBed.plug("1-1", UsbDeviceSpec::phoneOfApple(kPhone));
    EXPECT_TRUE(mHosts->waitFor(kAttached));
    EXPECT_EQ(1, count);
    ASSERT_NE(nullptr, queried);
    EXPECT_EQ(kPhone, queried->getProductId());
    EXPECT_EQ(1U, mLog.count([](const LogLine& line) {
        return line.text == "already shutdown, no need re-shutdown";
    }));
    mHosts->attachHook = nullptr;
    EXPECT_EQ(0, mProxy->startup());
    EXPECT_TRUE(mHosts->waitFor(kAttached, 2));
}

TEST_F(UsbManagerDeviceTest, AClientThatHangsHoldsNobodyUp) {
    Gate gate;
    Gate inside;
    mHosts->attachHook = [&](const sp<UsbDeviceItf>& /*device*/) {
        inside.open();
        gate.wait(6 * kTestLimit);
    };
    start();
    mBed.plug("1-1", UsbDeviceSpec::phoneOfApple(kPhone));
    ASSERT_TRUE(inside.wait());
    EXPECT_EQ(1, mProxy->getUsbDeviceCount());
    EXPECT_EQ(0, mProxy->switchUsbState(1));
    EXPECT_EQ(0, mProxy->shutdown());
    EXPECT_THAT(mHosts->calls(), IsEmpty());
    gate.open();
    EXPECT_TRUE(mHosts->waitFor(kAttached));
}

TEST_F(UsbManagerDeviceTest, AHostNotifierOutlivesItsRemovalOverTheWire) {
    start();
    mProxy->removeHostNotifier(new usb::BnUsbHostNotifier(mHosts));
    plugPhone(phone(UsbAnswer::stall(), UsbAnswer::stall()));
    mBed.unplug("1-1");
    EXPECT_TRUE(mHosts->waitFor(kDetached));
}

TEST_F(UsbManagerDeviceTest, ManagerAndServiceGoWhenNobodyHoldsThem) {
    start();
    plugPhone(phone(UsbAnswer::stall(), UsbAnswer::stall()));
    mProxy->shutdown();
    const wp<UsbManagerImpl> manager = mManager;
    const wp<BnUsbManager> service = mService;
    mProxy.clear();
    mManager.clear();
    mService.clear();
    EXPECT_EQ(nullptr, service.promote());
    EXPECT_EQ(nullptr, manager.promote());
}
