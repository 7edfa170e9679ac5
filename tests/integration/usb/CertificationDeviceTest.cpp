// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What the certification mode makes of devices, with libusb's own view of them.
 */
#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libusb-1.0/libusb.h>
#include <vx_vendor_data.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/integration/usb/CertificationDoubles.h"
#include "tests/integration/usb/TestBed.h"
#include "tests/integration/usb/UnitAttributes.h"
#include "tests/unit/common/ThreadProbe.h"
#include "tests/unit/support/LogCapture.h"
#include "usb/CertificationMode.h"
#include "usb/UsbTID.h"
#include "usb/UsbTest.h"

using android::sp;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using usb::UsbDetector;
using usb::UsbTest;
using usb::UsbTID;

namespace {

/** Results in place of libusb's, once they are not 0. */
std::atomic<int> sConfigResult{0};
std::atomic<int> sDeviceResult{0};
std::atomic<int> sListResult{0};

}  // namespace

extern "C" {

// NOLINTBEGIN(readability-identifier-naming): the linker's names
int __real_libusb_get_config_descriptor(libusb_device*, uint8_t, libusb_config_descriptor**);
int __real_libusb_get_device_descriptor(libusb_device*, libusb_device_descriptor*);
ssize_t __real_libusb_get_device_list(libusb_context*, libusb_device***);

int __wrap_libusb_get_config_descriptor(libusb_device* device, uint8_t index,
                                        libusb_config_descriptor** config) {
    const int result = sConfigResult;
    return result != 0 ? result : __real_libusb_get_config_descriptor(device, index, config);
}

int __wrap_libusb_get_device_descriptor(libusb_device* device, libusb_device_descriptor* descriptor) {
    const int result = sDeviceResult;
    return result != 0 ? result : __real_libusb_get_device_descriptor(device, descriptor);
}

ssize_t __wrap_libusb_get_device_list(libusb_context* context, libusb_device*** list) {
    const int result = sListResult;
    return result != 0 ? result : __real_libusb_get_device_list(context, list);
}
// NOLINTEND(readability-identifier-naming)

}  // extern "C"

namespace {

namespace fs = std::filesystem;

using Finding = FindingRecorder::Finding;

constexpr uint16_t kTestVendor = 6666;

UsbDeviceSpec device(uint16_t vendor, uint16_t product) {
    UsbDeviceSpec spec;
    spec.vendor = vendor;
    spec.product = product;
    return spec;
}

UsbDeviceSpec deviceOfPower(uint8_t maxPower) {
    UsbDeviceSpec spec;
    spec.configs[0].maxPower = maxPower;
    return spec;
}

UsbDeviceSpec deviceOfClass(uint8_t deviceClass) {
    UsbDeviceSpec spec;
    spec.deviceClass = deviceClass;
    return spec;
}

UsbDeviceSpec deviceOfSpeed(const std::string& speed) {
    UsbDeviceSpec spec;
    spec.speed = speed;
    return spec;
}

TestBed::Responder statusOf(const std::string& status) {
    return [status](const UsbRequest&) { return UsbAnswer::ok(status); };
}

LogLine error(const std::string& tag, const std::string& text) {
    return {ANDROID_LOG_ERROR, tag, text};
}

/** Whether a line is "[getDeviceStatus:LINE] TEXT". */
LogCapture::Predicate isStatusLine(const std::string& text) {
    return [text](const LogLine& line) {
        const std::string& whole = line.text;
        return line.priority == ANDROID_LOG_ERROR && line.tag == "UsbTID" &&
               whole.compare(0, 17, "[getDeviceStatus:") == 0 && whole.size() > text.size() &&
               whole.compare(whole.size() - text.size(), text.size(), text) == 0;
    };
}

class CertificationDeviceTest : public ::testing::Test {
  protected:
    CertificationDeviceTest() : mAttributes(getenv("UMOCKDEV_DIR")) { mAttributes.layAll(); }

    ~CertificationDeviceTest() override {
        sConfigResult = 0;
        sDeviceResult = 0;
        sListResult = 0;
        mChecker.clear();
        if (mContext != nullptr) {
            libusb_exit(mContext);
        }
    }

    void build(int mode) {
        mChecker = new UsbTID(mFindings, mode, mWait);
        mFindings->take();
        UnitAttributes::forget();
    }

    libusb_context* context() {
        if (mContext == nullptr) {
            EXPECT_EQ(0, libusb_init(&mContext));
        }
        return mContext;
    }

