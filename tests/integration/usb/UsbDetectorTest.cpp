// SPDX-License-Identifier: Apache-2.0
#include "usb/UsbDetector.h"

#include <android/log.h>
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
using std::chrono::milliseconds;
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
    EXPECT_EQ((std::vector<LogLine>{
                  warning("skip root usb hub[9]\n"),  // of the first scan
                  info("attach devce [" + pointer + "] class[0]\n"),
                  warning("skip root usb hub[9]\n"),
                  info("add device[" + pointer + "]\n"),
                  info("notify attach\n"),
              }),
              mLog.take(kTag));

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

}  // namespace
