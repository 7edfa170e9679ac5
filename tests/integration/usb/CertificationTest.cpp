// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The certification mode on the unit's vendor data and attributes, without devices.
 */
#include "usb/UsbTest.h"

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libusb-1.0/libusb.h>
#include <sys/stat.h>
#include <vx_vendor_data.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/integration/usb/CertificationDoubles.h"
#include "tests/integration/usb/UnitAttributes.h"
#include "tests/support/PrivateNamespaces.h"
#include "tests/unit/common/ThreadProbe.h"
#include "tests/unit/support/LogCapture.h"
#include "usb/UsbTID.h"

using android::sp;
using android::wp;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using usb::UsbDetector;
using usb::UsbTest;

namespace {

namespace fs = std::filesystem;

constexpr const char* kTag = "UsbTest";
constexpr const char* kVendorFolder = "/mnt/vendor-data";
constexpr const char* kToolCalls = "/mnt/usb_uphy.calls";
constexpr const char* kChargingSwitch = "/sys/module/vxqa4410_bc/bc_switch";
constexpr const char* kParameters = "/sys/module/usbcore/parameters/";
constexpr int kItemMode = 173;

std::string parameter(const std::string& name) {
    return kParameters + name;
}

std::string portStatus(int port) {
    return "/sys/devices/platform/ehci-platform." + std::to_string(port) + "/ehci_port_status";
}

LogLine info(const std::string& text) {
    return {ANDROID_LOG_INFO, kTag, text};
}

LogLine warning(const std::string& text) {
    return {ANDROID_LOG_WARN, kTag, text};
}

LogLine error(const std::string& text) {
    return {ANDROID_LOG_ERROR, kTag, text};
}

void store(int item, const std::string& letter) {
    ASSERT_EQ(0, vx_vendor_data_write_string(letter.c_str(), item, 1));
}

std::string stored(int item) {
    char letter = '\0';
    return vx_vendor_data_read_string(item, 1, &letter) == 0 ? std::string(1, letter) : "nothing";
}

/** A plain file in place of the folder: neither reads nor writes can work. */
void breakVendorData() {
    fs::remove_all(kVendorFolder);
    std::ofstream(kVendorFolder) << "not a folder";
}

std::vector<std::string> linesOf(const char* file) {
    std::vector<std::string> lines;
    std::ifstream stream(file);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

/** Stands in for a device where the checker needs no more than its descriptor and bus. */
libusb_device* standIn() {
    static char sPlace;
    return reinterpret_cast<libusb_device*>(&sPlace);
}

}  // namespace

extern "C" {

// NOLINTBEGIN(readability-identifier-naming): the linker's names
int __wrap_libusb_get_device_descriptor(libusb_device* /*device*/, libusb_device_descriptor* descriptor) {
    *descriptor = {};
    descriptor->idVendor = 6666;
    descriptor->idProduct = 260;
    return 0;
}

uint8_t __wrap_libusb_get_bus_number(libusb_device* /*device*/) {
    return 3;
}
// NOLINTEND(readability-identifier-naming)

}  // extern "C"

namespace {

class CertificationTest : public ::testing::Test {
  protected:
    void SetUp() override {
        fs::remove_all(kVendorFolder);
        fs::remove(kToolCalls);
        mAttributes.layAll();
    }

    void TearDown() override {
        if (mTest != nullptr) {
            mTest->stop();
        }
    }

    void build(const std::string& letter) {
        store(kItemMode, letter);
        mTest = new UsbTest(mDetector, mWait);
        mTest->setNotifier(mFindings);
        UnitAttributes::forget();
        mLog.take();
    }

    void buildAndStart(const std::string& letter) {
        build(letter);
        mTest->start();
    }

    /** Waits until the handler is through with all messages posted so far. Uses up the writes. */
    void fence() {
        UnitAttributes::forget();
        ASSERT_EQ(0, mTest->postTestMessage(1));
        ASSERT_TRUE(UnitAttributes::waitForWrites(4));
    }