    /** Has the checker look at a device that is plugged. */
    int act(const char* action, const std::string& name) {
        const int bus = atoi(name.c_str());
        libusb_device* found = nullptr;
        EXPECT_TRUE(eventually([&] {
            libusb_device** list = nullptr;
            const ssize_t count = __real_libusb_get_device_list(context(), &list);
            for (ssize_t i = 0; i < count; ++i) {
                if (libusb_get_bus_number(list[i]) == bus &&
                    libusb_get_device_address(list[i]) == mBed.deviceNumber(name)) {
                    found = libusb_ref_device(list[i]);
                }
            }
            libusb_free_device_list(list, 1);
            return found != nullptr;
        }));
        if (found == nullptr) {
            return -1000;
        }
        const int result = mChecker->doAction(action, context(), found);
        libusb_unref_device(found);
        return result;
    }

    /** What the checker finds about a device that is plugged. */
    std::vector<Finding> findings(const std::string& name) {
        EXPECT_EQ(0, act("attach", name));
        return mFindings->take();
    }

    /** Plugs the device, has it checked and unplugs it. */
    std::vector<Finding> findings(const UsbDeviceSpec& spec) {
        mBed.plug("1-1", spec);
        std::vector<Finding> found = findings("1-1");
        EXPECT_EQ(0, act("detach", "1-1"));
        EXPECT_THAT(mFindings->take(), IsEmpty());
        mBed.unplug("1-1");
        return found;
    }

    /** A chain of hubs at port 1, as deep as @p depth; returns the deepest one's name. */
    std::string plugHubs(int depth) {
        std::string name = "1-1";
        for (int i = 0; i < depth; ++i) {
            name += i > 0 ? ".1" : "";
            mBed.plug(name, UsbDeviceSpec::hub());
        }
        return name;
    }

    TestBed mBed;
    UnitAttributes mAttributes;
    LogCapture mLog;
    sp<ShortWait> mWait = new ShortWait();
    sp<FindingRecorder> mFindings = new FindingRecorder();
    sp<UsbTID> mChecker;
    libusb_context* mContext = nullptr;
};

}  // namespace

TEST_F(CertificationDeviceTest, AnOrdinaryDeviceIsInOrder) {
    for (const int mode : {usb::kModeLogo, usb::kModeTestDevices}) {
        build(mode);
        mLog.take();
        EXPECT_THAT(findings(UsbDeviceSpec::stick()), IsEmpty());
        EXPECT_THAT(UnitAttributes::writes(), ElementsAre("apple_dev_default_mode=1"));
        EXPECT_THAT(mLog.take("UsbTID"), IsEmpty());
    }
}

TEST_F(CertificationDeviceTest, TheDeviceClassComesFirst) {
    build(usb::kModeTestDevices);
    UsbDeviceSpec spec = deviceOfClass(31);
    EXPECT_THAT(findings(spec), ElementsAre(Finding(2, 3)));
    spec.vendor = kTestVendor;
    spec.product = 257;
    spec.configs[0].maxPower = 255;
    spec.speed = "5000";
    EXPECT_THAT(findings(spec), ElementsAre(Finding(2, 3)));
    EXPECT_THAT(UnitAttributes::writes(), IsEmpty());
    EXPECT_THAT(findings(deviceOfClass(30)), IsEmpty());
}

TEST_F(CertificationDeviceTest, TestDevicesStartTheLogoTestOnce) {
    for (int product = 256; product <= 265; ++product) {
        const bool starts = product >= 257 && product <= 264;
        build(usb::kModeTestDevices);
        EXPECT_THAT(findings(device(kTestVendor, static_cast<uint16_t>(product))), IsEmpty());
        if (starts) {
            EXPECT_THAT(UnitAttributes::writes(), ElementsAre("bc_polling_enable=0", "usb_logo_test_start=1"))
                << product;
            UnitAttributes::forget();
            EXPECT_THAT(findings(device(kTestVendor, 258)), IsEmpty());
        }
        EXPECT_THAT(UnitAttributes::writes(), ElementsAre("apple_dev_default_mode=1")) << product;
    }
    build(usb::kModeTestDevices);
    EXPECT_THAT(findings(device(kTestVendor + 1, 257)), IsEmpty());
    EXPECT_THAT(UnitAttributes::writes(), ElementsAre("apple_dev_default_mode=1"));
    EXPECT_THAT(mWait->asked(), IsEmpty());
}

