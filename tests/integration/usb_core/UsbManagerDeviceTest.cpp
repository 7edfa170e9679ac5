// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The USB manager's core with devices that answer.
 */
#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libusb-1.0/libusb.h>
#include <vx_vendor_data.h>

#include <future>
#include <thread>

#include "tests/integration/usb/TestBed.h"
#include "tests/integration/usb_core/ClientRecorder.h"
#include "tests/integration/usb_manager/AttributeBed.h"
#include "tests/unit/device/FakeUevents.h"
#include "tests/unit/support/LogCapture.h"
#include "usb/UsbManagerImpl.h"

using android::sp;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::Pair;
using usb::UsbDeviceItf;
using usb::UsbManagerImpl;

namespace {

constexpr const char* kTag = "UsbManagerImpl";
constexpr int kModeItem = 173;
constexpr uint8_t kRoleSwitch = 0x51;
constexpr uint8_t kCarplaySupport = 0x53;
constexpr uint8_t kAccessoryProtocol = 0x33;

constexpr const char* kBecomeDevice = "/sys/devices/platform/vx4410-udc.1/full_spd=s";

/** A phone that supports CarPlay or not, takes the role switch and has an accessory protocol or not. */
UsbAnswer phone(const UsbRequest& request, bool supports) {
    switch (request.request) {
        case kRoleSwitch:
            return UsbAnswer::ok();
        case kCarplaySupport:
        case kAccessoryProtocol:
            return UsbAnswer::ok(std::string(supports ? "\1" : "\0", 1) + std::string(3, '\0'));
        default:
            return UsbAnswer::stall();
    }
}

/** The hub at a depth of a chain on bus 1; the root hub is at depth 1. */
std::string chainPort(int depth) {
    std::string port = "1-1";
    for (int i = 2; i < depth; ++i) {
        port += ".1";
    }
    return port;
}

class UsbManagerDeviceTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ("", mAttributes.problem());
        store('O');
        mBed = std::make_unique<TestBed>();
        make();
    }

    void TearDown() override {
        if (mManager != nullptr) {
            mManager->shutdown();
            mManager.clear();
        }
        mBed.reset();
        store('O');
    }

    static void store(char mode) { ASSERT_EQ(0, vx_vendor_data_write_string(&mode, kModeItem, 1)); }

    void make() {
        mManager = new UsbManagerImpl(mUevents.observer());
        mManager->setNotifier(mEvents);
        mManager->setHostNotifier(mHost);
    }

    /** Plugs a phone and waits for it. @return its identifier */
    uint32_t plugPhone(const TestBed::Responder& responder, const std::string& port = "1-1") {
        const size_t before = mHost->attached.all().size();
        mBed->plug(port, UsbDeviceSpec::phoneOfApple(), responder);
        EXPECT_TRUE(mHost->attached.waitFor(before + 1));
        return mHost->attached.all().back()->getId();
    }

    std::vector<LogLine> lines() {
        std::vector<LogLine> kept;
        for (const LogLine& line : mLog.take(kTag)) {
            if (line.text.rfind("[UEventPublisher]", 0) != 0) {
                kept.push_back(line);
            }
        }
        return kept;
    }

    LogCapture mLog;
    AttributeBed mAttributes;
    std::unique_ptr<TestBed> mBed;
    FakeUevents mUevents;
    sp<EventRecorder> mEvents = new EventRecorder();
    sp<HostRecorder> mHost = new HostRecorder();
    sp<UsbManagerImpl> mManager;
};

}  // namespace

TEST_F(UsbManagerDeviceTest, ClientsHearOfDevicesThatComeAndGo) {
    mManager->startup();
    mBed->plug("1-1", UsbDeviceSpec::stick());
    ASSERT_TRUE(mHost->attached.waitFor(1));
    const sp<UsbDeviceItf> stick = mHost->attached.all()[0];
    EXPECT_EQ(1U, stick->getId());
    EXPECT_EQ(0x1234U, stick->getVendorId());
    EXPECT_EQ(0x5678U, stick->getProductId());
    EXPECT_EQ(50U, stick->getConfig()->getMaxPower());
    EXPECT_TRUE(eventually([this] { return mManager->getUsbDeviceCount() == 1; }));
    EXPECT_EQ(stick, mManager->queryUsbDevice(0));
    EXPECT_EQ(nullptr, mManager->queryUsbDevice(1));

    mBed->unplug("1-1");
    ASSERT_TRUE(mHost->detached.waitFor(1));
    EXPECT_EQ(stick, mHost->detached.all()[0]);
    EXPECT_TRUE(eventually([this] { return mManager->getUsbDeviceCount() == 0; }));
    EXPECT_EQ(nullptr, mManager->queryUsbDevice(0));
}