    UnitAttributes mAttributes;
    LogCapture mLog;
    sp<ShortWait> mWait = new ShortWait();
    sp<FindingRecorder> mFindings = new FindingRecorder();
    sp<UsbDetector> mDetector = new UsbDetector();
    sp<UsbTest> mTest;
};

}  // namespace

TEST_F(CertificationTest, ReadsTheModeOfEveryLetter) {
    const std::vector<std::pair<std::string, int>> modes = {{"M", 77}, {"m", 77}, {"T", 84}, {"t", 84},
                                                            {"O", 79}, {"o", 79}, {"x", 79}, {"1", 79}};
    for (const auto& [letter, mode] : modes) {
        store(kItemMode, letter);
        const sp<UsbTest> test = new UsbTest(mDetector, mWait);
        EXPECT_EQ(mode, test->getCertificationMode()) << letter;
    }
    EXPECT_THAT(mWait->asked(), IsEmpty());
}

TEST_F(CertificationTest, NeverSetUpIsNormalOperation) {
    const sp<UsbTest> test = new UsbTest(mDetector, mWait);
    EXPECT_EQ(79, test->getCertificationMode());
    EXPECT_THAT(mWait->asked(), IsEmpty());
    EXPECT_THAT(mLog.take(kTag), ElementsAre(info("[UsbTest:417] init UsbTest\n")));
}

TEST_F(CertificationTest, AnUnreadableModeIsNormalOperationAfterFiveTries) {
    breakVendorData();
    const sp<UsbTest> test = new UsbTest(mDetector, mWait);
    EXPECT_EQ(79, test->getCertificationMode());
    const LogLine retry = error("get usb certificationMode failed...retry\n");
    EXPECT_THAT(mLog.take(kTag),
                ElementsAre(info("[UsbTest:417] init UsbTest\n"), retry, retry, retry, retry, retry));
    EXPECT_THAT(mWait->asked(), ElementsAre(1, 1, 1, 1, 1));
}

TEST_F(CertificationTest, AModeThatBecomesReadableIsTaken) {
    breakVendorData();
    int waits = 0;
    mWait->onWait([&waits] {
        if (++waits == 2) {
            fs::remove_all(kVendorFolder);
            store(kItemMode, "T");
        }
    });
    const sp<UsbTest> test = new UsbTest(mDetector, mWait);
    EXPECT_EQ(84, test->getCertificationMode());
    EXPECT_EQ(2, waits);
}

TEST_F(CertificationTest, WaitsOfTheModeReadTakeTheirTime) {
    breakVendorData();
    const auto begin = std::chrono::steady_clock::now();
    const sp<UsbTest> test = new UsbTest(mDetector);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
    EXPECT_EQ(79, test->getCertificationMode());
}

TEST_F(CertificationTest, NormalOperationIsInert) {
    buildAndStart("O");
    for (int what = -1; what < 10; ++what) {
        EXPECT_EQ(1, mTest->postTestMessage(what));
    }
    EXPECT_EQ(1, mTest->setMaxHubTier(2));
    EXPECT_EQ(1, mTest->addUnsupportedClass(8));
    EXPECT_EQ(1, mTest->removeUnsupportedClass(8));
    EXPECT_EQ(0, countThreads("UsbTestQueue"));
    mTest->stop();
    mTest.clear();
    EXPECT_THAT(UnitAttributes::writes(), IsEmpty());
    EXPECT_THAT(mLog.take(kTag), IsEmpty());
}

TEST_F(CertificationTest, NormalOperationNeedsNoDetector) {
    const sp<UsbTest> test = new UsbTest(nullptr, mWait);
    test->start();
    test->stop();
    EXPECT_EQ(79, test->getCertificationMode());
}

TEST_F(CertificationTest, SetsTheTestEnvironmentAndTakesItBack) {
    const std::vector<std::pair<std::string, std::string>> environments = {{"T", "TID"}, {"M", "MFI"}};
    for (const auto& [letter, environment] : environments) {
        store(kItemMode, letter);
        UnitAttributes::forget();
        sp<UsbTest> test = new UsbTest(mDetector, mWait);
        EXPECT_THAT(UnitAttributes::writes(),
                    ElementsAre("specific_test_set=" + environment, "android_default_mode=0",
                                "android_aoa_description_user=0", "initial_descriptor_timeout=5000",
                                "hub_level_set=6"));
        UnitAttributes::forget();
        test.clear();
        EXPECT_THAT(UnitAttributes::writes(), ElementsAre("specific_test_set=ORI"));
    }
}

TEST_F(CertificationTest, AMissingTestEnvironmentIsLogged) {
    mAttributes.remove("/proc/usb_verify_test/hub_level_set");
    store(kItemMode, "T");
    const sp<UsbTest> test = new UsbTest(mDetector, mWait);
    EXPECT_EQ(84, test->getCertificationMode());
    const auto isLine = [](const LogLine& line) {
        return line.priority == ANDROID_LOG_ERROR && line.tag == "UsbTID" &&
               line.text.compare(0, 21, "[initTestEnvironment:") == 0 &&
               line.text.find("] set MaxHubTier failed\n") != std::string::npos;
    };
    EXPECT_EQ(1U, mLog.count(isLine));
}

TEST_F(CertificationTest, SetsTheHighestTier) {
    buildAndStart("T");
    EXPECT_EQ(0, mTest->setMaxHubTier(3));
    EXPECT_EQ(0, mTest->setMaxHubTier(-7));
    EXPECT_EQ(0, mTest->setMaxHubTier(INT32_MAX));
    EXPECT_THAT(UnitAttributes::writes(),
                ElementsAre("hub_level_set=4", "hub_level_set=-6", "hub_level_set=2147483648"));
    mAttributes.remove("/proc/usb_verify_test/hub_level_set");
    EXPECT_EQ(0, mTest->setMaxHubTier(4));
}

TEST_F(CertificationTest, TakesUnsupportedClassesOfAnyNumber) {
    buildAndStart("T");
    for (const int interfaceClass : {0, 8, 8, 255, 256, -1, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(0, mTest->addUnsupportedClass(interfaceClass));
        EXPECT_EQ(0, mTest->removeUnsupportedClass(interfaceClass));
        EXPECT_EQ(0, mTest->removeUnsupportedClass(interfaceClass));
    }
}

TEST_F(CertificationTest, KeepsTheModeForTheNextStart) {
    build("O");
    const std::vector<std::pair<int, std::string>> modes = {{84, "T"}, {77, "M"}, {79, "O"},
                                                            {0, "O"},  {-1, "O"}, {84 + 256, "O"}};
    for (const auto& [mode, letter] : modes) {
        store(kItemMode, "x");
        EXPECT_EQ(0, mTest->setCertificationMode(mode));
        EXPECT_EQ(letter, stored(kItemMode)) << mode;
        EXPECT_EQ(79, mTest->getCertificationMode());
    }
    breakVendorData();
    EXPECT_EQ(1, mTest->setCertificationMode(84));
}

TEST_F(CertificationTest, ReadsTheChargingModes) {
    build("O");
    const std::vector<std::pair<std::string, int>> modes = {{"C", 0}, {"c", 0}, {"D", 1}, {"d", 1},
                                                            {"S", 2}, {"s", 2}, {"x", 3}, {"0", 3}};
    for (int port = 0; port < 3; ++port) {
        EXPECT_EQ(3, mTest->getPortChargingMode(port));
        for (const auto& [letter, mode] : modes) {
            store(170 + port, letter);
            EXPECT_EQ(mode, mTest->getPortChargingMode(port)) << letter;
        }
    }
    // Behind the ports' items stands the certification mode, before them anything.
    store(169, "D");
    store(173, "S");
    for (const int port : {-1, 3, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(3, mTest->getPortChargingMode(port));
    }
    store(170, "D");
    breakVendorData();
    EXPECT_EQ(3, mTest->getPortChargingMode(0));
}

TEST_F(CertificationTest, SwitchesThePortsChargingWithItsPowerOff) {
    build("O");
    const std::vector<std::tuple<int, int, std::string, std::string>> switches = {
        {0, 0, "C", "0"},   {0, 1, "D", "256"}, {0, 2, "S", "512"},  {1, 0, "C", "1"},
        {2, 1, "D", "258"}, {2, 2, "S", "514"}, {1, 7, "C", "1793"}, {1, -1, "C", "-255"},
    };
    for (const auto& [port, mode, letter, value] : switches) {
        mAttributes.lay(kChargingSwitch);
        fs::remove(kToolCalls);
        EXPECT_EQ(0, mTest->switchPortChargingMode(port, mode));
        EXPECT_EQ(letter, stored(170 + port));
        const std::string number = std::to_string(port);
        EXPECT_THAT(linesOf(kToolCalls),
                    ElementsAre("--vbus_off " + number + ":", "--vbus_on " + number + ":" + value));
    }
    EXPECT_EQ(switches.size(), mWait->asked().size());
    EXPECT_THAT(mWait->asked(), Each(0.5));
    EXPECT_THAT(mLog.take(kTag), IsEmpty());
}

TEST_F(CertificationTest, SwitchesChargingAlsoWhenItCannotBeKept) {
    build("T");
    breakVendorData();
    EXPECT_EQ(1, mTest->switchPortChargingMode(1, 2));
    EXPECT_THAT(linesOf(kToolCalls), ElementsAre("--vbus_off 1:", "--vbus_on 1:513"));
}

TEST_F(CertificationTest, RefusesPortsThatDoNotExist) {
    build("T");
    for (const int port : {3, -1, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(1, mTest->switchPortChargingMode(port, 1));
    }
    EXPECT_EQ("T", stored(kItemMode));
    EXPECT_THAT(linesOf(kToolCalls), IsEmpty());
    EXPECT_THAT(UnitAttributes::writes(), IsEmpty());
}

TEST_F(CertificationTest, WaitsForTheChargingDriver) {
    build("O");
    mAttributes.remove(kChargingSwitch);
    std::thread caller([this] { EXPECT_EQ(0, mTest->switchPortChargingMode(2, 1)); });
    EXPECT_TRUE(mWait->waitForAsked(3, 4));
    EXPECT_THAT(linesOf(kToolCalls), ElementsAre("--vbus_off 2:"));
    mAttributes.refuse(kChargingSwitch, 3);
    mAttributes.lay(kChargingSwitch);
    caller.join();
    EXPECT_EQ(0, mAttributes.refusalsLeft(kChargingSwitch));
    EXPECT_THAT(linesOf(kToolCalls), ElementsAre("--vbus_off 2:", "--vbus_on 2:258"));
}

TEST_F(CertificationTest, TheEndOfWaitsGivesThePortItsPowerBack) {
    for (const char* letter : {"O", "T"}) {
        build(letter);
        mAttributes.remove(kChargingSwitch);
        fs::remove(kToolCalls);
        const long before = static_cast<long>(mWait->asked().size());
        mWait->setLength(ShortWait::kForEver);
        std::thread caller([this] { EXPECT_EQ(0, mTest->switchPortChargingMode(0, 1)); });
        EXPECT_TRUE(mWait->waitForAsked(3));
        EXPECT_EQ(before + 1, static_cast<long>(mWait->asked().size()));
        // The time for which the power is off is no long wait and takes its course.
        mWait->setLength(1000);
        mTest->stop();
        caller.join();
        EXPECT_THAT(linesOf(kToolCalls), ElementsAre("--vbus_off 0:", "--vbus_on 0:"));
        mWait = new ShortWait();
    }
}

TEST_F(CertificationTest, WritesEachTestModeInOrder) {
    const std::vector<std::pair<int, std::vector<std::string>>> codes = {
        {1, {"idVendor=0", "idProduct=0", "id_enable=0", "usb_logo_test_start=0"}},
        {2, {"idVendor=6666", "idProduct=258", "id_enable=1", "usb_logo_test_start=1"}},
        {3, {"idVendor=6666", "idProduct=259", "id_enable=1", "usb_logo_test_start=1"}},
        {4, {"idVendor=6666", "idProduct=257", "id_enable=1", "usb_logo_test_start=1"}},
        {5, {"idVendor=6666", "idProduct=260", "id_enable=1", "usb_logo_test_start=1"}},
        {7, {"idVendor=6666", "idProduct=262", "id_enable=1", "usb_logo_test_start=1"}},
        {8, {"idVendor=6666", "idProduct=263", "id_enable=1", "usb_logo_test_start=1"}},
    };
    buildAndStart("T");
    for (const auto& [code, writes] : codes) {
        UnitAttributes::forget();
        EXPECT_EQ(0, mTest->postTestMessage(code));
        ASSERT_TRUE(UnitAttributes::waitForWrites(4)) << code;
        EXPECT_EQ(writes, UnitAttributes::writes());
    }
    mTest->stop();
    EXPECT_EQ("6666", mAttributes.read(parameter("idVendor")));
    EXPECT_EQ("263", mAttributes.read(parameter("idProduct")));
    EXPECT_THAT(mLog.take(kTag), IsEmpty());
}

TEST_F(CertificationTest, TheLogoModeMakesThePortOfTwoRolesReady) {
    buildAndStart("M");
    for (const int code : {2, 3, 4, 5, 7, 8}) {
        UnitAttributes::forget();
        EXPECT_EQ(0, mTest->postTestMessage(code));
        ASSERT_TRUE(UnitAttributes::waitForWrites(5)) << code;
        EXPECT_EQ("full_spd=i", UnitAttributes::writes()[0]);
        EXPECT_EQ("idVendor=6666", UnitAttributes::writes()[1]);
    }
    fence();
    mTest->stop();
    EXPECT_THAT(UnitAttributes::writes(),
                ElementsAre("idVendor=0", "idProduct=0", "id_enable=0", "usb_logo_test_start=0"));
}

TEST_F(CertificationTest, CodeZeroWritesNothing) {
    buildAndStart("M");
    mAttributes.lay(parameter("idVendor"), "old");
    EXPECT_EQ(0, mTest->postTestMessage(0));
    fence();
    // The fence's own four, and nothing before them.
    EXPECT_THAT(UnitAttributes::writes(),
                ElementsAre("idVendor=0", "idProduct=0", "id_enable=0", "usb_logo_test_start=0"));
}

TEST_F(CertificationTest, LogsUndefinedCodes) {
    buildAndStart("T");
    for (const int code : {9, 10, 1000, -1}) {
        EXPECT_EQ(0, mTest->postTestMessage(code));
    }
    fence();
    EXPECT_THAT(mLog.take(kTag), ElementsAre(warning("not defined usb test mode=[9]\n"),
                                             warning("not defined usb test mode=[10]\n"),
                                             warning("not defined usb test mode=[1000]\n"),
                                             warning("not defined usb test mode=[-1]\n")));
    EXPECT_EQ(4U, UnitAttributes::writes().size());
}

TEST_F(CertificationTest, OpensTheAttributesInOrderAndWaitsForEach) {
    buildAndStart("T");
    const std::vector<std::string> order = {"idProduct", "idVendor", "id_enable", "usb_logo_test_start"};
    for (const std::string& missing : order) {
        for (const std::string& name : order) {
            mAttributes.lay(parameter(name), "old");
        }
        mAttributes.remove(parameter(missing));
        UnitAttributes::forget();
        const std::vector<double> asked = mWait->asked();
        const long before = std::count(asked.begin(), asked.end(), 3.0);
        EXPECT_EQ(0, mTest->postTestMessage(2));
        ASSERT_TRUE(mWait->waitForAsked(3, before + 2));
        bool opened = true;
        for (const std::string& name : order) {
            if (name == missing) {
                opened = false;
                continue;
            }
            // Opening empties the file.
            EXPECT_EQ(opened ? "" : "old", mAttributes.read(parameter(name))) << missing << " " << name;
        }
        EXPECT_THAT(UnitAttributes::writes(), IsEmpty());
        mAttributes.lay(parameter(missing));
        ASSERT_TRUE(UnitAttributes::waitForWrites(4));
    }
}

TEST_F(CertificationTest, WritesUntilTheKernelTakesTheValue) {
    buildAndStart("T");
    for (const char* name : {"idVendor", "idProduct", "id_enable", "usb_logo_test_start"}) {
        mAttributes.refuse(parameter(name), 3);
    }
    EXPECT_EQ(0, mTest->postTestMessage(3));
    ASSERT_TRUE(UnitAttributes::waitForWrites(4));
    EXPECT_THAT(UnitAttributes::writes(),
                ElementsAre("idVendor=6666", "idProduct=259", "id_enable=1", "usb_logo_test_start=1"));
    EXPECT_EQ(0, mAttributes.refusalsLeft(parameter("usb_logo_test_start")));
}

TEST_F(CertificationTest, DropsMessagesWhileNotStarted) {
    build("T");
    EXPECT_EQ(0, mTest->postTestMessage(2));
    mTest->start();
    fence();
    mTest->stop();
    EXPECT_EQ(0, mTest->postTestMessage(7));
    EXPECT_EQ(4U, UnitAttributes::writes().size());
    EXPECT_THAT(mLog.take(kTag), ElementsAre(warning("not started, test message[2] dropped\n"),
                                             warning("not started, test message[7] dropped\n")));
}

TEST_F(CertificationTest, AMessageIsPendingOnce) {
    buildAndStart("T");
    // The watch holds the queue.
    EXPECT_EQ(0, mTest->postTestMessage(6));
    ASSERT_TRUE(mLog.waitFor(info("TEST MODE FORCE ENABLE\n"), kCertificationLimit));
    EXPECT_EQ(0, mTest->postTestMessage(7));
    EXPECT_EQ(0, mTest->postTestMessage(7));
    EXPECT_EQ(0, mTest->postTestMessage(8));
    EXPECT_EQ(0, mTest->postTestMessage(7));
    EXPECT_EQ(0, mTest->postTestMessage(1));
    UnitAttributes::forget();
    mAttributes.lay(portStatus(1), "1\n");
    ASSERT_TRUE(mLog.waitFor(info("PORT1 CONNECTED\n"), kCertificationLimit));
    mAttributes.lay(portStatus(1), "0\n");
    ASSERT_TRUE(UnitAttributes::waitForWrites(12));
    mTest->stop();
    const std::vector<std::string> writes = UnitAttributes::writes();
    ASSERT_EQ(12U, writes.size());
    EXPECT_EQ("idProduct=263", writes[1]);
    EXPECT_EQ("idProduct=262", writes[5]);
    EXPECT_EQ("idProduct=0", writes[9]);
}

TEST_F(CertificationTest, TheWatchEndsWithADeviceThatLeaves) {
    for (int port = 1; port <= 3; ++port) {
        buildAndStart("T");
        const std::string name = "PORT" + std::to_string(port);
        EXPECT_EQ(0, mTest->postTestMessage(6));
        // A port without a device, or with something unheard of, does not end it.
        mAttributes.lay(portStatus(port == 1 ? 2 : 1), "11\n");
        ASSERT_TRUE(mLog.waitFor(info("TEST MODE FORCE ENABLE\n"), kCertificationLimit));
        mAttributes.lay(portStatus(port), "  1 high\n");
        ASSERT_TRUE(mLog.waitFor(info(name + " CONNECTED\n"), kCertificationLimit));
        EXPECT_THAT(mFindings->take(), IsEmpty());
        mAttributes.lay(portStatus(port), "2\n");
        ASSERT_TRUE(mFindings->waitFor(1));
        EXPECT_THAT(mFindings->take(), ElementsAre(std::make_pair(8, 3)));
        fence();
        EXPECT_THAT(mWait->asked(), Each(1.0));
        const std::vector<LogLine> lines = mLog.take(kTag);
        EXPECT_EQ(info("TEST MODE FORCE ENABLE\n"), lines.front());
        EXPECT_EQ(info(name + " DISCONNECTED\n"), lines.back());
        EXPECT_EQ(1, std::count(lines.begin(), lines.end(), lines.back()));
        mTest->stop();
        mTest.clear();
        mAttributes.layAll();
    }
}

TEST_F(CertificationTest, TheWatchTellsOfAPortInEveryPass) {
    buildAndStart("T");
    mAttributes.lay(portStatus(1), "1\n");
    mAttributes.lay(portStatus(2), "1\n");
    mAttributes.lay(portStatus(3), "1\n");
    mWait->onWait([this] {
        if (mWait->asked().size() == 1) {
            mAttributes.lay(portStatus(2), "0\n");
        }
    });
    EXPECT_EQ(0, mTest->postTestMessage(6));
    ASSERT_TRUE(mFindings->waitFor(1));
    fence();
    const LogLine pass = info("TEST MODE FORCE ENABLE\n");
    const LogLine one = info("PORT1 CONNECTED\n");
    const LogLine two = info("PORT2 CONNECTED\n");
    const LogLine three = info("PORT3 CONNECTED\n");
    EXPECT_THAT(mLog.take(kTag), ElementsAre(pass, one, two, three, pass, one, two, three, pass, one,
                                             info("PORT2 DISCONNECTED\n")));
}

TEST_F(CertificationTest, ALostDisconnectIsLogged) {
    buildAndStart("T");
    mFindings->setResult(-5);
    mAttributes.lay(portStatus(3), "1");
    mWait->onWait([this] { mAttributes.lay(portStatus(3), ""); });
    EXPECT_EQ(0, mTest->postTestMessage(6));
    fence();
    EXPECT_EQ(error("handle event[8] error\n"), mLog.take(kTag).back());
}

TEST_F(CertificationTest, TheWatchNeedsNoNotifier) {
    buildAndStart("T");
    mTest->setNotifier(nullptr);
    mAttributes.lay(portStatus(1), "1");
    mWait->onWait([this] { mAttributes.lay(portStatus(1), "0"); });
    EXPECT_EQ(0, mTest->postTestMessage(6));
    fence();
    EXPECT_EQ(info("PORT1 DISCONNECTED\n"), mLog.take(kTag).back());
    EXPECT_THAT(mFindings->take(), IsEmpty());
}

TEST_F(CertificationTest, TheWatchWaitsForThePorts) {
    buildAndStart("T");
    mAttributes.lay(portStatus(1), "1");
    mAttributes.remove(portStatus(2));
    EXPECT_EQ(0, mTest->postTestMessage(6));
    ASSERT_TRUE(mWait->waitForAsked(3, 3));
    mAttributes.lay(portStatus(2), "0");
    ASSERT_TRUE(mWait->waitForAsked(1, 2));
    mAttributes.lay(portStatus(1), "0");
    ASSERT_TRUE(mFindings->waitFor(1));
}

TEST_F(CertificationTest, AStopEndsEveryWaitOfTheQueue) {
    const std::vector<std::pair<std::string, double>> waits = {
        {parameter("idProduct"), 3}, {parameter("usb_logo_test_start"), 3}, {portStatus(3), 3}, {"", 1}};
    for (const auto& [missing, seconds] : waits) {
        build("T");
        mWait->setLength(ShortWait::kForEver);
        mTest->start();
        if (!missing.empty()) {
            mAttributes.remove(missing);
        }
        EXPECT_EQ(0, mTest->postTestMessage(6));
        ASSERT_TRUE(mWait->waitForAsked(seconds)) << missing;
        mTest->stop();
        EXPECT_TRUE(eventually([] { return countThreads("UsbTestQueue") == 0; })) << missing;
        mAttributes.layAll();
        mWait = new ShortWait();
    }
}

TEST_F(CertificationTest, AStopEndsTheWaitForAValueToBeTaken) {
    build("T");
    mWait->setLength(ShortWait::kForEver);
    mTest->start();
    mAttributes.refuse(parameter("id_enable"), INT32_MAX);
    EXPECT_EQ(0, mTest->postTestMessage(2));
    ASSERT_TRUE(mWait->waitForAsked(0.1));
    mTest->stop();
    EXPECT_TRUE(eventually([] { return countThreads("UsbTestQueue") == 0; }));
    EXPECT_THAT(UnitAttributes::writes(), ElementsAre("idVendor=6666", "idProduct=258"));
}

TEST_F(CertificationTest, StartsAgainAfterAStop) {
    build("T");
    for (int round = 0; round < 3; ++round) {
        mTest->start();
        fence();
        EXPECT_EQ(1, countThreads("UsbTestQueue"));
        mTest->stop();
        EXPECT_TRUE(eventually([] { return countThreads("UsbTestQueue") == 0; }));
    }
}

TEST_F(CertificationTest, WhatEndedItsWaitsWaitsAgainAfterAStart) {
    buildAndStart("T");
    mTest->endWaits();
    mTest->stop();
    mTest->start();
    mAttributes.remove(parameter("id_enable"));
    EXPECT_EQ(0, mTest->postTestMessage(2));
    ASSERT_TRUE(mWait->waitForAsked(3, 3));
    mAttributes.lay(parameter("id_enable"));
    EXPECT_TRUE(UnitAttributes::waitForWrites(4));
}

TEST_F(CertificationTest, TheLogoTestSwitchesRolesAHundredThousandTimes) {
    mWait->setLength(0);
    mWait->start();
    const sp<usb::UsbTID> checker = new usb::UsbTID(mFindings, usb::kModeLogo, mWait);
    UnitAttributes::forget();
    libusb_context* const none = nullptr;
    EXPECT_EQ(0, checker->doAction("attach", none, standIn()));
    const std::vector<std::string> writes = UnitAttributes::fullWrites();
    const std::vector<FindingRecorder::Finding> findings = mFindings->take();
    ASSERT_EQ(100003U, writes.size());
    ASSERT_EQ(100000U, findings.size());
    for (size_t pass = 0; pass < findings.size(); ++pass) {
        const bool isHost = pass % 2 == 1;
        ASSERT_EQ(
            std::string("/sys/devices/platform/ehci-platform.3/usb_role_switch=") + (isHost ? "1" : "0"),
            writes[pass + 3]);
        ASSERT_EQ(std::make_pair(isHost ? 6 : 5, 300), findings[pass]);
    }
    EXPECT_EQ(100000U, mWait->asked().size());
    EXPECT_THAT(mWait->asked(), Each(300.0));
}

TEST_F(CertificationTest, TheEndDropsEverything) {
    buildAndStart("T");
    const wp<FindingRecorder> findings = mFindings;
    const wp<ShortWait> wait = mWait;
    const wp<UsbDetector> detector = mDetector;
    mFindings.clear();
    mWait.clear();
    mDetector.clear();
    EXPECT_EQ(0, mTest->postTestMessage(6));
    ASSERT_TRUE(mLog.waitFor(info("TEST MODE FORCE ENABLE\n"), kCertificationLimit));
    UnitAttributes::forget();
    mTest.clear();
    EXPECT_TRUE(eventually([] { return countThreads("UsbTestQueue") == 0; }));
    EXPECT_TRUE(eventually([&] {
        return findings.promote() == nullptr && wait.promote() == nullptr && detector.promote() == nullptr;
    }));
    EXPECT_THAT(UnitAttributes::writes(), ElementsAre("specific_test_set=ORI"));
}

// Binder threads post and set while the owner starts and stops, and nothing orders them.
TEST_F(CertificationTest, BearsAllAtOnce) {
    build("T");
    std::atomic<bool> done{false};
    std::vector<std::thread> callers;
    for (int caller = 0; caller < 3; ++caller) {
        callers.emplace_back([this, &done, caller] {
            while (!done) {
                mTest->postTestMessage(caller + 1);
                mTest->setMaxHubTier(caller);
                mTest->addUnsupportedClass(caller);
                mTest->removeUnsupportedClass(caller);
                mTest->setNotifier(mFindings);
                mTest->getPortChargingMode(caller);
                // So that the log stays readable.
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
    }
    for (int round = 0; round < 6; ++round) {
        mTest->start();
        mTest->stop();
    }
    done = true;
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_THAT(mFindings->take(), IsEmpty());
    EXPECT_TRUE(eventually([] { return countThreads("UsbTestQueue") == 0; }));
}

namespace {

/** A unit's folders and tool. Making them needs root. */
class UnitEnvironment : public ::testing::Environment {
  public:
    void SetUp() override {
        ASSERT_EQ("", enterPrivateNamespaces()) << "(root is needed)";
        ASSERT_EQ("", coverUnitFolders()) << "(root is needed)";
        fs::create_directories("/mnt/bin");
        std::ofstream("/mnt/bin/usb_uphy") << "#!/bin/sh\necho \"$*:$(cat " << kChargingSwitch
                                           << " 2>/dev/null)\" >> " << kToolCalls << "\n";
        ASSERT_EQ(0, chmod("/mnt/bin/usb_uphy", 0755));
        ASSERT_EQ(0, setenv("PATH", (std::string("/mnt/bin:") + getenv("PATH")).c_str(), 1));
        ASSERT_EQ(0, setenv("VX_VENDOR_DATA_DIR", kVendorFolder, 1));
    }
};

}  // namespace

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    ::testing::AddGlobalTestEnvironment(new UnitEnvironment());
    return RUN_ALL_TESTS();
}