TEST_F(CertificationDeviceTest, TheLogoModeTakesOneTestDevice) {
    // Not started, so that the loop is over before its first pass.
    for (int product = 257; product <= 264; ++product) {
        build(usb::kModeLogo);
        EXPECT_THAT(findings(device(kTestVendor, static_cast<uint16_t>(product))), IsEmpty());
        if (product == 260) {
            EXPECT_THAT(UnitAttributes::writes(),
                        ElementsAre("bc_polling_enable=0", "usb_logo_test_start=1", "full_spd=i"));
        } else {
            EXPECT_THAT(UnitAttributes::writes(), ElementsAre("apple_dev_default_mode=1"));
        }
    }
}

TEST_F(CertificationDeviceTest, TheLogoTestSwitchesRolesOnTheDevicesBus) {
    mBed.addBus(2);
    mBed.plug("2-1", device(kTestVendor, 260));
    build(usb::kModeLogo);
    mWait->start();
    mWait->onWait([this] {
        if (mWait->asked().size() == 3) {
            mWait->stop();
        }
    });
    EXPECT_EQ(0, act("attach", "2-1"));
    const std::string roleSwitch = "/sys/devices/platform/ehci-platform.2/usb_role_switch=";
    EXPECT_THAT(UnitAttributes::fullWrites(),
                ElementsAre("/sys/module/vxqa4410_bc/parameters/bc_polling_enable=0",
                            "/sys/module/usbcore/parameters/usb_logo_test_start=1",
                            "/sys/devices/platform/vx4410-udc.1/full_spd=i", roleSwitch + "0",
                            roleSwitch + "1", roleSwitch + "0", roleSwitch + "1"));
    EXPECT_THAT(mFindings->take(),
                ElementsAre(Finding(5, 300), Finding(6, 300), Finding(5, 300), Finding(6, 300)));
    EXPECT_THAT(mWait->asked(), ElementsAre(300, 300, 300, 300));
}

TEST_F(CertificationDeviceTest, AStopEndsTheLogoTest) {
    mBed.plug("1-1", device(kTestVendor, 260));
    build(usb::kModeLogo);
    mWait->setLength(ShortWait::kForEver);
    mWait->start();
    std::thread detector([this] { EXPECT_EQ(0, act("attach", "1-1")); });
    EXPECT_TRUE(mFindings->waitFor(1));
    mWait->stop();
    detector.join();
    EXPECT_THAT(mFindings->take(), ElementsAre(Finding(5, 300)));
    EXPECT_EQ("usb_role_switch=0", UnitAttributes::writes().back());
}

TEST_F(CertificationDeviceTest, ALostRoleEventDoesNotEndTheLogoTest) {
    mBed.plug("1-1", device(kTestVendor, 260));
    build(usb::kModeLogo);
    mWait->start();
    mFindings->setResult(1);
    mWait->onWait([this] {
        if (mWait->asked().size() == 4) {
            mWait->stop();
        }
    });
    EXPECT_EQ(-1, act("attach", "1-1"));
    EXPECT_EQ(5U, mFindings->take().size());
    EXPECT_EQ(5U, mLog.count([](const LogLine& line) {
        return line == error("UsbTID", "[sendEvent:540] send event failed!");
    }));
}

TEST_F(CertificationDeviceTest, OneUnitLoadIsAlwaysThere) {
    build(usb::kModeTestDevices);
    for (const uint8_t maxPower : {0, 1, 50}) {
        EXPECT_THAT(findings(deviceOfPower(maxPower)), IsEmpty());
    }
}

TEST_F(CertificationDeviceTest, MoreThanAUnitLoadNeedsASupplyAbove) {
    build(usb::kModeTestDevices);
    const std::vector<std::pair<std::string, bool>> hubs = {
        {std::string("\1\0", 2), true},   // a supply of its own
        {std::string("\1\1", 2), true},   // the second byte says nothing
        {std::string("\0\0", 2), false},  // fed by the bus
        {std::string("\3\0", 2), false},  // may wake the host: not the answer of a plain supply
        {std::string("\1", 1), true},     // short
        {std::string(), false},           // nothing at all
    };
    for (const auto& [status, supplied] : hubs) {
        mBed.plug("1-1", UsbDeviceSpec::hub(), statusOf(status));
        for (const uint8_t maxPower : {51, 250}) {
            mBed.plug("1-1.1", deviceOfPower(maxPower));
            const std::vector<Finding> found = findings("1-1.1");
            EXPECT_EQ(supplied ? std::vector<Finding>() : std::vector<Finding>({Finding(3, 3)}), found)
                << status.size() << " " << int{maxPower};
            EXPECT_EQ(0, act("detach", "1-1.1"));
            mBed.unplug("1-1.1");
        }
        const std::vector<UsbRequest> requests = mBed.requests("1-1");
        ASSERT_EQ(2U, requests.size());
        EXPECT_EQ(128, requests[0].requestType);
        EXPECT_EQ(0, requests[0].request);
        EXPECT_EQ(0, requests[0].value);
        EXPECT_EQ(0, requests[0].index);
        EXPECT_EQ(2, requests[0].length);
        mBed.unplug("1-1");
    }
    EXPECT_EQ(2U, mLog.count(isStatusLine("] libusb_control_transfer failed\n")));
}