TEST_F(UsbManagerDeviceTest, TheFirstScanFindsWhatIsThere) {
    mBed->plug("1-1", UsbDeviceSpec::hub());
    mBed->plug("1-1.1", UsbDeviceSpec::stick());
    for (int round = 1; round <= 3; ++round) {
        mManager->startup();
        ASSERT_TRUE(mHost->attached.waitFor(static_cast<size_t>(2 * round))) << round;
        mManager->shutdown();
        EXPECT_EQ(0, mManager->getUsbDeviceCount()) << "forgotten, and none told as gone";
    }
    EXPECT_THAT(mHost->detached.all(), IsEmpty());
    std::vector<uint32_t> ids;
    for (const sp<UsbDeviceItf>& device : mHost->attached.all()) {
        ids.push_back(device->getId());
    }
    EXPECT_THAT(ids, ElementsAre(1, 2, 3, 4, 5, 6));
    for (const char* name : {"UsbManagerQueue", "UsbDetectorQueu"}) {
        EXPECT_TRUE(eventually([name] { return countThreads(name) == 0; })) << name;
    }
}

TEST_F(UsbManagerDeviceTest, AnArrivalWritesTheAndroidModeAgain) {
    mManager->startup();
    mAttributes.take();
    plugPhone([](const UsbRequest&) { return UsbAnswer::stall(); });
    ASSERT_TRUE(mAttributes.waitForWrites(1));
    EXPECT_THAT(mAttributes.take(), ElementsAre("/sys/module/usbcore/parameters/android_default_mode=1\n"));
}

TEST_F(UsbManagerDeviceTest, AHubTooDeepIsAnEvent) {
    mManager->startup();
    for (int depth = 2; depth <= 7; ++depth) {
        mBed->plug(chainPort(depth), UsbDeviceSpec::hub());
    }
    ASSERT_TRUE(mEvents->heard.waitFor(1));
    EXPECT_THAT(mEvents->heard.all(), Contains(Pair(1, 0)));
}

TEST_F(UsbManagerDeviceTest, APhoneForCarplayBecomesTheHost) {
    mManager->switchUsbState(0);
    mManager->startup();
    const uint32_t id = plugPhone([](const UsbRequest& request) { return phone(request, true); });
    ASSERT_TRUE(mAttributes.waitForWrites(1));
    mAttributes.take();
    lines();

    EXPECT_EQ(0, mManager->appleDeviceRoleSwitch(static_cast<int>(id)));
    EXPECT_THAT(mAttributes.take(), Contains(kBecomeDevice));
    EXPECT_THAT(lines(), Contains(LogLine{ANDROID_LOG_WARN, kTag,
                                          "echo -n s > /sys/devices/platform/vx4410-udc.1/full_spd"}));
    const std::vector<UsbRequest> requests = mBed->requests("1-1");
    ASSERT_EQ(2U, requests.size());
    EXPECT_EQ(kCarplaySupport, requests[0].request);
    EXPECT_EQ(kRoleSwitch, requests[1].request);
    EXPECT_EQ(1, requests[1].value);
}

TEST_F(UsbManagerDeviceTest, APhoneWithoutCarplayStays) {
    mManager->switchUsbState(0);
    mManager->startup();
    const uint32_t id = plugPhone([](const UsbRequest& request) { return phone(request, false); });
    EXPECT_EQ(-1, mManager->appleDeviceRoleSwitch(static_cast<int>(id)));
    EXPECT_THAT(lines(), Contains(LogLine{ANDROID_LOG_INFO, kTag, "AppleDevice roleSwitch fail!"}));
    EXPECT_EQ(1U, mBed->requests("1-1").size());
    EXPECT_THAT(mAttributes.take(), Not(Contains(kBecomeDevice)));
}

