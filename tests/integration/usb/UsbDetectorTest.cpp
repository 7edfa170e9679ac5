// SPDX-License-Identifier: Apache-2.0
#include "usb/UsbDetector.h"

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libusb-1.0/libusb.h>

#include <algorithm>
#include <memory>
#include <thread>

#include "tests/integration/usb/Recorder.h"
#include "tests/integration/usb/TestBed.h"
#include "tests/integration/usb/UsbFaults.h"
#include "tests/unit/support/LogCapture.h"
#include "usb/UsbDetectorImpl.h"
#include "usb/UsbDetectorMessageHandler.h"
#include "usb/UsbDeviceBuilder.h"

namespace {

using android::sp;
using ::testing::UnorderedElementsAre;
using usb::UsbDetector;
using usb::UsbDeviceItf;

constexpr const char* kTag = "UsbDetector";
constexpr nsecs_t kShort = 5000000;
/** A debounce that never passes in a test. */
constexpr nsecs_t kNever = 3600000000000;

LogLine error(const std::string& text) {
    return {ANDROID_LOG_ERROR, kTag, text};
}
LogLine warning(const std::string& text) {
    return {ANDROID_LOG_WARN, kTag, text};
}
LogLine info(const std::string& text) {
    return {ANDROID_LOG_INFO, kTag, text};
}

std::string shown(const void* pointer) {
    char text[16];
    snprintf(text, sizeof(text), "0x%08x", static_cast<unsigned>(reinterpret_cast<uintptr_t>(pointer)));
    return text;
}

/** A detector in a machine with one bus. */
class UsbDetectorTest : public ::testing::Test {
  public:
    UsbDetectorTest() { make(kShort); }

    ~UsbDetectorTest() override {
        if (mDetector != nullptr) {
            mDetector->stop();
        }
    }

    void make(nsecs_t debounce) {
        mDetector = new UsbDetector(debounce);
        mDetector->setNotifier(mNotifier);
        mDetector->setHandler(mHandler);
        mDetector->setClassPerInterfaceHandler(mClassHandler);
    }

    /** Starts and waits for the first scan. */
    void start() {
        const int before = faults().lists;
        mDetector->start();
        ASSERT_TRUE(eventually([before] { return faults().lists > before; }));
    }

    static UsbFaults& faults() { return UsbFaults::instance(); }

    bool logged(const LogLine& line) { return mLog.waitFor(line, kTestLimit); }
    size_t countLogged(const LogLine& line) {
        return mLog.count([&line](const LogLine& candidate) { return candidate == line; });
    }

    /** The device that the detector has of a product; waits for it. */
    sp<UsbDeviceItf> attachedProduct(uint32_t product) { return mNotifier->waitForProduct(product); }

    /**
     * Plugs a phone, whose arrival leads to a scan at once. All that was posted before it has been handled,
     * or was taken back by it, when this returns.
     */
    void fence(const std::string& port) {
        static uint16_t sProduct = 0x1200;
        const uint16_t product = ++sProduct;
        mBed.plug(port, UsbDeviceSpec::phoneOfApple(product));
        ASSERT_NE(nullptr, attachedProduct(product));
    }