TEST_F(CertificationDeviceTest, MoreThanAPortGivesIsTooMuchForAnyHub) {
    build(usb::kModeTestDevices);
    mBed.plug("1-1", UsbDeviceSpec::hub(), statusOf(std::string("\1\0", 2)));
    for (const uint8_t maxPower : {251, 255}) {
        mBed.plug("1-1.1", deviceOfPower(maxPower));
        EXPECT_THAT(findings("1-1.1"), ElementsAre(Finding(3, 3)));
        EXPECT_EQ(0, act("detach", "1-1.1"));
        mBed.unplug("1-1.1");
    }
    EXPECT_THAT(mBed.requests("1-1"), IsEmpty());
}

TEST_F(CertificationDeviceTest, EveryConfigurationMustBeFed) {
    build(usb::kModeTestDevices);
    UsbDeviceSpec spec;
    spec.configs = {{50, {{0, 0, 8, 6, 80}}}, {51, {{0, 0, 8, 6, 80}}}};
    EXPECT_THAT(findings(spec), ElementsAre(Finding(3, 3)));
    std::swap(spec.configs[0], spec.configs[1]);
    EXPECT_THAT(findings(spec), ElementsAre(Finding(3, 3)));
}

TEST_F(CertificationDeviceTest, AHubThatDoesNotAnswerFeedsNothing) {
    build(usb::kModeTestDevices);
    const TestBed::Responder stall = [](const UsbRequest&) { return UsbAnswer::stall(); };
    const TestBed::Responder none = [](const UsbRequest&) { return UsbAnswer::none(); };
    for (const TestBed::Responder& responder : {stall, none}) {
        mBed.plug("1-1", UsbDeviceSpec::hub(), responder);
        mBed.plug("1-1.1", deviceOfPower(100));
        mLog.take();
        EXPECT_THAT(findings("1-1.1"), ElementsAre(Finding(3, 3)));
        EXPECT_EQ(1U, mLog.count(isStatusLine("] libusb_control_transfer failed\n")));
        mBed.unplug("1-1");
    }
}

TEST_F(CertificationDeviceTest, AHubThatCannotBeOpenedFeedsNothing) {
    build(usb::kModeTestDevices);
    mBed.plug("1-1", UsbDeviceSpec::hub(), statusOf(std::string("\1\0", 2)));
    mBed.plug("1-1.1", deviceOfPower(100));
    mBed.vanish("1-1");
    EXPECT_THAT(findings("1-1.1"), ElementsAre(Finding(3, 3)));
    EXPECT_EQ(1U, mLog.count(isStatusLine("] open libusb device failed\n")));
    EXPECT_THAT(mBed.requests("1-1"), IsEmpty());
    // libusb 1.0.26 cannot end a context that lists a device behind a hub which it gave up.
    mBed.unplug("1-1");
}

TEST_F(CertificationDeviceTest, SomeDevicesMayAskForAnyPower) {
    build(usb::kModeTestDevices);
    for (const uint16_t product : {256, 512}) {
        UsbDeviceSpec spec = device(kTestVendor, product);
        spec.configs[0].maxPower = 255;
        EXPECT_THAT(findings(spec), IsEmpty());
    }
    UsbDeviceSpec spec = device(0x1234, 512);
    spec.configs[0].maxPower = 255;
    EXPECT_THAT(findings(spec), IsEmpty());
    spec.product = 511;
    EXPECT_THAT(findings(spec), ElementsAre(Finding(3, 3)));
}

