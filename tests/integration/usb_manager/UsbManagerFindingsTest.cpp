// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What the USB manager's core finds on devices, and devices that hold it up.
 */
#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vx_vendor_data.h>

#include <future>
#include <memory>
#include <string>
#include <thread>

#include "tests/integration/usb/TestBed.h"
#include "tests/integration/usb_manager/AttributeBed.h"
#include "tests/integration/usb_manager/UsbRecorders.h"
#include "tests/unit/support/LogCapture.h"
#include "usb/UsbManagerImpl.h"

using android::sp;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;
using usb::UsbManagerImpl;

namespace {

constexpr int kModeItem = 173;
constexpr uint16_t kPhone = 0x12A8;

/** The hub at a depth of a chain on bus 1; the root hub is at depth 1. */
std::string chainPort(int depth) {
    std::string port = "1-1";
    for (int i = 2; i < depth; ++i) {
        port += ".1";
    }
    return port;
}

class UsbManagerFindingsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ("", mAttributes.problem());
        store('O');
        make();
    }

    void TearDown() override { mManager->shutdown(); }

    static void store(char mode) { ASSERT_EQ(0, vx_vendor_data_write_string(&mode, kModeItem, 1)); }

    void make() {
        mManager = new UsbManagerImpl(mUevents);
        mManager->setNotifier(mEvents);
        mManager->setHostNotifier(mHost);
    }

    /** Starts and waits for the first scan: what is plugged from now on comes by an event. */
    void start() {
        EXPECT_EQ(0, mManager->startup());
        EXPECT_TRUE(
            mLog.waitFor(LogLine{ANDROID_LOG_WARN, "UsbDetector", "skip root usb hub[9]\n"}, 3 * kTestLimit));
    }

    /** Plugs a phone and waits for it. @return its identifier */
    uint32_t plugPhone(const TestBed::Responder& responder) {
        mBed.plug("1-1", UsbDeviceSpec::phoneOfApple(kPhone), responder);
        EXPECT_TRUE(mHost->waitFor("attached " + std::to_string(kPhone)));
        const sp<usb::UsbDeviceItf> phone = mManager->queryUsbDevice(0);
        EXPECT_NE(nullptr, phone);
        return phone != nullptr ? phone->getId() : 0;
    }

    LogCapture mLog;
    // The bed of devices comes after it: from then on this process sees another "/sys".
    AttributeBed mAttributes;
    TestBed mBed;
    sp<UeventObserver> mUevents = new UeventObserver();
    sp<EventMemory> mEvents = new EventMemory();
    sp<HostMemory> mHost = new HostMemory();
    sp<UsbManagerImpl> mManager;
};

}  // namespace

TEST_F(UsbManagerFindingsTest, AHubTooDeepIsAnEvent) {
    start();
    for (int depth = 2; depth <= 7; ++depth) {
        mBed.plug(chainPort(depth), UsbDeviceSpec::hub());
    }
    ASSERT_TRUE(mEvents->waitFor("event 1 0"));
}

TEST_F(UsbManagerFindingsTest, APhoneThatIsSilentHoldsUpNobodyElse) {
    mManager->switchUsbState(1);
    start();
    Gate answer;
    const uint32_t id = plugPhone([&answer](const UsbRequest&) {
        answer.wait();
        return UsbAnswer::stall();
    });
    auto asked = std::async(std::launch::async,
                            [this, id] { return mManager->appleDeviceRoleSwitch(static_cast<int>(id)); });
    ASSERT_TRUE(eventually([this] { return !mBed.requests("1-1").empty(); }));

    // Each would fail, or wait, if the request kept the list.
    EXPECT_EQ(1, mManager->getUsbDeviceCount());
    EXPECT_NE(nullptr, mManager->queryUsbDevice(0));
    EXPECT_EQ(79, mManager->getCertificationMode());
    answer.open();
    EXPECT_GT(0, asked.get());
    EXPECT_THAT(mAttributes.take(), Not(Contains("/sys/devices/platform/vx4410-udc.1/full_spd=s")));
}

TEST_F(UsbManagerFindingsTest, FindingsOfTheTestModeAreEvents) {
    store('T');
    mManager.clear();
    make();
    start();
    UsbDeviceSpec odd;
    odd.deviceClass = 31;
    mBed.plug("1-1", odd);
    ASSERT_TRUE(mEvents->waitFor("event 2 3"));
    EXPECT_THAT(mEvents->calls(), ElementsAre("event 2 3"));
}

TEST_F(UsbManagerFindingsTest, AFindingMayHaveTheManagerStartedAnew) {
    class Restarter : public EventMemory {
      public:
        int32_t onEvent(int32_t event, int32_t value) override {
            const sp<UsbManagerImpl> manager = mManager.promote();
            manager->shutdown();
            std::thread([&manager] { manager->startup(); }).join();
            return EventMemory::onEvent(event, value);
        }
        android::wp<UsbManagerImpl> mManager;
    };
    const sp<Restarter> restarter = new Restarter();
    mEvents = restarter;
    store('T');
    mManager.clear();
    make();
    restarter->mManager = mManager;
    start();
    UsbDeviceSpec odd;
    odd.deviceClass = 31;
    mBed.plug("1-1", odd);
    ASSERT_TRUE(mEvents->waitFor("event 2 3"));
    ASSERT_TRUE(mHost->waitFor("attached " + std::to_string(odd.product))) << "by the new start's first scan";
    EXPECT_EQ(1, countThreads("UsbDetector"));
    EXPECT_THAT(mEvents->calls(), ElementsAre("event 2 3"));
}
