// SPDX-License-Identifier: Apache-2.0
#include "usb/UsbDetector.h"

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libusb-1.0/libusb.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <thread>

#include "tests/integration/usb/Recorder.h"
#include "tests/integration/usb/TestBed.h"
#include "tests/integration/usb/UsbFaults.h"
#include "tests/integration/usb/UsbHandles.h"
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
/** A limit for handlers that are known not to return. */
constexpr nsecs_t kShortLimit = 50000000;
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
        faults().setAfterList(nullptr);
    }

    void make(nsecs_t debounce) {
        mDetector = new UsbDetector(debounce);
        mDetector->setNotifier(mNotifier);
        mDetector->setHandler(mHandler);
        mDetector->setClassPerInterfaceHandler(mClassHandler);
    }

    /** Starts and waits for the first scan's list. */
    void start() {
        const int before = faults().lists;
        mDetector->start();
        ASSERT_TRUE(eventually([before] { return faults().lists > before; }));
    }

    /** As start(), in a machine without devices: waits for all that the first scan has to say. */
    void startEmpty() {
        start();
        ASSERT_TRUE(logged(warning("skip root usb hub[9]\n")));
    }

    /** Stops a detector of a limit that a loaded machine may pass. */
    void stopInTheEnd() {
        mDetector->stop();
        ASSERT_TRUE(eventually([] { return countThreads("UsbDetector") == 0; }));
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
    startEmpty();
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

TEST_F(UsbDetectorTest, TheRecordComesBeforeTheReportAndGoesBeforeIt) {
    const std::filesystem::path record = std::filesystem::path(getenv("VELTA_PPS_DIR")) / "usbdev.bus.1.dev";
    std::atomic<bool> atAttach{false};
    std::atomic<bool> atDetach{true};
    mNotifier->setAttachHook([&](const sp<UsbDeviceItf>&) { atAttach = exists(record); });
    mNotifier->setDetachHook([&](const sp<UsbDeviceItf>&) { atDetach = exists(record); });
    startEmpty();
    // A test before this one may have stopped with its device attached.
    remove(record);
    mBed.plug("1-1", UsbDeviceSpec::stick());
    ASSERT_TRUE(logged(info("notify attach\n")));
    EXPECT_TRUE(atAttach);
    mBed.unplug("1-1");
    ASSERT_TRUE(logged(info("notify dettach\n")));
    EXPECT_FALSE(atDetach);
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
    const sp<usb::UsbDetectorImpl> detector = new usb::UsbDetectorImpl(kShort, UsbDetector::kStopLimit);
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
    EXPECT_GE(reported - opened, std::chrono::seconds(1));
    // Those of the other two events would have been due as well.
    fence("1-3");
    EXPECT_EQ(before + 2, faults().lists) << "the burst's and the fence's";
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
    mBed.plug("1-1", UsbDeviceSpec::stick());
    Gate vanished;
    faults().setAfterList([this, &vanished] {
        if (!vanished.wait(std::chrono::milliseconds(0))) {
            mBed.vanish("1-1");
            vanished.open();
        }
    });
    mDetector->start();
    ASSERT_TRUE(logged(error("libusb open dev failed!")));
    ASSERT_TRUE(mNotifier->waitForAttached(1));
    ASSERT_TRUE(vanished.wait());
    EXPECT_EQ(1U, mNotifier->attached()[0]->getInterfaceCount()) << "known from the cached descriptors";
    mBed.unplug("1-1");
    ASSERT_TRUE(mNotifier->waitForDetached(1));
    EXPECT_EQ(0U, mDetector->count());
}

TEST_F(UsbDetectorTest, UnreadableDescriptorEndsTheEvent) {
    startEmpty();
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
    EXPECT_TRUE(mNotifier->waitForAttached(2)) << "the next scan finds it";
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

struct AddCase {
    const char* name;
    int add;
    LogLine line;
    size_t attached;
    size_t listed;
};

void PrintTo(const AddCase& testCase, std::ostream* stream) {
    *stream << testCase.name;
}

class UsbMemoryTest : public UsbDetectorTest, public ::testing::WithParamInterface<AddCase> {};

/** A scan that finds one device adds five times: each is refused once. */
TEST_P(UsbMemoryTest, RefusedAdditionIsSurvived) {
    mBed.plug("1-1", UsbDeviceSpec::stick());
    faults().failingAdd = GetParam().add;
    mDetector->start();
    ASSERT_TRUE(logged(GetParam().line));
    ASSERT_EQ(0, faults().failingAdd);
    // The next scan, whose phone comes on top of it.
    mBed.plug("1-2", UsbDeviceSpec::phoneOfApple());
    const size_t reports = GetParam().attached == 0 ? 2 : GetParam().attached + 1;
    ASSERT_TRUE(mNotifier->waitForAttached(reports));
    ASSERT_TRUE(eventually([this] { return mDetector->count() == GetParam().listed + 1; }));
    mDetector->stop();
    EXPECT_EQ(0, faults().referencesAtExit);
}

INSTANTIATE_TEST_SUITE_P(
    Additions, UsbMemoryTest,
    ::testing::Values(AddCase{"Present", 1, error("add device to devicelist failed,ret:-12"), 0, 1},
                      AddCase{"Added", 2, error("add device to mAddList failed,ret:-12"), 0, 1},
                      AddCase{"Kept", 3, error("add device to mDeviceList failed,ret:-12"), 0, 1},
                      AddCase{"Interface", 4, error("UsbInterface add fail"), 1, 1},
                      AddCase{"Listed", 5, error("add device to mUsbDeviceList failed,ret:-12"), 1, 0}),
    [](const auto& testInfo) { return testInfo.param.name; });

TEST_F(UsbDetectorTest, DepartureOfAnUnlistedDevice) {
    mBed.plug("1-1", UsbDeviceSpec::stick());
    faults().failingAdd = 5;
    mDetector->start();
    ASSERT_TRUE(mNotifier->waitForAttached(1));
    const std::string pointer = shown(mNotifier->attached()[0]->getDevice());
    mBed.unplug("1-1");
    EXPECT_TRUE(logged(error("Can't get usbDevice which DevicePtr = " + pointer)));
    EXPECT_TRUE(logged(error("Error! Can't get UsbDevice with devicePtr:" + pointer)));
    fence("1-2");
    EXPECT_EQ(0U, mNotifier->detached().size());
    EXPECT_TRUE(eventually([] { return faults().references == 1; })) << "the fence's own";
}

TEST_F(UsbDetectorTest, RefusedAdditionToTheRemovedIsMadeUpFor) {
    mBed.plug("1-1", UsbDeviceSpec::stick());
    start();
    ASSERT_TRUE(logged(info("notify attach\n")));
    faults().failingAdd = 1;
    mBed.unplug("1-1");
    ASSERT_TRUE(logged(error("add device to mRemoveList failed,ret:-12")));
    EXPECT_EQ(1U, mDetector->count());
    fence("1-2");
    EXPECT_EQ(1U, mNotifier->detached().size());
}

TEST_F(UsbDetectorTest, RefusedRemovalsAreMadeUpFor) {
    mBed.plug("1-1", UsbDeviceSpec::stick());
    start();
    ASSERT_TRUE(logged(info("notify attach\n")));
    faults().failingRemove = 1;
    mBed.unplug("1-1");
    ASSERT_TRUE(logged(error("remove device from mUsbDeviceList failed,ret:-12")));
    ASSERT_TRUE(logged(info("notify dettach\n")));
    EXPECT_EQ(1U, mDetector->count());
    EXPECT_FALSE(mDetector->checkAoaModeSupport(1)) << "the reference still stands";

    faults().failingRemove = 2;
    fence("1-2");
    ASSERT_TRUE(logged(error("remove  device from mDeviceList failed,ret:-12")));
    EXPECT_EQ(1U, mDetector->count());
    fence("1-3");
    EXPECT_TRUE(eventually([] { return faults().references == 2; })) << "the two fences";
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

// --- identifiers and queries ---

TEST_F(UsbDetectorTest, IdentifiersOnlyGrow) {
    start();
    for (uint32_t id = 1; id <= 3; ++id) {
        mBed.plug("1-1", UsbDeviceSpec::stick());
        ASSERT_TRUE(mNotifier->waitForAttached(id));
        EXPECT_EQ(id, mNotifier->attached()[id - 1]->getId());
        EXPECT_EQ(1, mDetector->getBusNumber(id));
        mBed.unplug("1-1");
        ASSERT_TRUE(mNotifier->waitForDetached(id));
        EXPECT_EQ(-1, mDetector->getBusNumber(id));
    }
    mBed.plug("1-1", UsbDeviceSpec::stick());
    ASSERT_TRUE(mNotifier->waitForAttached(4));
    mDetector->stop();
    start();
    ASSERT_TRUE(mNotifier->waitForAttached(5));
    EXPECT_EQ(5U, mNotifier->attached()[4]->getId()) << "over starts too";
}

TEST_F(UsbDetectorTest, BusNumberOfTheDevice) {
    mBed.addBus(3);
    mBed.plug("3-1", UsbDeviceSpec::stick());
    start();
    ASSERT_TRUE(mNotifier->waitForAttached(1));
    EXPECT_EQ(3U, mNotifier->attached()[0]->getBusNumber());
    EXPECT_EQ(3, mDetector->getBusNumber(1));
    ASSERT_TRUE(logged(info("notify attach\n")));
    mLog.take();
    EXPECT_EQ(-1, mDetector->getBusNumber(2));
    EXPECT_EQ((std::vector<LogLine>{error("Can't get usbDevice which ID = 2"),
                                    error("Error! Can't get UsbDevice with ID:2.")}),
              mLog.take(kTag));
}

TEST_F(UsbDetectorTest, QueryBeyondTheListIsNull) {
    start();
    mBed.plug("1-1", UsbDeviceSpec::stick());
    ASSERT_TRUE(logged(info("notify attach\n")));
    ASSERT_EQ(1U, mDetector->count());
    mLog.take();
    EXPECT_NE(nullptr, mDetector->query(0));
    EXPECT_EQ(nullptr, mDetector->query(1));
    EXPECT_EQ(nullptr, mDetector->query(static_cast<size_t>(-1)));
    EXPECT_EQ((std::vector<LogLine>{error("No this (index = 1) UsbDevie object in mUsbDeviceList"),
                                    error("No this (index = -1) UsbDevie object in mUsbDeviceList")}),
              mLog.take(kTag));
}

TEST_F(UsbDetectorTest, NotificationMayAskAnything) {
    size_t count = 0;
    int bus = 0;
    bool listed = false;
    bool carplay = false;
    Gate attached;
    mNotifier->setAttachHook([&](const sp<UsbDeviceItf>& device) {
        count = mDetector->count();
        listed = mDetector->query(0).get() == device.get();
        // From another thread that the notification waits for, as from a client.
        std::thread([&] {
            bus = mDetector->getBusNumber(device->getId());
            carplay = mDetector->isAppleCarplaySupport(device->getId());
        }).join();
        attached.open();
    });
    size_t countAfter = 99;
    Gate detached;
    mNotifier->setDetachHook([&](const sp<UsbDeviceItf>& /*device*/) {
        countAfter = mDetector->count();
        detached.open();
    });
    start();
    mBed.plug("1-1", UsbDeviceSpec::phoneOfApple(),
              [](const UsbRequest& /*request*/) { return UsbAnswer::ok(std::string("\1\0\0\0", 4)); });
    ASSERT_TRUE(attached.wait());
    EXPECT_EQ(1U, count);
    EXPECT_TRUE(listed);
    EXPECT_EQ(1, bus);
    EXPECT_TRUE(carplay);
    mBed.unplug("1-1");
    ASSERT_TRUE(detached.wait());
    EXPECT_EQ(0U, countAfter);
}

TEST_F(UsbDetectorTest, HandlerMayMakeTransfers) {
    std::atomic<int> result{-1000};
    mHandler->hook = [&result](const HandlerRecorder::Call& call) {
        if (!call.attach) {
            return;
        }
        libusb_device_handle* handle = nullptr;
        ASSERT_EQ(0, libusb_open(static_cast<libusb_device*>(call.device), &handle));
        unsigned char answer[4] = {};
        result = libusb_control_transfer(handle, 0xC0, 0x33, 0, 0, answer, sizeof(answer), 5000);
        libusb_close(handle);
    };
    start();
    mBed.plug("1-1", UsbDeviceSpec::stick(),
              [](const UsbRequest& /*request*/) { return UsbAnswer::ok(std::string("\2\0", 2)); });
    ASSERT_TRUE(mNotifier->waitForAttached(1));
    EXPECT_EQ(2, result) << "not busy with the event";
}

// --- control transfers ---

/** A phone that gives one answer to every request, attached and listed. */
class UsbRequestTest : public UsbDetectorTest {
  public:
    uint32_t attach(const TestBed::Responder& responder) {
        mBed.plug("1-1", UsbDeviceSpec::phoneOfApple(), responder);
        start();
        EXPECT_TRUE(logged(info("notify attach\n")));
        mLog.take();
        mOpens = UsbHandles::instance().opens;
        return mNotifier->attached()[0]->getId();
    }

    uint32_t attachAnswering(const UsbAnswer& answer) {
        return attach([answer](const UsbRequest& /*request*/) { return answer; });
    }

    ~UsbRequestTest() override { EXPECT_EQ(0, UsbHandles::instance().held); }

    int opens() const { return UsbHandles::instance().opens - mOpens; }

    /** libusb takes a device that cannot be opened for gone, which is an event of its own. */
    std::vector<LogLine> linesWithoutEvents() {
        std::vector<LogLine> lines = mLog.take(kTag);
        lines.erase(
            std::remove_if(lines.begin(), lines.end(),
                           [](const LogLine& line) { return line.text.rfind("detach devce", 0) == 0; }),
            lines.end());
        return lines;
    }

    void expectRequest(size_t index, uint8_t requestType, uint8_t code, uint16_t value, uint16_t length) {
        const std::vector<UsbRequest> requests = mBed.requests("1-1");
        ASSERT_LT(index, requests.size());
        EXPECT_EQ(requestType, requests[index].requestType);
        EXPECT_EQ(code, requests[index].request);
        EXPECT_EQ(value, requests[index].value);
        EXPECT_EQ(0, requests[index].index);
        EXPECT_EQ(length, requests[index].length);
    }

  private:
    int mOpens = 0;
};

struct AnswerCase {
    const char* name;
    UsbAnswer answer;
    bool carplay;
    bool aoa;
    const char* errorName;  //!< libusb's name of the failure; null when there is none
};

void PrintTo(const AnswerCase& testCase, std::ostream* stream) {
    *stream << testCase.name;
}

class UsbAnswerTest : public UsbRequestTest, public ::testing::WithParamInterface<AnswerCase> {
  public:
    /**
     * Has the phone asked whether it supports something.
     * @param code the request that it gets
     * @param line the number in the log line of a failure
     */
    void expectAnswer(bool (UsbDetector::*ask)(uint32_t deviceId), bool supported, uint8_t code, int line) {
        const uint32_t id = attachAnswering(GetParam().answer);
        EXPECT_EQ(supported, ((*mDetector).*ask)(id));
        expectRequest(0, 0xC0, code, 0, 4);
        std::vector<LogLine> expected;
        if (GetParam().errorName != nullptr) {
            expected.push_back(error("Line:[" + std::to_string(line) +
                                     "],libusb control transfer fail! errorType[" + GetParam().errorName +
                                     "]"));
        }
        EXPECT_EQ(expected, mLog.take(kTag));
        EXPECT_EQ(1, opens());
    }
};

TEST_P(UsbAnswerTest, CarplaySupport) {
    expectAnswer(&UsbDetector::isAppleCarplaySupport, GetParam().carplay, 0x53, 942);
}

TEST_P(UsbAnswerTest, AoaSupport) {
    expectAnswer(&UsbDetector::checkAoaModeSupport, GetParam().aoa, 0x33, 979);
}

INSTANTIATE_TEST_SUITE_P(
    Answers, UsbAnswerTest,
    ::testing::Values(
        AnswerCase{"One", UsbAnswer::ok(std::string("\1\0\0\0", 4)), true, true, nullptr},
        AnswerCase{"Zero", UsbAnswer::ok(std::string("\0\0\0\0", 4)), false, false, nullptr},
        AnswerCase{"Two", UsbAnswer::ok(std::string("\2\0\0\0", 4)), false, true, nullptr},
        AnswerCase{"HighByte", UsbAnswer::ok(std::string("\0\1\0\0", 4)), false, true, nullptr},
        AnswerCase{"SecondWord", UsbAnswer::ok(std::string("\0\0\1\0", 4)), false, false, nullptr},
        AnswerCase{"SecondWordToo", UsbAnswer::ok(std::string("\1\0\1\1", 4)), true, true, nullptr},
        AnswerCase{"ShortWord", UsbAnswer::ok(std::string("\1\0", 2)), true, true, nullptr},
        AnswerCase{"ShortByte", UsbAnswer::ok(std::string("\1", 1)), true, true, nullptr},
        AnswerCase{"Empty", UsbAnswer::ok(), false, false, nullptr},
        AnswerCase{"Stall", UsbAnswer::stall(), false, false, "LIBUSB_ERROR_PIPE"},
        AnswerCase{"TimeOut", UsbAnswer::none(), false, false, "LIBUSB_ERROR_TIMEOUT"}),
    [](const auto& testInfo) { return testInfo.param.name; });

TEST_F(UsbRequestTest, PlainRoleSwitch) {
    const uint32_t id = attachAnswering(UsbAnswer::ok());
    EXPECT_EQ(0, mDetector->appleRoleSwitch(id, UsbDetector::kRoleSwitchPlain));
    ASSERT_EQ(1U, mBed.requests("1-1").size());
    expectRequest(0, 0x40, 0x51, 0, 0);
    EXPECT_EQ((std::vector<LogLine>{info("Apple RoleSwitch")}), mLog.take(kTag));
}

TEST_F(UsbRequestTest, PlainRoleSwitchStalled) {
    const uint32_t id = attachAnswering(UsbAnswer::stall());
    EXPECT_EQ(LIBUSB_ERROR_PIPE, mDetector->appleRoleSwitch(id, 2));
    EXPECT_EQ((std::vector<LogLine>{
                  info("Apple RoleSwitch"),
                  error("Line:[904],libusb control transfer fail! errorType[LIBUSB_ERROR_PIPE]")}),
              mLog.take(kTag));
}

TEST_F(UsbRequestTest, PlainRoleSwitchWithoutAnswer) {
    const uint32_t id = attachAnswering(UsbAnswer::none());
    EXPECT_EQ(LIBUSB_ERROR_TIMEOUT, mDetector->appleRoleSwitch(id, 2));
    EXPECT_TRUE(logged(error("Line:[904],libusb control transfer fail! errorType[LIBUSB_ERROR_TIMEOUT]")));
}

TEST_F(UsbRequestTest, CarplayRoleSwitch) {
    const uint32_t id = attachAnswering(UsbAnswer::ok(std::string("\1\0\0\0", 4)));
    EXPECT_EQ(0, mDetector->appleRoleSwitch(id, UsbDetector::kRoleSwitchCarplay));
    ASSERT_EQ(2U, mBed.requests("1-1").size());
    expectRequest(0, 0xC0, 0x53, 0, 4);
    expectRequest(1, 0x40, 0x51, 1, 0);
    EXPECT_EQ((std::vector<LogLine>{info("Apple Carplay RoleSwitch!")}), mLog.take(kTag));
}

TEST_F(UsbRequestTest, CarplayRoleSwitchOfAPhoneWithoutIt) {
    const uint32_t id = attachAnswering(UsbAnswer::ok(std::string("\0\0\0\0", 4)));
    EXPECT_EQ(-1, mDetector->appleRoleSwitch(id, 1));
    EXPECT_EQ(1U, mBed.requests("1-1").size());
    EXPECT_EQ((std::vector<LogLine>{info("Apple Carplay RoleSwitch!"),
                                    info("The device(deviceId=1) don't Support Carplay role switch")}),
              mLog.take(kTag));
}

TEST_F(UsbRequestTest, CarplayRoleSwitchStalled) {
    const uint32_t id = attach([](const UsbRequest& request) {
        return request.request == 0x53 ? UsbAnswer::ok(std::string("\1\0\0\0", 4)) : UsbAnswer::stall();
    });
    EXPECT_EQ(LIBUSB_ERROR_PIPE, mDetector->appleRoleSwitch(id, 1));
    EXPECT_EQ((std::vector<LogLine>{
                  info("Apple Carplay RoleSwitch!"),
                  error("Line:[879],libusb control transfer fail! errorType[LIBUSB_ERROR_PIPE]")}),
              mLog.take(kTag));
}

TEST_F(UsbRequestTest, PhoneVanishesBetweenSupportAndCarplayRoleSwitch) {
    make(kNever);
    const uint32_t id = attach([this](const UsbRequest& /*request*/) {
        mBed.vanish("1-1");
        return UsbAnswer::ok(std::string("\1\0\0\0", 4));
    });
    EXPECT_EQ(LIBUSB_ERROR_NO_DEVICE, mDetector->appleRoleSwitch(id, 1));
    EXPECT_EQ((std::vector<LogLine>{info("Apple Carplay RoleSwitch!"),
                                    error("Line:[870],libusb open fail! errorType:LIBUSB_ERROR_NO_DEVICE")}),
              linesWithoutEvents());
}

TEST_F(UsbRequestTest, PhoneThatCannotBeOpened) {
    make(kNever);
    const uint32_t id = attachAnswering(UsbAnswer::ok());
    mBed.vanish("1-1");
    EXPECT_EQ(LIBUSB_ERROR_NO_DEVICE, mDetector->appleRoleSwitch(id, 2));
    EXPECT_FALSE(mDetector->isAppleCarplaySupport(id));
    EXPECT_FALSE(mDetector->checkAoaModeSupport(id));
    EXPECT_EQ((std::vector<LogLine>{info("Apple RoleSwitch"),
                                    error("Line:[895],libusb open fail! errorType:LIBUSB_ERROR_NO_DEVICE"),
                                    error("Line:[930],libusb open fail errorType:[LIBUSB_ERROR_NO_DEVICE]"),
                                    error("Line:[967],libusb open fail errorType:[LIBUSB_ERROR_NO_DEVICE]")}),
              linesWithoutEvents());
}

TEST_F(UsbRequestTest, OtherRoleSwitchesOpenNothing) {
    const uint32_t id = attachAnswering(UsbAnswer::ok());
    EXPECT_EQ(-1, mDetector->appleRoleSwitch(id, 3));
    EXPECT_EQ(-1, mDetector->appleRoleSwitch(id, 0));
    EXPECT_EQ((std::vector<LogLine>{error("Error! Other usb device type,shouldn't role switch."),
                                    error("Error! Other usb device type,shouldn't role switch.")}),
              mLog.take(kTag));
    EXPECT_EQ(0, opens());
    EXPECT_TRUE(mBed.requests("1-1").empty());
}

TEST_F(UsbRequestTest, UnknownDevice) {
    attachAnswering(UsbAnswer::ok());
    EXPECT_EQ(-1, mDetector->appleRoleSwitch(7, 2));
    EXPECT_FALSE(mDetector->isAppleCarplaySupport(7));
    EXPECT_FALSE(mDetector->checkAoaModeSupport(7));
    EXPECT_EQ(-1, mDetector->appleRoleSwitch(7, 1));
    const LogLine lookup = error("Can't get usbDevice which ID = 7");
    const LogLine unknown = error("Error! Can't get UsbDevice with ID:7.");
    EXPECT_EQ((std::vector<LogLine>{info("Apple RoleSwitch"), lookup, unknown, lookup, unknown, lookup,
                                    unknown, info("Apple Carplay RoleSwitch!"), lookup, unknown,
                                    info("The device(deviceId=7) don't Support Carplay role switch")}),
              mLog.take(kTag));
    EXPECT_EQ(0, opens());
}

TEST_F(UsbRequestTest, RequestsOfSeveralThreadsAtOnce) {
    const uint32_t id = attachAnswering(UsbAnswer::ok(std::string("\1\0\0\0", 4)));
    std::atomic<int> good{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this, id, &good] {
            for (int round = 0; round < 10; ++round) {
                good += mDetector->isAppleCarplaySupport(id) && mDetector->checkAoaModeSupport(id) ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(40, good);
}

// --- life ---

TEST_F(UsbDetectorTest, StartsAndStopsAgain) {
    mBed.plug("1-1", UsbDeviceSpec::stick());
    const int contexts = faults().contexts;
    for (size_t round = 1; round <= 3; ++round) {
        mDetector->start();
        mDetector->start();  // nothing more
        ASSERT_TRUE(mNotifier->waitForAttached(round));
        ASSERT_TRUE(eventually([this] { return mDetector->count() == 1; }));
        EXPECT_EQ(contexts + 1, faults().contexts);
        const auto before = std::chrono::steady_clock::now();
        mDetector->stop();
        EXPECT_LT(std::chrono::steady_clock::now() - before, kTestLimit);
        EXPECT_EQ(0U, mDetector->count());
        EXPECT_EQ(contexts, faults().contexts);
        EXPECT_EQ(0, faults().referencesAtExit);
        EXPECT_EQ(0, faults().handlesAtExit);
        EXPECT_TRUE(eventually(
            [] { return countThreads("UsbDetector") == 0 && countThreads("UsbDetectorQueu") == 0; }));
    }
    mDetector->stop();  // nothing to stop
    EXPECT_EQ(0U, mNotifier->detached().size()) << "a stop is no departure";
    EXPECT_EQ(0U, countLogged(error("stop 1005:check return value failed")));
}

TEST_F(UsbDetectorTest, TheEventThreadKeepsTheOrderOfTheLibrary) {
    const size_t before = faults().steps().size();
    startEmpty();
    ASSERT_TRUE(eventually([before] { return faults().steps().size() >= before + 5; }))
        << "it waits for events";
    mDetector->stop();
    const std::vector<std::string> steps = faults().steps();
    EXPECT_EQ((std::vector<std::string>{
                  "init",
                  "log 0",
                  // Arrivals, then departures; no call for what is there; any vendor, product and class.
                  "register 1 0 -1 -1 -1",
                  "register 2 0 -1 -1 -1",
                  "wait 1 0",
                  "deregister 1",
                  "deregister 2",
                  "exit",
              }),
              std::vector<std::string>(steps.begin() + static_cast<ptrdiff_t>(before), steps.end()));
}

TEST_F(UsbDetectorTest, StoppedDetectorHasNothingToSay) {
    mDetector->stop();
    EXPECT_EQ(0U, mDetector->count());
    EXPECT_EQ(nullptr, mDetector->query(0));
    EXPECT_EQ(-1, mDetector->getBusNumber(1));
    EXPECT_FALSE(mDetector->checkAoaModeSupport(1));
}

TEST_F(UsbDetectorTest, RunningDetectorMayGo) {
    mBed.plug("1-1", UsbDeviceSpec::stick());
    const int contexts = faults().contexts;
    start();
    ASSERT_TRUE(mNotifier->waitForAttached(1));
    const android::wp<UsbDetector> watched = mDetector;
    mDetector.clear();
    EXPECT_EQ(nullptr, watched.promote());
    EXPECT_EQ(contexts, faults().contexts);
    EXPECT_EQ(1, mNotifier->getStrongCount()) << "only the test's own";
    EXPECT_EQ(1, mHandler->getStrongCount());
    EXPECT_EQ(1, mClassHandler->getStrongCount());
}

TEST_F(UsbDetectorTest, TwoDetectorsLiveTheirOwnLives) {
    const sp<NotifierRecorder> otherNotifier = new NotifierRecorder();
    const sp<UsbDetector> other = new UsbDetector(kShort);
    other->setNotifier(otherNotifier);
    start();
    other->start();
    mBed.plug("1-1", UsbDeviceSpec::stick());
    ASSERT_TRUE(mNotifier->waitForAttached(1));
    ASSERT_TRUE(otherNotifier->waitForAttached(1));
    EXPECT_NE(mNotifier->attached()[0]->getDevice(), otherNotifier->attached()[0]->getDevice());

    other->stop();
    mBed.unplug("1-1");
    ASSERT_TRUE(mNotifier->waitForDetached(1));
    EXPECT_EQ(0U, otherNotifier->detached().size());
    mBed.plug("1-2", UsbDeviceSpec::hub());
    ASSERT_TRUE(mNotifier->waitForAttached(2));
    other->start();
    ASSERT_TRUE(otherNotifier->waitForAttached(2));
    EXPECT_EQ(2U, otherNotifier->attached()[1]->getId());
    mDetector->stop();
    mBed.unplug("1-2");
    ASSERT_TRUE(otherNotifier->waitForDetached(1));
    other->stop();
}

TEST_F(UsbDetectorTest, NotificationMayWaitForTheStop) {
    // What a client does that shuts the manager down when it hears of a device.
    Gate stopped;
    mNotifier->setAttachHook([this, &stopped](const sp<UsbDeviceItf>& /*device*/) {
        std::thread([this] { mDetector->stop(); }).join();
        stopped.open();
    });
    mBed.plug("1-1", UsbDeviceSpec::stick());
    mBed.plug("1-2", UsbDeviceSpec::stick());
    mDetector->start();
    ASSERT_TRUE(stopped.wait());
    ASSERT_TRUE(eventually([] { return countThreads("UsbDetectorQueu") == 0; }));
    EXPECT_EQ(0U, mDetector->count());
    EXPECT_EQ(1U, mNotifier->attached().size()) << "the scan ended with the stop";
    EXPECT_EQ(0, faults().referencesAtExit);

    mNotifier->setAttachHook(nullptr);
    mDetector->start();
    EXPECT_TRUE(mNotifier->waitForAttached(3)) << "both again";
}

TEST_F(UsbDetectorTest, NotificationMayStop) {
    Gate stopped;
    mNotifier->setAttachHook([this, &stopped](const sp<UsbDeviceItf>& /*device*/) {
        mDetector->stop();
        stopped.open();
    });
    mBed.plug("1-1", UsbDeviceSpec::stick());
    mDetector->start();
    ASSERT_TRUE(stopped.wait());
    ASSERT_TRUE(eventually([] { return countThreads("UsbDetectorQueu") == 0; }));
    EXPECT_EQ(0U, mDetector->count());
}

TEST_F(UsbDetectorTest, HandlerThatStopsIsNotWaitedFor) {
    // It must not, but the daemon has to survive it.
    Gate stopped;
    std::atomic<bool> first{true};
    mHandler->hook = [this, &stopped, &first](const HandlerRecorder::Call& /*call*/) {
        if (first.exchange(false)) {
            mDetector->stop();
            stopped.open();
        }
    };
    start();
    mBed.plug("1-1", UsbDeviceSpec::phoneOfApple());
    ASSERT_TRUE(stopped.wait());
    EXPECT_TRUE(logged(error("stop 1005:check return value failed")));
    mDetector->start();
    EXPECT_TRUE(mNotifier->waitForAttached(1));
    EXPECT_TRUE(eventually([] { return countThreads("UsbDetector") == 1; }));
}

TEST_F(UsbDetectorTest, HandlerThatStopsLeavesNoReference) {
    mBed.plug("1-1", UsbDeviceSpec::stick());
    std::atomic<bool> stops{true};
    mHandler->hook = [this, &stops](const HandlerRecorder::Call& /*call*/) {
        if (stops.exchange(false)) {
            mDetector->stop();
        }
    };
    start();
    ASSERT_TRUE(mNotifier->waitForAttached(1));
    mBed.plug("1-2", UsbDeviceSpec::stick());
    ASSERT_TRUE(eventually([] { return countThreads("UsbDetector") == 0; }));
    EXPECT_EQ(0U, mDetector->count());
    EXPECT_EQ(0, faults().referencesAtExit);
}

TEST_F(UsbDetectorTest, HandlerMayStopAndStart) {
    // What a client does that starts the manager anew when it hears of a finding.
    mBed.plug("1-1", UsbDeviceSpec::stick());
    const int contexts = faults().contexts;
    Gate restarted;
    std::atomic<bool> first{true};
    mHandler->hook = [this, &restarted, &first](const HandlerRecorder::Call& /*call*/) {
        if (first.exchange(false)) {
            mDetector->stop();
            mDetector->start();
            restarted.open();
        }
    };
    start();
    ASSERT_TRUE(mNotifier->waitForAttached(1));
    mBed.plug("1-2", UsbDeviceSpec::stick());
    ASSERT_TRUE(restarted.wait());
    ASSERT_TRUE(mNotifier->waitForAttached(3)) << "both, found by the first scan of the new start";
    EXPECT_EQ(0, faults().referencesAtExit) << "of the context before";
    EXPECT_TRUE(eventually([this] { return mDetector->count() == 2; }));
    mBed.unplug("1-2");
    ASSERT_TRUE(mNotifier->waitForDetached(1));
    EXPECT_EQ(contexts + 1, faults().contexts);
    EXPECT_EQ(1, countThreads("UsbDetector"));

    mDetector->stop();
    EXPECT_EQ(contexts, faults().contexts);
    EXPECT_EQ(0, faults().referencesAtExit);
    EXPECT_TRUE(eventually([] { return countThreads("UsbDetector") == 0; }));
    EXPECT_EQ(3U, mNotifier->attached().size());
}

TEST_F(UsbDetectorTest, HandlerMayWaitForTheStop) {
    // What a client does that hears of a finding and has another of its threads shut the manager down.
    mDetector = new UsbDetector(kShort, kShortLimit);
    mDetector->setHandler(mHandler);
    mDetector->setNotifier(mNotifier);
    mBed.plug("1-1", UsbDeviceSpec::stick());
    const int contexts = faults().contexts;
    std::atomic<bool> first{true};
    std::atomic<bool> returned{false};
    Gate over;
    std::thread stopper;
    mHandler->hook = [&](const HandlerRecorder::Call& /*call*/) {
        if (first.exchange(false)) {
            Gate stopped;
            stopper = std::thread([this, &stopped] {
                mDetector->stop();
                stopped.open();
            });
            returned = stopped.wait();
            over.open();
        }
    };
    start();
    ASSERT_TRUE(mNotifier->waitForAttached(1));
    mBed.plug("1-2", UsbDeviceSpec::stick());
    ASSERT_TRUE(over.wait());
    stopper.join();
    EXPECT_TRUE(returned) << "while the handler waited for it";
    EXPECT_EQ(1U, countLogged(warning("the event thread is held by a handler, it stops when that returns")));
    EXPECT_TRUE(eventually([] { return countThreads("UsbDetector") == 0; }));
    EXPECT_EQ(0U, mDetector->count());
    EXPECT_EQ(0, faults().referencesAtExit);
    EXPECT_EQ(contexts, faults().contexts);

    mDetector->start();
    EXPECT_TRUE(mNotifier->waitForAttached(3)) << "both again";
    EXPECT_EQ(1, countThreads("UsbDetector"));
    stopInTheEnd();
}

TEST_F(UsbDetectorTest, HandlerMayOutlastAStopAndAStart) {
    mDetector = new UsbDetector(kShort, kShortLimit);
    mDetector->setHandler(mHandler);
    mDetector->setNotifier(mNotifier);
    mBed.plug("1-1", UsbDeviceSpec::stick());
    const int contexts = faults().contexts;
    std::atomic<bool> first{true};
    Gate entered;
    Gate leave;
    mHandler->hook = [&](const HandlerRecorder::Call& /*call*/) {
        if (first.exchange(false)) {
            entered.open();
            leave.wait();
        }
    };
    start();
    ASSERT_TRUE(mNotifier->waitForAttached(1));
    mBed.plug("1-2", UsbDeviceSpec::stick());
    ASSERT_TRUE(entered.wait());
    for (int round = 0; round < 3; ++round) {
        mDetector->stop();
        EXPECT_EQ(0U, mDetector->count());
        mDetector->start();
    }
    leave.open();
    ASSERT_TRUE(mNotifier->waitForAttached(3)) << "both again";
    EXPECT_EQ(0, faults().referencesAtExit) << "of the context before";
    EXPECT_EQ(contexts + 1, faults().contexts);
    EXPECT_EQ(1, countThreads("UsbDetector"));
    EXPECT_TRUE(eventually([this] { return mDetector->count() == 2; }));
    stopInTheEnd();
    EXPECT_EQ(0, faults().referencesAtExit);
    EXPECT_EQ(contexts, faults().contexts);
    EXPECT_EQ(3U, mNotifier->attached().size());
}

TEST_F(UsbDetectorTest, HandlerMayOutlastTheDetector) {
    mDetector = new UsbDetector(kShort, kShortLimit);
    mDetector->setHandler(mHandler);
    const int contexts = faults().contexts;
    Gate entered;
    Gate leave;
    mHandler->hook = [&](const HandlerRecorder::Call& /*call*/) {
        entered.open();
        leave.wait();
    };
    start();
    mBed.plug("1-1", UsbDeviceSpec::stick());
    ASSERT_TRUE(entered.wait());
    mDetector.clear();
    leave.open();
    EXPECT_TRUE(eventually([contexts] { return faults().contexts == contexts; }));
    EXPECT_TRUE(eventually([] { return countThreads("UsbDetector") == 0; }));
    EXPECT_EQ(0, faults().referencesAtExit);
}

TEST_F(UsbDetectorTest, NotificationMayOutlastAStopAndAStart) {
    Gate entered;
    Gate leave;
    mNotifier->setAttachHook([&](const sp<UsbDeviceItf>& /*device*/) {
        entered.open();
        leave.wait();
    });
    mBed.plug("1-1", UsbDeviceSpec::stick());
    mBed.plug("1-2", UsbDeviceSpec::stick());
    mDetector->start();
    ASSERT_TRUE(entered.wait());
    mDetector->stop();
    EXPECT_EQ(0, faults().referencesAtExit);
    EXPECT_EQ(0U, mDetector->count());
    mNotifier->setAttachHook(nullptr);
    mDetector->start();
    leave.open();
    ASSERT_TRUE(mNotifier->waitForAttached(3));
    EXPECT_TRUE(eventually([this] { return mDetector->count() == 2; }));
    EXPECT_EQ(3U, mNotifier->attached().size()) << "the old scan reported one, the new one both";
}

TEST_F(UsbDetectorTest, StopWaitsForARequestUnderWay) {
    Gate asked;
    mBed.plug("1-1", UsbDeviceSpec::phoneOfApple(), [&asked](const UsbRequest& /*request*/) {
        asked.open();
        return UsbAnswer::none();
    });
    start();
    ASSERT_TRUE(mNotifier->waitForAttached(1));
    bool support = true;
    std::thread client([this, &support] { support = mDetector->isAppleCarplaySupport(1); });
    ASSERT_TRUE(asked.wait());
    mDetector->stop();
    EXPECT_EQ(0, faults().handlesAtExit);
    client.join();
    EXPECT_FALSE(support);
}

TEST_F(UsbDetectorTest, ThousandPlugCyclesLeaveNothingBehind) {
    constexpr size_t kPorts = 5;
    constexpr size_t kRounds = 200;
    make(kShort);
    start();
    fence("1-9");
    mBed.unplug("1-9");
    ASSERT_TRUE(mNotifier->waitForDetached(1));
    ASSERT_TRUE(eventually([] { return faults().references == 0; }));
    const auto openFiles = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                             std::filesystem::directory_iterator());
    };
    const auto files = openFiles();
    for (size_t round = 1; round <= kRounds; ++round) {
        for (size_t port = 1; port <= kPorts; ++port) {
            mBed.plug("1-" + std::to_string(port), UsbDeviceSpec::stick());
        }
        ASSERT_TRUE(mNotifier->waitForAttached(round * kPorts + 1));
        for (size_t port = 1; port <= kPorts; ++port) {
            mBed.unplug("1-" + std::to_string(port));
        }
        ASSERT_TRUE(mNotifier->waitForDetached(round * kPorts + 1));
        mLog.take();
    }
    EXPECT_TRUE(eventually([] { return faults().references == 0; })) << faults().references;
    EXPECT_EQ(0, UsbHandles::instance().held);
    EXPECT_EQ(0U, mDetector->count());
    EXPECT_TRUE(eventually([&] { return openFiles() == files; })) << openFiles() - files << " more";
    EXPECT_EQ(1, countThreads("UsbDetector"));
    EXPECT_EQ(1, countThreads("UsbDetectorQueu"));
    EXPECT_EQ(kRounds * kPorts + 1, mNotifier->attached().size());
    EXPECT_EQ(kRounds * kPorts + 1, mNotifier->attached().back()->getId());
    const android::wp<UsbDeviceItf> last = mNotifier->attached().back();
    mNotifier = nullptr;
    mDetector->stop();
    mDetector->setNotifier(nullptr);
    EXPECT_EQ(nullptr, last.promote()) << "nobody keeps a record";
}

}  // namespace