TEST_F(CertificationDeviceTest, ADeviceIsReportedForItsPowerOncePerAttachment) {
    build(usb::kModeTestDevices);
    const UsbDeviceSpec spec = deviceOfPower(255);
    mBed.plug("1-1", spec);
    EXPECT_THAT(findings("1-1"), ElementsAre(Finding(3, 3)));
    EXPECT_THAT(findings("1-1"), IsEmpty());
    EXPECT_EQ(0, act("detach", "1-1"));
    EXPECT_THAT(findings("1-1"), ElementsAre(Finding(3, 3)));
    // Detached unseen, as while the manager is stopped.
    mChecker->reset();
    EXPECT_THAT(findings("1-1"), ElementsAre(Finding(3, 3)));
    // Plugged anew it has another address.
    mBed.unplug("1-1");
    mBed.plug("1-1", spec);
    EXPECT_THAT(findings("1-1"), ElementsAre(Finding(3, 3)));
    // Others neither hide it nor are hidden by it, though there are more than the table holds.
    for (int port = 2; port <= 9; ++port) {
        const std::string name = "1-" + std::to_string(port);
        mBed.plug(name, spec);
        EXPECT_THAT(findings(name), ElementsAre(Finding(3, 3)));
    }
}

TEST_F(CertificationDeviceTest, ReportsUnsupportedTestDevices) {
    build(usb::kModeLogo);
    for (const uint16_t product : {513, 514}) {
        EXPECT_THAT(findings(device(kTestVendor, product)), ElementsAre(Finding(4, 3)));
        EXPECT_THAT(findings(device(kTestVendor - 1, product)), IsEmpty());
    }
    for (const uint16_t product : {512, 515}) {
        EXPECT_THAT(findings(device(kTestVendor, product)), IsEmpty());
    }
}

TEST_F(CertificationDeviceTest, ReportsUnsupportedClasses) {
    build(usb::kModeTestDevices);
    UsbDeviceSpec spec;
    spec.configs = {{50, {{0, 0, 3, 0, 0}, {1, 0, 10, 0, 0}, {1, 1, 14, 0, 0}}}, {50, {{0, 0, 224, 0, 0}}}};
    EXPECT_THAT(findings(spec), IsEmpty());
    for (const int interfaceClass : {3, 14, 224}) {
        mChecker->addUnsupportedClass(interfaceClass);
        mChecker->addUnsupportedClass(interfaceClass);
        EXPECT_THAT(findings(spec), ElementsAre(Finding(4, 3))) << interfaceClass;
        mChecker->removeUnsupportedClass(interfaceClass);
        EXPECT_THAT(findings(spec), IsEmpty()) << interfaceClass;
    }
    for (const int interfaceClass : {8, 3 + 256, -1}) {
        mChecker->addUnsupportedClass(interfaceClass);
        EXPECT_THAT(findings(spec), IsEmpty()) << interfaceClass;
    }
}

TEST_F(CertificationDeviceTest, ReportsAHubTooDeep) {
    build(usb::kModeTestDevices);
    plugHubs(6);
    EXPECT_THAT(findings("1-1.1.1.1.1"), IsEmpty());
    EXPECT_THAT(findings("1-1.1.1.1.1.1"), ElementsAre(Finding(1, 3)));
    mChecker->setMaxHubTier(6);
    EXPECT_THAT(findings("1-1.1.1.1.1.1"), IsEmpty());
    mChecker->setMaxHubTier(1);
    EXPECT_THAT(findings("1-1"), IsEmpty());
    EXPECT_THAT(findings("1-1.1"), ElementsAre(Finding(1, 3)));
    mChecker->setMaxHubTier(0);
    EXPECT_THAT(findings("1-1"), ElementsAre(Finding(1, 3)));
    // What is no hub may lie anywhere; a hub among other interfaces is one.
    mBed.plug("1-1.1.2", UsbDeviceSpec::stick());
    EXPECT_THAT(findings("1-1.1.2"), IsEmpty());
    UsbDeviceSpec compound;
    compound.configs = {{50, {{0, 0, 3, 0, 0}}}, {50, {{0, 0, 3, 0, 0}, {1, 0, 9, 0, 0}}}};
    mBed.plug("1-1.1.3", compound);
    EXPECT_THAT(findings("1-1.1.3"), ElementsAre(Finding(1, 3)));
}

TEST_F(CertificationDeviceTest, ReportsTooManyDevices) {
    build(usb::kModeTestDevices);
    mBed.addBus(2);
    mBed.addBus(3);
    for (int i = 1; i <= 18; ++i) {
        mBed.plug(std::to_string(i % 2 + 1) + "-" + std::to_string(i), UsbDeviceSpec::stick());
    }
    EXPECT_THAT(findings("2-1"), IsEmpty());
    EXPECT_THAT(findings("1-18"), IsEmpty());
    mBed.plug("3-1", UsbDeviceSpec::hub());
    EXPECT_THAT(findings("3-1"), ElementsAre(Finding(9, 3)));
    mBed.unplug("2-1");
    EXPECT_THAT(findings("3-1"), IsEmpty());
}