TEST_F(UsbManagerDeviceTest, AnAccessoryNeedsNoCarplay) {
    mManager->switchUsbState(1);
    mManager->startup();
    const uint32_t id = plugPhone([](const UsbRequest& request) { return phone(request, false); });
    EXPECT_EQ(0, mManager->appleDeviceRoleSwitch(static_cast<int>(id)));
    EXPECT_THAT(mAttributes.take(), Contains(kBecomeDevice));
    const std::vector<UsbRequest> requests = mBed->requests("1-1");
    ASSERT_EQ(1U, requests.size());
    EXPECT_EQ(kRoleSwitch, requests[0].request);
    EXPECT_EQ(0, requests[0].value);
}

TEST_F(UsbManagerDeviceTest, APhoneThatRefusesGivesTheError) {
    mManager->switchUsbState(1);
    mManager->startup();
    const uint32_t id = plugPhone([](const UsbRequest&) { return UsbAnswer::stall(); });
    EXPECT_EQ(LIBUSB_ERROR_PIPE, mManager->appleDeviceRoleSwitch(static_cast<int>(id)));
    EXPECT_THAT(mAttributes.take(), Not(Contains(kBecomeDevice)));
}

TEST_F(UsbManagerDeviceTest, PhonesAreAskedWhatTheySupport) {
    mManager->startup();
    const uint32_t yes = plugPhone([](const UsbRequest& request) { return phone(request, true); });
    const uint32_t no = plugPhone([](const UsbRequest& request) { return phone(request, false); }, "1-2");
    EXPECT_TRUE(mManager->isAppleCarplaySupport(yes));
    EXPECT_FALSE(mManager->isAppleCarplaySupport(no));
    EXPECT_TRUE(mManager->checkAoaModeSupport(yes));
    EXPECT_FALSE(mManager->checkAoaModeSupport(no));
    EXPECT_FALSE(mManager->checkAoaModeSupport(no + 1));
}

TEST_F(UsbManagerDeviceTest, APhoneThatIsSilentHoldsUpNobodyElse) {
    mManager->switchUsbState(1);
    mManager->startup();
    Gate answer;
    const uint32_t id = plugPhone([&answer](const UsbRequest&) {
        answer.wait();
        return UsbAnswer::stall();
    });
    auto asked = std::async(std::launch::async,
                            [this, id] { return mManager->appleDeviceRoleSwitch(static_cast<int>(id)); });
    ASSERT_TRUE(eventually([this] { return !mBed->requests("1-1").empty(); }));

    // Each would fail, or wait, if the request kept the list.
    EXPECT_EQ(1, mManager->getUsbDeviceCount());
    EXPECT_NE(nullptr, mManager->queryUsbDevice(0));
    EXPECT_EQ(79, mManager->getCertificationMode());
    answer.open();
    EXPECT_GT(0, asked.get());
    EXPECT_THAT(mAttributes.take(), Not(Contains(kBecomeDevice)));
}

TEST_F(UsbManagerDeviceTest, AClientMayAskAndStopFromInsideItsCallBack) {
    std::atomic<bool> asked{false};
    mHost->inside = [this, &asked] {
        if (!asked.exchange(true)) {
            EXPECT_EQ(1, mManager->getUsbDeviceCount());
            EXPECT_NE(nullptr, mManager->queryUsbDevice(0));
            // From another thread, as another client's request.
            std::thread([this] { EXPECT_EQ(1, mManager->getUsbDeviceCount()); }).join();
            EXPECT_EQ(0, mManager->shutdown());
        }
    };
    mManager->startup();
    plugPhone([](const UsbRequest&) { return UsbAnswer::stall(); });
    EXPECT_TRUE(eventually([this] { return mManager->getUsbDeviceCount() == 0; }));
    EXPECT_TRUE(eventually([] { return countThreads("UsbDetectorQueu") == 0; }));
}

TEST_F(UsbManagerDeviceTest, FindingsOfTheTestModeAreEvents) {
    store('T');
    mManager.clear();
    make();
    mManager->startup();
    UsbDeviceSpec odd;
    odd.deviceClass = 31;
    mBed->plug("1-1", odd);
    ASSERT_TRUE(mEvents->heard.waitFor(1));
    EXPECT_THAT(mEvents->heard.all(), ElementsAre(Pair(2, 3)));
}