    TestBed mBed;
    LogCapture mLog;
    sp<NotifierRecorder> mNotifier = new NotifierRecorder();
    sp<HandlerRecorder> mHandler = new HandlerRecorder();
    sp<HandlerRecorder> mClassHandler = new HandlerRecorder();
    sp<UsbDetector> mDetector;
};

TEST_F(UsbDetectorTest, ReportsWhatWasThereBefore) {
    mBed.plug("1-1", UsbDeviceSpec::stick());
    start();

    ASSERT_TRUE(mNotifier->waitForAttached(1));
    const sp<UsbDeviceItf> device = mNotifier->attached()[0];
    EXPECT_EQ(1U, device->getId());
    EXPECT_EQ(1U, device->getBusNumber());
    EXPECT_EQ(0x1234U, device->getVendorId());
    EXPECT_EQ(0x5678U, device->getProductId());
    EXPECT_EQ(50U, device->getConfig()->getMaxPower());
    ASSERT_EQ(1U, device->getInterfaceCount());
    EXPECT_EQ(8U, device->getInterface(0)->getInterfaceClass());
    EXPECT_EQ(6U, device->getInterface(0)->getInterfaceSubClass());
    EXPECT_EQ(80U, device->getInterface(0)->getInterfaceProtocol());
    ASSERT_TRUE(eventually([this] { return mDetector->count() == 1; }));
    EXPECT_EQ(device.get(), mDetector->query(0).get());
    EXPECT_EQ(0U, mHandler->calls().size()) << "no event, no call";
}

TEST_F(UsbDetectorTest, ReportsArrivalAndRemoval) {
    start();
    mBed.plug("1-1", UsbDeviceSpec::stick());
    ASSERT_TRUE(logged(info("notify attach\n")));
    ASSERT_EQ(1U, mNotifier->attached().size());
    const sp<UsbDeviceItf> device = mNotifier->attached()[0];
    const std::string pointer = shown(device->getDevice());
    std::vector<LogLine> lines = mLog.take(kTag);
    ASSERT_EQ(5U, lines.size());
    EXPECT_EQ(warning("skip root usb hub[9]\n"), lines[0]) << "of the first scan";
    EXPECT_EQ(info("attach devce [" + pointer + "] class[0]\n"), lines[1]);
    EXPECT_THAT(
        std::vector<LogLine>(lines.begin() + 2, lines.begin() + 4),
        UnorderedElementsAre(warning("skip root usb hub[9]\n"), info("add device[" + pointer + "]\n")));
    EXPECT_EQ(info("notify attach\n"), lines[4]);

    mBed.unplug("1-1");
    ASSERT_TRUE(logged(info("notify dettach\n")));
    ASSERT_EQ(1U, mNotifier->detached().size());
    EXPECT_EQ(device.get(), mNotifier->detached()[0].get());
    EXPECT_EQ((std::vector<LogLine>{
                  info("detach devce [" + pointer + "] class[0]\n"),
                  warning("skip root usb hub[9]\n"),
                  info("notify dettach\n"),
              }),
              mLog.take(kTag));
    EXPECT_EQ(0U, mDetector->count());
    EXPECT_EQ(1U, device->getBusNumber()) << "the record outlives its device";
}

TEST_F(UsbDetectorTest, HandlersHearOfEveryEventOnTheEventThread) {
    start();
    mBed.plug("1-1", UsbDeviceSpec::stick());
    ASSERT_TRUE(mNotifier->waitForAttached(1));
    UsbDeviceSpec odd;
    odd.deviceClass = 0xFF;
    mBed.plug("1-2", odd);
    mBed.plug("1-3", UsbDeviceSpec::hub());
    mBed.unplug("1-1");
    ASSERT_TRUE(mHandler->waitForCalls(4));
    ASSERT_TRUE(mNotifier->waitForDetached(1));

    const auto all = mHandler->calls();
    const auto perInterface = mClassHandler->calls();
    ASSERT_EQ(4U, all.size());
    EXPECT_TRUE(all[0].attach && all[1].attach && all[2].attach);
    EXPECT_FALSE(all[3].attach);
    EXPECT_EQ(all[0].device, all[3].device);
    ASSERT_EQ(2U, perInterface.size()) << "neither the hub nor the unknown class";
    EXPECT_TRUE(perInterface[0].attach);
    EXPECT_FALSE(perInterface[1].attach);
    EXPECT_EQ(all[0].device, perInterface[0].device);
    EXPECT_EQ(all[0].context, perInterface[0].context);
    EXPECT_NE(nullptr, all[0].context);
    EXPECT_EQ("UsbDetector", all[0].thread);
    EXPECT_EQ(mNotifier->detached()[0]->getDevice(), all[0].device);
}

TEST_F(UsbDetectorTest, LogsWhatHandlersAndNotifierRefuse) {
    mHandler->result = -1;
    mClassHandler->result = 1;
    mNotifier->result = -5;
    start();
    mBed.plug("1-1", UsbDeviceSpec::stick());
    EXPECT_TRUE(logged(error("hotplug_callback_attach 373:check return value failed")));
    EXPECT_TRUE(logged(error("hotplug_callback_attach 402:check return value failed")));
    EXPECT_TRUE(logged(error("handleDeviceUpdate 728:check return value failed")));
    EXPECT_TRUE(logged(info("notify attach\n")));
    mBed.unplug("1-1");
    EXPECT_TRUE(logged(error("hotplug_callback_detach 430:check return value failed")));
    EXPECT_TRUE(logged(error("hotplug_callback_detach 459:check return value failed")));
    EXPECT_TRUE(logged(error("handleDeviceUpdate 696:check return value failed")));
    EXPECT_TRUE(logged(info("notify dettach\n")));
}

TEST_F(UsbDetectorTest, WorksWithoutHandlersAndNotifier) {
    mDetector = new UsbDetector(kShort);
    start();
    mBed.plug("1-1", UsbDeviceSpec::stick());
    ASSERT_TRUE(eventually([this] { return mDetector->count() == 1; }));
    mBed.unplug("1-1");
    ASSERT_TRUE(eventually([this] { return mDetector->count() == 0; }));
    EXPECT_EQ(0U, countLogged(error("handleDeviceUpdate 728:check return value failed")));
}

TEST_F(UsbDetectorTest, MessagesBecomeEvents) {
    const sp<usb::UsbDetectorImpl> detector = new usb::UsbDetectorImpl(kShort);
    const sp<usb::UsbDetectorMessageHandler> handler = new usb::UsbDetectorMessageHandler(detector);
    handler->handleMessage(android::Message(5));
    handler->handleMessage(android::Message(6));

    detector->setNotifier(mNotifier);
    handler->handleMessage(android::Message(5));
    handler->handleMessage(android::Message(6));
    EXPECT_EQ((std::vector<std::pair<int, int>>{{1, 0}, {9, 0}}), mNotifier->events());
    EXPECT_TRUE(mLog.take(kTag).empty());

    mNotifier->result = 1;
    handler->handleMessage(android::Message(5));
    EXPECT_EQ((std::vector<LogLine>{error("handleMessage 771:check return value failed")}), mLog.take(kTag));
    handler->handleMessage(android::Message(6));
    EXPECT_TRUE(mLog.take(kTag).empty());

    handler->handleMessage(android::Message(7));
    EXPECT_EQ((std::vector<LogLine>{warning("unknown message[7]\n")}), mLog.take(kTag));
    // Without a context there is nothing to scan.
    handler->handleMessage(android::Message(4));
    EXPECT_TRUE(mLog.take(kTag).empty());
}

TEST_F(UsbDetectorTest, MessageHandlerNeedsItsDetector) {
    EXPECT_DEATH(sp<usb::UsbDetectorMessageHandler>(new usb::UsbDetectorMessageHandler(nullptr)),
                 "assertion \"mDetector\" failed: file \"UsbDetector\"");
}

// --- when a scan comes ---

/** Holds the event thread in its first event while the test plugs and unplugs; what follows then comes at
 * once. */
class GatedEvents {
  public:
    explicit GatedEvents(HandlerRecorder& handler) {
        handler.hook = [this](const HandlerRecorder::Call& /*call*/) { gate.wait(); };
    }
    Gate gate;
};

TEST_F(UsbDetectorTest, EventsWithinASecondMakeOneScan) {
    make(UsbDetector::kDebounce);
    GatedEvents events(*mHandler);
    start();
    const int before = faults().lists;
    mBed.plug("1-1", UsbDeviceSpec::stick());
    ASSERT_TRUE(mHandler->waitForCalls(1));
    mBed.plug("1-2", UsbDeviceSpec::hub());
    mBed.plug("1-2.1", UsbDeviceSpec::stick());
    const auto opened = std::chrono::steady_clock::now();
    events.gate.open();

    ASSERT_TRUE(mNotifier->waitForAttached(3));
    const auto reported = std::chrono::steady_clock::now();
    EXPECT_EQ(3U, mHandler->calls().size());
    EXPECT_EQ(before + 1, faults().lists);
    EXPECT_GE(reported - opened, std::chrono::seconds(1));
}

TEST_F(UsbDetectorTest, PhonesOfAppleAreTakenAtOnce) {
    make(kNever);
    start();
    const int before = faults().lists;
    mBed.plug("1-1", UsbDeviceSpec::stick());
    ASSERT_TRUE(mHandler->waitForCalls(1));
    mBed.plug("1-2", UsbDeviceSpec::phoneOfApple(0x1300));
    ASSERT_TRUE(mHandler->waitForCalls(2));
    UsbDeviceSpec other = UsbDeviceSpec::phoneOfApple(0x12A8);
    other.vendor = 0x05AD;
    mBed.plug("1-3", other);
    ASSERT_TRUE(mHandler->waitForCalls(3));
    EXPECT_EQ(before, faults().lists);

    mBed.plug("1-4", UsbDeviceSpec::phoneOfApple(0x12FF));
    EXPECT_TRUE(mNotifier->waitForAttached(4)) << "the scan finds all";
    EXPECT_EQ(before + 1, faults().lists);
}

TEST_F(UsbDetectorTest, TheirDepartureIsNotHurried) {
    make(kNever);
    mBed.plug("1-1", UsbDeviceSpec::phoneOfApple(0x1234));
    start();
    ASSERT_TRUE(mNotifier->waitForAttached(1));
    const int before = faults().lists;
    mBed.unplug("1-1");
    ASSERT_TRUE(mHandler->waitForCalls(1));
    fence("1-2");
    EXPECT_EQ(before + 1, faults().lists) << "the fence's own";
    EXPECT_EQ(1U, mNotifier->detached().size());
}

// --- classes and hubs ---

TEST_F(UsbDetectorTest, UnknownClassesAreNotTaken) {
    UsbDeviceSpec storage;
    storage.deviceClass = 8;
    mBed.plug("1-1", storage);
    start();
    EXPECT_TRUE(logged(warning("unknown device class[8]\n"))) << "of the scan";
    UsbDeviceSpec vendor;
    vendor.deviceClass = 0xFF;
    mBed.plug("1-2", vendor);
    EXPECT_TRUE(logged(warning("unknown device class[255]\n"))) << "of the event";
    UsbDeviceSpec diagnostic;
    diagnostic.deviceClass = 31;
    diagnostic.product = 0x31;
    mBed.plug("1-3", diagnostic);
    ASSERT_NE(nullptr, attachedProduct(0x31));
    ASSERT_EQ(1U, mNotifier->attached().size());
    EXPECT_EQ(31U, mNotifier->attached()[0]->getDeviceClass());
    EXPECT_EQ(2U, countLogged(warning("unknown device class[8]\n"))) << "of both scans";
    EXPECT_EQ(2U, countLogged(warning("unknown device class[255]\n"))) << "of event and second scan";
    mBed.unplug("1-2");
    ASSERT_TRUE(mHandler->waitForCalls(3));
    fence("1-4");
    EXPECT_EQ(0U, mNotifier->detached().size());
    EXPECT_EQ(3U, countLogged(warning("unknown device class[255]\n"))) << "of the departure";
}

TEST_F(UsbDetectorTest, RootHubsAreSkipped) {
    start();
    ASSERT_TRUE(logged(warning("skip root usb hub[9]\n")));
    mLog.take();
    mBed.addBus(2);
    ASSERT_TRUE(logged(warning("skip root usb hub[9]\n")));
    fence("1-1");
    EXPECT_EQ(3U, countLogged(warning("skip root usb hub[9]\n"))) << "event, and both in the fence's scan";
    EXPECT_EQ(1U, mNotifier->attached().size());
    EXPECT_EQ(1U, mDetector->count());
    mBed.unplug("usb2");
    ASSERT_TRUE(mHandler->waitForCalls(3));
    EXPECT_TRUE(eventually([this] { return countLogged(warning("skip root usb hub[9]\n")) == 4; }));
}

/** Ports of a chain of hubs below root hub 1; the first has depth 2. */
std::string chainPort(int depth) {
    std::string port = "1-1";
    for (int i = 2; i < depth; ++i) {
        port += ".1";
    }
    return port;
}

TEST_F(UsbDetectorTest, HubChainsAreTakenDownToDepthSix) {
    start();
    for (int depth = 2; depth <= 8; ++depth) {
        const size_t before = mHandler->calls().size();
        mBed.plug(chainPort(depth), UsbDeviceSpec::hub());
        ASSERT_TRUE(mHandler->waitForCalls(before + 1));
        const std::string pointer = shown(mHandler->calls()[before].device);
        const std::string number = "num[" + std::to_string(depth) + "]\n";
        if (depth <= 6) {
            EXPECT_TRUE(logged(info("add devce  HUB [" + pointer + "] " + number)));
            EXPECT_TRUE(mNotifier->waitForAttached(static_cast<size_t>(depth) - 1));
            EXPECT_TRUE(logged(info("add devce  HUB [" + pointer + "]\n"))) << "of the scan";
        } else {
            EXPECT_TRUE(logged(warning("HUB [" + pointer + "] is exceed max " + number)));
            EXPECT_TRUE(mNotifier->waitForEvents(static_cast<size_t>(depth) - 6));
        }
    }
    EXPECT_EQ((std::vector<std::pair<int, int>>{{1, 0}, {1, 0}}), mNotifier->events());
    EXPECT_EQ(5U, mNotifier->attached().size());
    EXPECT_EQ(5U, mDetector->count());

    // A device at the deepest hub that is taken.
    mBed.plug(chainPort(6) + ".2", UsbDeviceSpec::stick());
    EXPECT_NE(nullptr, attachedProduct(0x5678));
}

TEST_F(UsbDetectorTest, HubTooDeepMakesNoScan) {
    for (int depth = 2; depth <= 6; ++depth) {
        mBed.plug(chainPort(depth), UsbDeviceSpec::hub());
    }
    start();
    ASSERT_TRUE(mNotifier->waitForAttached(5));
    const int before = faults().lists;
    mBed.plug(chainPort(7), UsbDeviceSpec::hub());
    ASSERT_TRUE(mNotifier->waitForEvents(1));
    EXPECT_EQ(before, faults().lists);
    fence("1-2");
    EXPECT_EQ(before + 1, faults().lists);
}

TEST_F(UsbDetectorTest, HubTooDeepIsReportedAfterTheDebounce) {
    make(UsbDetector::kDebounce);
    for (int depth = 2; depth <= 6; ++depth) {
        mBed.plug(chainPort(depth), UsbDeviceSpec::hub());
    }
    start();
    ASSERT_TRUE(mNotifier->waitForAttached(5));
    mBed.plug(chainPort(7), UsbDeviceSpec::hub());
    ASSERT_TRUE(mNotifier->waitForEvents(1));
    const auto reported = std::chrono::steady_clock::now();
    EXPECT_GE(reported - mHandler->calls()[0].time, std::chrono::seconds(1));
}

TEST_F(UsbDetectorTest, HubChainDetaches) {
    for (int depth = 2; depth <= 8; ++depth) {
        mBed.plug(chainPort(depth), UsbDeviceSpec::hub());
    }
    start();
    ASSERT_TRUE(mNotifier->waitForAttached(7)) << "a scan does not look at depth";
    mBed.unplug("1-1");
    ASSERT_TRUE(mHandler->waitForCalls(7));
    ASSERT_TRUE(mNotifier->waitForDetached(7));
    const auto calls = mHandler->calls();
    ASSERT_EQ(7U, calls.size());
    for (int depth = 8; depth >= 2; --depth) {
        const std::string pointer = shown(calls[static_cast<size_t>(8 - depth)].device);
        const std::string number = "num[" + std::to_string(depth) + "]\n";
        if (depth >= 6) {
            EXPECT_TRUE(logged(warning("HUB [" + pointer + "] is exceed max " + number)));
        } else {
            EXPECT_TRUE(logged(info("add devce  HUB [" + pointer + "] " + number)));
        }
    }
    EXPECT_EQ(0U, mNotifier->events().size());
    EXPECT_EQ(0U, mDetector->count());
}

TEST_F(UsbDetectorTest, DetachedHubAtDepthSixMakesNoScan) {
    for (int depth = 2; depth <= 6; ++depth) {
        mBed.plug(chainPort(depth), UsbDeviceSpec::hub());
    }
    start();
    ASSERT_TRUE(mNotifier->waitForAttached(5));
    const int before = faults().lists;
    mBed.unplug(chainPort(6));
    ASSERT_TRUE(mHandler->waitForCalls(1));
    const std::string pointer = shown(mHandler->calls()[0].device);
    ASSERT_TRUE(logged(warning("HUB [" + pointer + "] is exceed max num[6]\n")));
    EXPECT_EQ(before, faults().lists);
    fence("1-2");
    EXPECT_EQ(before + 1, faults().lists);
    EXPECT_EQ(1U, mNotifier->detached().size()) << "found by the fence's scan";
    EXPECT_EQ(0U, mNotifier->events().size());
}

TEST_F(UsbDetectorTest, DepartureTakesTheReportOfADeepHubBack) {
    make(UsbDetector::kDebounce);
    for (int depth = 2; depth <= 6; ++depth) {
        mBed.plug(chainPort(depth), UsbDeviceSpec::hub());
    }
    GatedEvents events(*mHandler);
    start();
    ASSERT_TRUE(mNotifier->waitForAttached(5));
    mBed.plug(chainPort(7), UsbDeviceSpec::hub());
    ASSERT_TRUE(mHandler->waitForCalls(1));
    mBed.unplug(chainPort(7));
    events.gate.open();
    ASSERT_TRUE(mHandler->waitForCalls(2));
    // The same again, left in: its report comes later than the one taken back would have.
    mBed.plug(chainPort(7), UsbDeviceSpec::hub());
    ASSERT_TRUE(mNotifier->waitForEvents(1));
    EXPECT_EQ(1U, mNotifier->events().size());
}

// --- what goes wrong ---

TEST_F(UsbDetectorTest, DeviceMayVanishBetweenListAndOpen) {
    start();
    std::atomic<bool> done{false};
    faults().setAfterList([this, &done] {
        if (!done.exchange(true)) {
            mBed.vanish("1-1");
        }
    });
    mBed.plug("1-1", UsbDeviceSpec::stick());
    ASSERT_TRUE(logged(error("libusb open dev failed!")));
    ASSERT_TRUE(mNotifier->waitForAttached(1));
    faults().setAfterList(nullptr);
    EXPECT_EQ(1U, mNotifier->attached()[0]->getInterfaceCount()) << "known from the cached descriptors";
    mBed.unplug("1-1");
    ASSERT_TRUE(mNotifier->waitForDetached(1));
    EXPECT_EQ(0U, mDetector->count());
}

TEST_F(UsbDetectorTest, UnreadableDescriptorEndsTheEvent) {
    start();
    mLog.take();
    faults().deviceDescriptorResult = LIBUSB_ERROR_IO;
    mBed.plug("1-1", UsbDeviceSpec::stick());
    ASSERT_TRUE(logged(error("Error getting device descriptor[LIBUSB_ERROR_IO]\n")));
    mBed.unplug("1-1");
    ASSERT_TRUE(mHandler->waitForCalls(2));
    ASSERT_TRUE(eventually(
        [this] { return countLogged(error("Error getting device descriptor[LIBUSB_ERROR_IO]\n")) == 2; }));
    faults().deviceDescriptorResult = 0;
    EXPECT_EQ(2U, mLog.take(kTag).size()) << "no other line";
    EXPECT_EQ(0U, mClassHandler->calls().size());
}

TEST_F(UsbDetectorTest, UnreadableDescriptorEndsTheScan) {
    mBed.plug("1-1", UsbDeviceSpec::stick());
    faults().deviceDescriptorResult = LIBUSB_ERROR_IO;
    mDetector->start();
    ASSERT_TRUE(logged(error("failed to get device descriptor")));
    faults().deviceDescriptorResult = 0;
    fence("1-2");
    EXPECT_EQ(2U, mNotifier->attached().size()) << "the next scan finds it";
}

TEST_F(UsbDetectorTest, MissingListEndsTheScan) {
    faults().deviceListResult = LIBUSB_ERROR_NO_MEM;
    mDetector->start();
    ASSERT_TRUE(logged(error("libusb_get_device_list() failed: LIBUSB_ERROR_NO_MEM\n")));
    faults().deviceListResult = 0;
    fence("1-1");
    EXPECT_EQ(1U, mNotifier->attached().size());
}

TEST_F(UsbDetectorTest, UnconfiguredDeviceHasNoInterface) {
    UsbDeviceSpec spec;
    spec.activeConfig = 0;
    mBed.plug("1-1", spec);
    start();
    ASSERT_TRUE(mNotifier->waitForAttached(1));
    EXPECT_TRUE(logged(warning("fail to getting active configure descriptor[LIBUSB_ERROR_NOT_FOUND]\n")));
    EXPECT_EQ(0U, mNotifier->attached()[0]->getInterfaceCount());
    EXPECT_EQ(0U, mNotifier->attached()[0]->getConfig()->getMaxPower());
    EXPECT_EQ(0x1234U, mNotifier->attached()[0]->getVendorId());
}

TEST_F(UsbDetectorTest, FirstSettingOfEachInterfaceOfTheActiveConfiguration) {
    UsbDeviceSpec spec;
    spec.deviceSubClass = 2;
    spec.deviceProtocol = 1;
    spec.configs = {
        {50, {{0, 0, 8, 6, 80}}},
        {200, {{0, 0, 1, 1, 0}, {1, 0, 1, 2, 7}, {1, 1, 1, 2, 8}, {1, 2, 1, 2, 9}, {2, 0, 3, 0, 0}}}};
    spec.activeConfig = 2;
    mBed.plug("1-1", spec);
    start();
    ASSERT_TRUE(mNotifier->waitForAttached(1));
    const sp<UsbDeviceItf> device = mNotifier->attached()[0];
    EXPECT_EQ(2U, device->getDeviceSubClass());
    EXPECT_EQ(1U, device->getDeviceProtocol());
    EXPECT_EQ(200U, device->getConfig()->getMaxPower());
    std::vector<std::vector<uint32_t>> interfaces;
    for (size_t i = 0; i < device->getInterfaceCount(); ++i) {
        const auto interface = device->getInterface(i);
        interfaces.push_back({interface->getInterfaceClass(), interface->getInterfaceSubClass(),
                              interface->getInterfaceProtocol()});
    }
    EXPECT_THAT(interfaces,
                UnorderedElementsAre(std::vector<uint32_t>{1, 1, 0}, std::vector<uint32_t>{1, 2, 7},
                                     std::vector<uint32_t>{3, 0, 0}));
}

TEST_F(UsbDetectorTest, WaitForEventsMayBeInterrupted) {
    start();
    faults().handleEventsResult = LIBUSB_ERROR_INTERRUPTED;
    mBed.plug("1-1", UsbDeviceSpec::stick());
    ASSERT_TRUE(logged(error("libusb_handle_events() error: LIBUSB_ERROR_INTERRUPTED\n")));
    EXPECT_TRUE(mNotifier->waitForAttached(1));
    fence("1-2");
}

TEST_F(UsbDetectorTest, FailedWaitForEventsEndsTheThread) {
    mBed.plug("1-1", UsbDeviceSpec::phoneOfApple());
    start();
    ASSERT_TRUE(mNotifier->waitForAttached(1));
    const int contexts = faults().contexts;
    faults().handleEventsResult = LIBUSB_ERROR_NO_MEM;
    mBed.plug("1-2", UsbDeviceSpec::hub());  // wakes the thread
    ASSERT_TRUE(logged(error("libusb_handle_events() failed: LIBUSB_ERROR_NO_MEM\n")));
    ASSERT_TRUE(eventually([contexts] { return faults().contexts == contexts - 1; }));
    EXPECT_EQ(0, faults().referencesAtExit);

    // The list stands, but its devices are no more.
    const uint32_t id = mNotifier->attached()[0]->getId();
    EXPECT_FALSE(mDetector->isAppleCarplaySupport(id));
    EXPECT_TRUE(logged(error("Line:[930],libusb open fail errorType:[LIBUSB_ERROR_NO_DEVICE]")));
    mDetector->stop();
    EXPECT_EQ(0U, mDetector->count());
    mDetector->start();
    EXPECT_NE(nullptr, attachedProduct(0x0002));
}

using UsbDetectorDeathTest = UsbDetectorTest;

/** Starts a detector that cannot be started, and shows what was logged before the end. */
void startDoomed(UsbDetector& detector) {
    detector.start();
    Gate never;
    never.wait();
}

TEST_F(UsbDetectorDeathTest, NoLibusb) {
    EXPECT_DEATH(
        {
            faults().initResult = LIBUSB_ERROR_NO_MEM;
            startDoomed(*mDetector);
        },
        "failed to initialise libusb: LIBUSB_ERROR_NO_MEM(.|\n)*"
        "assertion \"detector->usb_ctx\" failed: file \"UsbDetector\"");
}

TEST_F(UsbDetectorDeathTest, NoHotplug) {
    EXPECT_DEATH(
        {
            faults().noHotplug = true;
            startDoomed(*mDetector);
        },
        "Hotplug capabilites are not supported on this platform(.|\n)*"
        "assertion \"detector->usb_ctx\" failed: file \"UsbDetector\"");
}

TEST_F(UsbDetectorDeathTest, NoCallbackForArrivals) {
    EXPECT_DEATH(
        {
            faults().registerResult = LIBUSB_ERROR_NO_MEM;
            startDoomed(*mDetector);
        },
        "Error registering callback \\[LIBUSB_ERROR_NO_MEM\\](.|\n)*"
        "assertion \"detector->usb_ctx\" failed: file \"UsbDetector\"");
}

TEST_F(UsbDetectorDeathTest, NoCallbackForDepartures) {
    EXPECT_DEATH(
        {
            faults().secondRegisterResult = LIBUSB_ERROR_NO_MEM;
            startDoomed(*mDetector);
        },
        "Error registering callback \\[LIBUSB_ERROR_NO_MEM\\](.|\n)*"
        "assertion \"detector->usb_ctx\" failed: file \"UsbDetector\"");
}

}  // namespace