TEST_F(CertificationDeviceTest, ReportsSpeedsThatThePortsDoNotHave) {
    build(usb::kModeLogo);
    for (const char* speed : {"1.5", "12", "480"}) {
        EXPECT_THAT(findings(deviceOfSpeed(speed)), IsEmpty()) << speed;
    }
    for (const char* speed : {"5000", "10000", "0"}) {
        EXPECT_THAT(findings(deviceOfSpeed(speed)), ElementsAre(Finding(4, 3))) << speed;
    }
}

// Each device trips all checks from its own on.
TEST_F(CertificationDeviceTest, TheFirstCheckThatFailsCounts) {
    build(usb::kModeTestDevices);
    mChecker->setMaxHubTier(0);
    UsbDeviceSpec spec = UsbDeviceSpec::hub();
    spec.speed = "5000";
    for (int port = 2; port <= 19; ++port) {
        mBed.plug("1-" + std::to_string(port), UsbDeviceSpec::stick());
    }
    mChecker->setMaxHubTier(1);
    EXPECT_THAT(findings(spec), ElementsAre(Finding(9, 3)));
    mChecker->setMaxHubTier(0);
    EXPECT_THAT(findings(spec), ElementsAre(Finding(1, 3)));
    mChecker->addUnsupportedClass(9);
    EXPECT_THAT(findings(spec), ElementsAre(Finding(4, 3)));
    spec.configs[0].maxPower = 255;
    EXPECT_THAT(findings(spec), ElementsAre(Finding(3, 3)));
    spec.deviceClass = 31;
    EXPECT_THAT(findings(spec), ElementsAre(Finding(2, 3)));
}

TEST_F(CertificationDeviceTest, InNormalOperationOnlyTheGeneralChecksAreMade) {
    build(usb::kModeNormal);
    UsbDeviceSpec spec = device(kTestVendor, 260);
    spec.speed = "5000";
    EXPECT_THAT(findings(spec), IsEmpty());
    EXPECT_THAT(UnitAttributes::writes(), IsEmpty());
    EXPECT_THAT(findings(device(kTestVendor, 513)), ElementsAre(Finding(4, 3)));
}

TEST_F(CertificationDeviceTest, GoesOnWithoutConfigurationDescriptors) {
    build(usb::kModeTestDevices);
    mBed.plug("1-1", deviceOfPower(255));
    sConfigResult = LIBUSB_ERROR_IO;
    mLog.take();
    EXPECT_THAT(findings("1-1"), IsEmpty());
    EXPECT_THAT(
        mLog.take("UsbTID"),
        ElementsAre(
            error("UsbTID", "[checkPowerState:269] Error getting configure descriptor[LIBUSB_ERROR_IO]\n"),
            error("UsbTID",
                  "[checkNotSupportDevices:352] Error getting configure descriptor[LIBUSB_ERROR_IO]\n"),
            error("UsbTID",
                  "[checkIsExceedMaxHub:410] Error getting configure descriptor[LIBUSB_ERROR_IO]\n")));
}

TEST_F(CertificationDeviceTest, GoesOnWithoutADeviceDescriptor) {
    build(usb::kModeTestDevices);
    mBed.plug("1-1", deviceOfSpeed("5000"));
    sDeviceResult = LIBUSB_ERROR_NO_DEVICE;
    const LogLine line =
        error("UsbTID", "[doAction:587] Error getting device descriptor[LIBUSB_ERROR_NO_DEVICE]\n");
    mLog.take();
    EXPECT_EQ(-1, act("attach", "1-1"));
    EXPECT_THAT(mFindings->take(), ElementsAre(Finding(4, 3)));
    EXPECT_EQ(-1, act("detach", "1-1"));
    EXPECT_THAT(mFindings->take(), IsEmpty());
    EXPECT_THAT(mLog.take("UsbTID"), ElementsAre(line, line));
}

TEST_F(CertificationDeviceTest, GoesOnWithoutAListOfDevices) {
    build(usb::kModeTestDevices);
    mBed.plug("1-1", UsbDeviceSpec::hub());
    mBed.plug("1-1.1", deviceOfPower(100));
    mBed.plug("1-1.2", UsbDeviceSpec::stick());
    sListResult = LIBUSB_ERROR_NO_MEM;
    EXPECT_THAT(findings("1-1.2"), IsEmpty());
    EXPECT_THAT(findings("1-1.1"), ElementsAre(Finding(3, 3)));
    EXPECT_EQ(2U, mLog.count([](const LogLine& line) {
        return line.tag == "UsbTID" &&
               line.text.find("libusb_get_device_list() failed: LIBUSB_ERROR_NO_MEM\n") != std::string::npos;
    }));
}

TEST_F(CertificationDeviceTest, RefusesUnknownActions) {
    build(usb::kModeTestDevices);
    mBed.plug("1-1", deviceOfClass(31));
    EXPECT_EQ(-1, act("change", "1-1"));
    EXPECT_THAT(mFindings->take(), IsEmpty());
}

TEST_F(CertificationDeviceTest, ALostFindingIsLogged) {
    build(usb::kModeTestDevices);
    mBed.plug("1-1", deviceOfClass(31));
    mFindings->setResult(7);
    mLog.take();
    EXPECT_EQ(-1, act("attach", "1-1"));
    EXPECT_THAT(mLog.take("UsbTID"), ElementsAre(error("UsbTID", "[sendEvent:540] send event failed!")));
}

TEST_F(CertificationDeviceTest, MissingAttributesHoldNothingUp) {
    mAttributes.remove("/sys/module/usbcore/parameters/apple_dev_default_mode");
    build(usb::kModeTestDevices);
    EXPECT_THAT(findings(device(kTestVendor, 513)), ElementsAre(Finding(4, 3)));
}

namespace {

/** The whole road: detector, handler, checker, manager's notifier. */
class CertificationRoadTest : public CertificationDeviceTest {
  protected:
    void SetUp() override {
        std::string folder = fs::temp_directory_path() / "usb-vendor-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(folder.data()));
        mFolder = folder;
        ASSERT_EQ(0, setenv("VX_VENDOR_DATA_DIR", mFolder.c_str(), 1));
    }

    void TearDown() override {
        if (mTest != nullptr) {
            stop();
        }
        mTest.clear();
        mDetector.clear();
        fs::remove_all(mFolder);
    }

    void start(const char* letter) {
        ASSERT_EQ(0, vx_vendor_data_write_string(letter, 173, 1));
        mTest = new UsbTest(mDetector, mWait);
        mTest->setNotifier(mFindings);
        startBoth();
        UnitAttributes::forget();
    }

    void startBoth() {
        mTest->start();
        mDetector->start();
        // The first scan comes after the registration for events.
        ASSERT_TRUE(
            mLog.waitFor({ANDROID_LOG_WARN, "UsbDetector", "skip root usb hub[9]\n"}, kCertificationLimit));
        mLog.take();
    }

    void stop() {
        mTest->endWaits();
        mDetector->stop();
        mTest->stop();
    }

    /**
     * Waits until the detector lists @p count devices: it opens each before, and the bed must not take an
     * open device away.
     */
    bool settle(size_t count) const {
        return eventually([this, count] { return mDetector->count() == count; });
    }

    /** Plugs what is always found out: all that came before it has been handled then. */
    void fence() {
        mBed.plug("1-15", deviceOfClass(31));
        ASSERT_TRUE(mFindings->waitFor(1));
    }

    std::string mFolder;
    sp<UsbDetector> mDetector = new UsbDetector();
    sp<UsbTest> mTest;
};

}  // namespace

TEST_F(CertificationRoadTest, FindingsReachTheManager) {
    start("T");
    mBed.plug("1-1", UsbDeviceSpec::hub());
    mBed.plug("1-1.1", deviceOfPower(250));
    ASSERT_TRUE(mFindings->waitFor(1));
    EXPECT_THAT(mFindings->take(), ElementsAre(Finding(3, 3)));
    EXPECT_EQ(0, mTest->addUnsupportedClass(3));
    UsbDeviceSpec keyboard;
    keyboard.configs = {{50, {{0, 0, 3, 1, 1}}}};
    mBed.plug("1-1.2", keyboard);
    ASSERT_TRUE(mFindings->waitFor(1));
    EXPECT_THAT(mFindings->take(), ElementsAre(Finding(4, 3)));
    EXPECT_EQ(0, mTest->setMaxHubTier(1));
    mBed.plug("1-1.3", UsbDeviceSpec::hub());
    ASSERT_TRUE(mFindings->waitFor(1));
    EXPECT_THAT(mFindings->take(), ElementsAre(Finding(1, 3)));
    ASSERT_TRUE(settle(4));
    mBed.unplug("1-1");
    fence();
    EXPECT_THAT(mFindings->take(), ElementsAre(Finding(2, 3)));
}

TEST_F(CertificationRoadTest, AHubIsAskedFromTheEventThread) {
    start("T");
    mBed.plug("1-1", UsbDeviceSpec::hub(), statusOf(std::string("\1\0", 2)));
    mBed.plug("1-1.1", deviceOfPower(250));
    fence();
    EXPECT_THAT(mFindings->take(), ElementsAre(Finding(2, 3)));
    EXPECT_EQ(0U, mLog.count(isStatusLine("failed\n")));
    // The detector's scan asks no hub for its status.
    const std::vector<UsbRequest> requests = mBed.requests("1-1");
    ASSERT_EQ(1U, requests.size());
    EXPECT_EQ(128, requests[0].requestType);
}

TEST_F(CertificationRoadTest, NormalOperationHearsOfNothing) {
    start("O");
    mBed.plug("1-1", deviceOfClass(31));
    ASSERT_TRUE(settle(1));
    EXPECT_THAT(mFindings->take(), IsEmpty());
    EXPECT_THAT(UnitAttributes::writes(), IsEmpty());
}

TEST_F(CertificationRoadTest, AFailedActionIsLogged) {
    start("T");
    mFindings->setResult(-3);
    fence();
    ASSERT_TRUE(mLog.waitFor(error("UsbTest", "TID do action fail\n"), kCertificationLimit));
    ASSERT_TRUE(settle(1));
    mBed.unplug("1-15");
    stop();
    std::vector<LogLine> lines;
    for (const LogLine& line : mLog.take()) {
        if (line.tag == "UsbTest" || line.tag == "UsbTID") {
            lines.push_back(line);
        }
    }
    EXPECT_THAT(lines, ElementsAre(error("UsbTest", "handle event[2] error\n"),
                                   error("UsbTID", "[sendEvent:540] send event failed!"),
                                   error("UsbTest", "TID do action fail\n")));
}

TEST_F(CertificationRoadTest, AFindingWithoutANotifierIsNoFailure) {
    start("T");
    mTest->setNotifier(nullptr);
    mBed.plug("1-1", deviceOfClass(31));
    // The detector takes a device up after the checks.
    ASSERT_TRUE(settle(1));
    EXPECT_EQ(0U, mLog.count([](const LogLine& line) { return line.tag == "UsbTest"; }));
}

TEST_F(CertificationRoadTest, TheLogoTestEndsWithTheManager) {
    start("M");
    mWait->setLength(ShortWait::kForEver);
    mBed.plug("1-1", device(kTestVendor, 260));
    ASSERT_TRUE(mFindings->waitFor(1));
    EXPECT_THAT(mFindings->take(), ElementsAre(Finding(5, 300)));
    stop();
    EXPECT_EQ(300, mWait->asked().back());
    EXPECT_THAT(mFindings->take(), IsEmpty());
    // Started again it checks on; the logo test has been.
    startBoth();
    UnitAttributes::forget();
    ASSERT_TRUE(settle(1));
    mBed.unplug("1-1");
    mBed.plug("1-1", device(kTestVendor, 260));
    fence();
    EXPECT_THAT(mFindings->take(), ElementsAre(Finding(2, 3)));
    EXPECT_THAT(UnitAttributes::writes(), ElementsAre("apple_dev_default_mode=1"));
}

TEST_F(CertificationRoadTest, TheLogoTestGoesOnUntilThen) {
    start("M");
    mBed.plug("1-1", device(kTestVendor, 260));
    ASSERT_TRUE(mFindings->waitFor(5));
    stop();
    std::vector<Finding> found = mFindings->take();
    found.resize(5);
    EXPECT_THAT(found, ElementsAre(Finding(5, 300), Finding(6, 300), Finding(5, 300), Finding(6, 300),
                                   Finding(5, 300)));
}

TEST_F(CertificationRoadTest, AfterItsEndTheDetectorGoesOnAlone) {
    start("T");
    stop();
    mTest.clear();
    mFindings->take();
    mDetector->start();
    ASSERT_TRUE(
        mLog.waitFor({ANDROID_LOG_WARN, "UsbDetector", "skip root usb hub[9]\n"}, kCertificationLimit));
    mBed.plug("1-1", deviceOfClass(31));
    ASSERT_TRUE(settle(1));
    EXPECT_THAT(mFindings->take(), IsEmpty());
    mDetector->stop();
}
