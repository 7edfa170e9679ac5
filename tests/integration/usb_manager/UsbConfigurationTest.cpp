// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Every write of the USB configuration, through the real shell, on attributes laid over the kernel's.
 */
#include "usb/UsbConfiguration.h"

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <thread>

#include "tests/integration/usb_manager/AttributeBed.h"
#include "tests/unit/support/LogCapture.h"
#include "usb/AppleFunction.h"
#include "usb/UsbAttribute.h"
#include "usb/UsbPort.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using usb::AppleFunction;
using usb::UsbConfiguration;

namespace {

constexpr const char* kTag = "UsbManagerImpl";
constexpr int kNormal = 79;

std::string parameter(const char* name) {
    return std::string("/sys/module/usbcore/parameters/") + name;
}

LogLine warning(const std::string& text) {
    return {ANDROID_LOG_WARN, kTag, text};
}
LogLine error(const std::string& text) {
    return {ANDROID_LOG_ERROR, kTag, text};
}
LogLine info(const std::string& text) {
    return {ANDROID_LOG_INFO, kTag, text};
}

class UsbConfigurationTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ("", mBed.problem()); }

    LogCapture mLog;
    AttributeBed mBed;
    UsbConfiguration mConfiguration{kNormal};
};

using AppleFunctionTest = UsbConfigurationTest;
using UsbPortTest = UsbConfigurationTest;
using UsbAttributeTest = UsbConfigurationTest;
using UsbAttributeDeathTest = UsbConfigurationTest;

/** A property file that goes with the test. */
class FeatureFile {
  public:
    explicit FeatureFile(const std::string& features) {
        char path[] = "/tmp/aoa-features-XXXXXX";
        close(mkstemp(path));
        mPath = path;
        std::ofstream(mPath) << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<property><AoaFeature>"
                             << features << "</AoaFeature></property>\n";
    }
    ~FeatureFile() { unlink(mPath.c_str()); }
    FeatureFile(const FeatureFile&) = delete;
    FeatureFile& operator=(const FeatureFile&) = delete;

    const char* path() const { return mPath.c_str(); }

  private:
    std::string mPath;
};

/** With its line feed, if it has one. */
std::string firstLine(const std::string& text) {
    const size_t end = text.find('\n');
    return end == std::string::npos ? text : text.substr(0, end + 1);
}

std::string feature(const char* name, const std::string& value) {
    return std::string("<") + name + " value=\"" + value + "\"/>";
}

}  // namespace

TEST_F(UsbAttributeTest, ANumberIsWrittenAndThenLogged) {
    const std::string file = parameter("apple_role");
    mBed.block(file);
    std::thread writer([&] { usb::setValue(file.c_str(), 7); });
    ASSERT_TRUE(mBed.waitForOpen(file));
    // The shell is at it, and cannot go on.
    const std::vector<LogLine> before = mLog.take(kTag);
    mBed.release(file);
    writer.join();
    EXPECT_THAT(before, IsEmpty());
    EXPECT_THAT(mLog.take(kTag), ElementsAre(warning("echo 7 > " + file)));
    EXPECT_THAT(mBed.take(), ElementsAre(file + "=7\n"));
}

TEST_F(UsbAttributeTest, ATextIsLoggedAndThenWritten) {
    const std::string file = parameter("aoa_model");
    mBed.block(file);
    std::thread writer([&] { usb::setValueString(file.c_str(), "M1"); });
    ASSERT_TRUE(mBed.waitForOpen(file));
    const std::vector<LogLine> before = mLog.take(kTag);
    mBed.release(file);
    writer.join();
    EXPECT_THAT(before, ElementsAre(warning("echo -n M1 > " + file)));
    EXPECT_THAT(mLog.take(kTag), IsEmpty());
    EXPECT_THAT(mBed.take(), ElementsAre(file + "=M1"));
}

TEST_F(UsbAttributeTest, NumbersAreWrittenWithTheirSign) {
    const std::string file = parameter("apple_role");
    usb::setValue(file.c_str(), 0xffffffff);
    usb::setValue(file.c_str(), 0x7fffffff);
    EXPECT_THAT(mBed.take(), ElementsAre(file + "=-1\n", file + "=2147483647\n"));
}

TEST_F(UsbAttributeTest, AMissingAttributeIsSurvived) {
    usb::setValue("/sys/module/none/parameters/none", 1);
    usb::setValueString("/sys/module/none/parameters/none", "x");
    EXPECT_THAT(mLog.take(kTag), ElementsAre(warning("echo 1 > /sys/module/none/parameters/none"),
                                             warning("echo -n x > /sys/module/none/parameters/none")));
    EXPECT_THAT(mBed.take(), IsEmpty());
}

// A megabyte is more than the system takes as a command: nothing is written, and the daemon goes on.
TEST_F(UsbAttributeTest, ATextOfAMegabyteIsSurvived) {
    const std::string file = parameter("aoa_model");
    usb::setValueString(file.c_str(), std::string(1 << 20, 'x').c_str());
    EXPECT_THAT(mBed.take(), IsEmpty());
    const std::vector<LogLine> lines = mLog.take(kTag);
    ASSERT_EQ(1U, lines.size());
    EXPECT_EQ(0U, lines[0].text.find("echo -n xxx"));
    usb::setValueString(file.c_str(), "short");
    EXPECT_THAT(mBed.take(), ElementsAre(file + "=short"));
}

TEST_F(UsbAttributeDeathTest, APathIsNeeded) {
    EXPECT_DEATH(usb::setValue(nullptr, 1), "assertion \"file\" failed: file \"UsbManagerImpl\"");
    EXPECT_DEATH(usb::setValueString(nullptr, "x"), "assertion \"file\" failed: file \"UsbManagerImpl\"");
}

TEST_F(UsbConfigurationTest, EnumerateScheme) {
    EXPECT_EQ(0, mConfiguration.configUsbEnumerateScheme(true));
    EXPECT_THAT(mBed.take(),
                ElementsAre(parameter("old_scheme_first") + "=1\n", parameter("use_both_schemes") + "=0\n"));
    EXPECT_EQ(0, mConfiguration.configUsbEnumerateScheme(false));
    EXPECT_THAT(mBed.take(),
                ElementsAre(parameter("old_scheme_first") + "=0\n", parameter("use_both_schemes") + "=1\n"));
    EXPECT_THAT(mLog.take(kTag), ElementsAre(warning("echo 1 > " + parameter("old_scheme_first")),
                                             warning("echo 0 > " + parameter("use_both_schemes")),
                                             warning("echo 0 > " + parameter("old_scheme_first")),
                                             warning("echo 1 > " + parameter("use_both_schemes"))));
}

TEST_F(UsbConfigurationTest, DefaultModesAreWrittenInTheirOrder) {
    EXPECT_EQ(0, mConfiguration.configDefaultMode(7, true));
    EXPECT_THAT(mBed.take(), ElementsAre(parameter("apple_dev_default_mode") + "=1\n",
                                         parameter("android_default_mode") + "=1\n",
                                         parameter("android_interface_check") + "=1\n"));
    EXPECT_EQ(0, mConfiguration.configDefaultMode(5, false));
    EXPECT_THAT(mBed.take(), ElementsAre(parameter("apple_dev_default_mode") + "=0\n",
                                         parameter("android_interface_check") + "=0\n"));
    EXPECT_EQ(0, mConfiguration.configDefaultMode(0, true));
    EXPECT_EQ(0, mConfiguration.configDefaultMode(8 | 0x100, true));
    EXPECT_THAT(mBed.take(), IsEmpty());
    EXPECT_EQ(0, mConfiguration.configDefaultMode(-1, false));
    EXPECT_EQ(3U, mBed.take().size());
}

TEST_F(UsbConfigurationTest, OnlyDefaultModesThatAreOnAreApplied) {
    EXPECT_EQ(0, mConfiguration.applyDefaultMode(7));
    EXPECT_THAT(mBed.take(), IsEmpty());
    mConfiguration.configDefaultMode(3, true);
    mBed.take();
    EXPECT_EQ(0, mConfiguration.applyDefaultMode(2));
    EXPECT_THAT(mBed.take(), ElementsAre(parameter("android_default_mode") + "=1\n"));
    mConfiguration.configDefaultMode(4, true);
    mBed.take();
    EXPECT_EQ(0, mConfiguration.applyDefaultMode(7));
    EXPECT_THAT(mBed.take(), ElementsAre(parameter("apple_dev_default_mode") + "=1\n",
                                         parameter("android_default_mode") + "=1\n",
                                         parameter("android_interface_check") + "=1\n"));
    mConfiguration.configDefaultMode(2, false);
    mBed.take();
    EXPECT_EQ(0, mConfiguration.applyDefaultMode(2));
    EXPECT_THAT(mBed.take(), IsEmpty());
}

TEST_F(UsbConfigurationTest, CertificationLeavesTheDefaultModesAlone) {
    for (const int mode : {77, 84, 255}) {
        UsbConfiguration configuration(mode);
        EXPECT_EQ(0, configuration.configDefaultMode(2, true));
        EXPECT_EQ(mode, configuration.applyDefaultMode(7));
    }
    EXPECT_THAT(mBed.take(), IsEmpty());
    EXPECT_THAT(mLog.take(kTag), IsEmpty());
}

TEST_F(UsbConfigurationTest, DefaultModesOfSeveralThreadsDoNotMix) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this, i] { mConfiguration.configDefaultMode(7, i % 2 == 0); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::vector<std::string> writes = mBed.take();
    ASSERT_EQ(12U, writes.size());
    for (size_t i = 0; i < writes.size(); i += 3) {
        const std::string value = writes[i].substr(writes[i].find('='));
        EXPECT_EQ(parameter("apple_dev_default_mode") + value, writes[i]);
        EXPECT_EQ(parameter("android_default_mode") + value, writes[i + 1]);
        EXPECT_EQ(parameter("android_interface_check") + value, writes[i + 2]);
    }
}

TEST_F(UsbConfigurationTest, AoaDescriptionInItsOrder) {
    const FeatureFile file(feature("Name", "Unit") + feature("Mode", "2") + feature("Serial", "0042") +
                           feature("Url", "http://unit/") + feature("Version", "1.0") +
                           feature("Description", "a  head   unit") + feature("Model", "M1") +
                           feature("ManuFacturer", "Maker"));
    EXPECT_EQ(0, mConfiguration.configAoaDescription(file.path()));
    EXPECT_THAT(mBed.take(),
                ElementsAre(parameter("android_aoa_description_user") + "=1\n",
                            parameter("aoa_manufacturer") + "=Maker", parameter("aoa_model") + "=M1",
                            // Unquoted: the shell makes one blank of several.
                            parameter("aoa_description") + "=a head unit", parameter("aoa_version") + "=1.0",
                            parameter("aoa_url") + "=http://unit/", parameter("aoa_serial") + "=0042",
                            parameter("aoa_mode") + "=2", "/sys/module/aoa/parameters/aoa_device_name=Unit"));
    const std::vector<LogLine> lines = mLog.take(kTag);
    ASSERT_EQ(17U, lines.size());
    EXPECT_EQ(warning("echo 1 > " + parameter("android_aoa_description_user")), lines[0]);
    EXPECT_EQ(warning("key:AoaFeature.ManuFacturer, value:Maker\n"), lines[1]);
    EXPECT_EQ(warning("echo -n Maker > " + parameter("aoa_manufacturer")), lines[2]);
    EXPECT_EQ(warning("key:AoaFeature.Description, value:a  head   unit\n"), lines[5]);
    EXPECT_EQ(warning("echo -n a  head   unit > " + parameter("aoa_description")), lines[6]);
    EXPECT_EQ(warning("key:AoaFeature.Name, value:Unit\n"), lines[15]);
    EXPECT_EQ(warning("echo -n Unit > /sys/module/aoa/parameters/aoa_device_name"), lines[16]);
}

TEST_F(UsbConfigurationTest, AoaFeaturesThatAreMissingOrTooLongAreLeftAsTheyAre) {
    const std::string longest(126, 'a');
    const FeatureFile file(feature("Model", longest) + feature("Url", std::string(127, 'b')));
    EXPECT_EQ(0, mConfiguration.configAoaDescription(file.path()));
    EXPECT_THAT(mBed.take(), ElementsAre(parameter("android_aoa_description_user") + "=1\n",
                                         parameter("aoa_model") + "=" + longest));
    EXPECT_THAT(mLog.take(kTag), ElementsAre(warning("echo 1 > " + parameter("android_aoa_description_user")),
                                             warning("can't find feature: AoaFeature.ManuFacturer\n"),
                                             warning("key:AoaFeature.Model, value:" + longest + "\n"),
                                             warning("echo -n " + longest + " > " + parameter("aoa_model")),
                                             warning("can't find feature: AoaFeature.Description\n"),
                                             warning("can't find feature: AoaFeature.Version\n"),
                                             warning("can't find feature: AoaFeature.Url\n"),
                                             warning("can't find feature: AoaFeature.Serial\n"),
                                             warning("can't find feature: AoaFeature.Mode\n"),
                                             warning("can't find feature: AoaFeature.Name\n")));
}

TEST_F(UsbConfigurationTest, AnAoaFileThatCannotBeOpenedChangesNothing) {
    const FeatureFile broken("<open>");
    for (const char* path :
         {"/sys/module/no-such-file.xml", "no-folder.xml", "", broken.path(), "/dev/null"}) {
        EXPECT_EQ(-1, mConfiguration.configAoaDescription(path)) << path;
        EXPECT_THAT(mLog.take(kTag), ElementsAre(error("configAoaFeature open aoa feature file fail")));
    }
    EXPECT_THAT(mBed.take(), IsEmpty());
}

TEST_F(UsbConfigurationTest, TheFilteredSerialReachesTheShellAsItIs) {
    const std::string file = parameter("not_run_aoa_serial_number");
    EXPECT_EQ(0, mConfiguration.aoaModeSwitchFilter("ABC123"));
    EXPECT_EQ(0, mConfiguration.aoaModeSwitchFilter("a  b"));
    EXPECT_THAT(mLog.take(kTag),
                ElementsAre(warning("echo -n ABC123 > " + file), warning("echo -n a  b > " + file)));
    EXPECT_THAT(mBed.take(), ::testing::SizeIs(2));
    EXPECT_EQ(0, mConfiguration.aoaModeSwitchFilter("a  b"));
    EXPECT_THAT(mBed.take(), ElementsAre(file + "=a b"));
    EXPECT_EQ(0, mConfiguration.aoaModeSwitchFilter("$(echo x; echo y)"));
    EXPECT_THAT(mBed.take(), ElementsAre(file + "=x y"));
    EXPECT_EQ(0, mConfiguration.aoaModeSwitchFilter(""));
    EXPECT_THAT(mBed.take(), ElementsAre(file + "="));
}

TEST_F(UsbConfigurationTest, ANullSerialIsNotLookedAt) {
    const std::string file = parameter("not_run_aoa_serial_number");
    EXPECT_EQ(0, mConfiguration.aoaModeSwitchFilter(nullptr));
    EXPECT_THAT(mLog.take(kTag), ElementsAre(warning("echo -n (null) > " + file)));
    // The shell takes the parentheses for an error of its own.
    EXPECT_THAT(mBed.take(), IsEmpty());
}

TEST_F(UsbConfigurationTest, AoaTimeoutAction) {
    const std::string file = "/sys/module/aoa/parameters/aoa_write_timeout_reset_ctrl";
    EXPECT_EQ(0, mConfiguration.configAoaTimeoutAction(true));
    EXPECT_EQ(0, mConfiguration.configAoaTimeoutAction(false));
    EXPECT_THAT(mBed.take(), ElementsAre(file + "=1\n", file + "=0\n"));
    EXPECT_THAT(mLog.take(kTag), ElementsAre(warning("echo 1 > " + file), warning("echo 0 > " + file)));
}

TEST_F(UsbConfigurationTest, GadgetNames) {
    EXPECT_EQ(0, mConfiguration.configAppleIapNodeName("unit"));
    EXPECT_EQ(0, mConfiguration.configAppleEanNodeName("unit"));
    EXPECT_EQ(0, mConfiguration.configAppleEanStringName("com.maker.app"));
    EXPECT_THAT(mBed.take(), ElementsAre("/sys/module/g_android/parameters/iap_name=mfi_iap_unit",
                                         "/sys/module/g_android/parameters/ean_name=mfi_ean_unit",
                                         "/sys/module/g_android/parameters/ean_string_name=com.maker.app"));
    EXPECT_THAT(
        mLog.take(kTag),
        ElementsAre(warning("echo -n mfi_iap_unit > /sys/module/g_android/parameters/iap_name"),
                    warning("echo -n mfi_ean_unit > /sys/module/g_android/parameters/ean_name"),
                    warning("echo -n com.maker.app > /sys/module/g_android/parameters/ean_string_name")));
}

TEST_F(UsbConfigurationTest, GadgetNamesRefuseNull) {
    EXPECT_EQ(-1, mConfiguration.configAppleIapNodeName(nullptr));
    EXPECT_EQ(-1, mConfiguration.configAppleEanNodeName(nullptr));
    EXPECT_EQ(-1, mConfiguration.configAppleEanStringName(nullptr));
    EXPECT_THAT(mBed.take(), IsEmpty());
    EXPECT_THAT(mLog.take(kTag), ElementsAre(error("configAppleIapNodeName Iap node name is NULL"),
                                             error("configAppleEanNodeName Ean node name is NULL"),
                                             error("configAppleEanStringName Ean node name is NULL")));
}

TEST_F(UsbConfigurationTest, KernelAutoRoleSwitchAnswersOneInBothDirections) {
    const std::string file = "/sys/module/vx_usb_host/parameters/kernel_auto_role_switch";
    EXPECT_EQ(1, mConfiguration.configKernelAutoRoleSwitch(true));
    EXPECT_EQ(1, mConfiguration.configKernelAutoRoleSwitch(false));
    EXPECT_THAT(mBed.take(), ElementsAre(file + "=1\n", file + "=0\n"));
    EXPECT_THAT(
        mLog.take(kTag),
        ElementsAre(info("Enable kernel role switch(Auto Role Switch)"), warning("echo 1 > " + file),
                    info("Disable kernel role switch(Don't auto Role Switch)"), warning("echo 0 > " + file)));
}

TEST_F(AppleFunctionTest, NothingIsSetUpAtFirst) {
    const AppleFunction apple(mConfiguration);
    EXPECT_FALSE(apple.isPending());
    EXPECT_FALSE(apple.isDevicePresent());
    EXPECT_EQ(0U, apple.roleSwitchType());
}

TEST_F(AppleFunctionTest, NetworkGadget) {
    const std::string enable = "/sys/class/android_usb/android0/enable";
    AppleFunction apple(mConfiguration);
    apple.request(0);
    EXPECT_TRUE(apple.isPending());
    EXPECT_EQ(0, apple.apply());
    EXPECT_FALSE(apple.isPending());
    EXPECT_EQ(1U, apple.roleSwitchType());
    EXPECT_THAT(mBed.take(),
                ElementsAre(enable + "=0\n", "/sys/class/android_usb/android0/functions=ncm",
                            parameter("apple_role") + "=0\n", enable + "=1\n", "ifconfig apple_usb0 up",
                            "/proc/sys/net/ipv6/conf/apple_usb0/optimistic_dad=1\n",
                            "/proc/sys/net/ipv6/neigh/apple_usb0/retrans_time=5\n"));
    EXPECT_THAT(mLog.take(kTag),
                ElementsAre(warning("echo 0 > " + enable),
                            warning("echo -n ncm > /sys/class/android_usb/android0/functions"),
                            warning("echo 0 > " + parameter("apple_role")), warning("echo 1 > " + enable),
                            warning("echo 1 > /proc/sys/net/ipv6/conf/apple_usb0/optimistic_dad"),
                            warning("echo 5 > /proc/sys/net/ipv6/neigh/apple_usb0/retrans_time")));
}

TEST_F(AppleFunctionTest, AccessoryGadget) {
    const std::string enable = "/sys/class/android_usb/android0/enable";
    AppleFunction apple(mConfiguration);
    apple.request(1);
    EXPECT_EQ(0, apple.apply());
    EXPECT_FALSE(apple.isPending());
    EXPECT_EQ(2U, apple.roleSwitchType());
    EXPECT_THAT(mBed.take(), ElementsAre(enable + "=0\n", "/sys/class/android_usb/android0/functions=eap",
                                         parameter("apple_role") + "=1\n", enable + "=1\n"));
}

TEST_F(AppleFunctionTest, HostSideFunctionsTurnTheAppleDefaultModeOff) {
    const std::string function = parameter("platform_host_mode_apple_function");
    AppleFunction apple(mConfiguration);
    mConfiguration.configDefaultMode(3, true);
    mBed.take();
    apple.request(2);
    EXPECT_EQ(0, apple.apply());
    EXPECT_THAT(mBed.take(), ElementsAre(parameter("apple_dev_default_mode") + "=0\n", function + "=1\n"));
    apple.request(3);
    EXPECT_TRUE(apple.isPending());
    EXPECT_EQ(0, apple.apply());
    EXPECT_FALSE(apple.isPending());
    EXPECT_THAT(mBed.take(), ElementsAre(parameter("apple_dev_default_mode") + "=0\n", function + "=0\n"));
    EXPECT_EQ(0U, apple.roleSwitchType());
    // The mode is off for good: a device that comes does not bring it back.
    mConfiguration.applyDefaultMode(3);
    EXPECT_THAT(mBed.take(), ElementsAre(parameter("android_default_mode") + "=1\n"));
}

TEST_F(AppleFunctionTest, UnknownFunctionsChangeNothing) {
    AppleFunction apple(mConfiguration);
    apple.request(1);
    apple.apply();
    mBed.take();
    mLog.take();
    for (const int32_t function : {4, 7, -1, INT32_MAX}) {
        apple.request(function);
        EXPECT_EQ(-1, apple.apply());
        EXPECT_TRUE(apple.isPending());
        EXPECT_EQ(2U, apple.roleSwitchType());
        EXPECT_THAT(mLog.take(kTag), ElementsAre(error("doConfigAppleFunction apple usb unknown")));
    }
    EXPECT_THAT(mBed.take(), IsEmpty());
    apple.request(1);
    EXPECT_FALSE(apple.isPending());
}

TEST_F(AppleFunctionTest, BecomesADeviceByTheLetterS) {
    usb::becomeAppleDevice();
    EXPECT_THAT(mBed.take(), ElementsAre("/sys/devices/platform/vx4410-udc.1/full_spd=s"));
    EXPECT_THAT(mLog.take(kTag),
                ElementsAre(warning("echo -n s > /sys/devices/platform/vx4410-udc.1/full_spd")));
}

TEST_F(UsbPortTest, Power) {
    for (int port = 0; port < 3; ++port) {
        const std::string file =
            "/sys/bus/platform/devices/ehci-platform." + std::to_string(port + 1) + "/usb_power_set";
        EXPECT_EQ(0, usb::setUsbPortPower(port, true));
        EXPECT_EQ(0, usb::setUsbPortPower(port, false));
        EXPECT_THAT(mBed.take(), ElementsAre(file + "=1\n", file + "=0\n"));
        EXPECT_THAT(mLog.take(kTag), ElementsAre(warning("echo 1 > " + file), warning("echo 0 > " + file)));
    }
}

TEST_F(UsbPortTest, ResetTakesThePowerAwayForASecond) {
    const std::string file = "/sys/bus/platform/devices/ehci-platform.3/usb_power_set";
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(0, usb::resetUsbPort(2));
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::seconds(1));
    EXPECT_THAT(mBed.take(), ElementsAre(file + "=0\n", file + "=1\n"));
    EXPECT_THAT(mLog.take(kTag), ElementsAre(warning("echo 0 > " + file), warning("echo 1 > " + file)));
}

TEST_F(UsbPortTest, OtherPortsAreOnlyLogged) {
    for (const int port : {3, -1, INT32_MAX, INT32_MIN}) {
        const std::string number = std::to_string(port);
        EXPECT_EQ(0, usb::setUsbPortPower(port, true));
        EXPECT_EQ(0, usb::resetUsbPort(port));
        EXPECT_THAT(mLog.take(kTag),
                    ElementsAre(error("power can't power on usb port number[" + number + "]"),
                                error("reset can't power on usb port number[" + number + "]")));
    }
    EXPECT_THAT(mBed.take(), IsEmpty());
}

TEST_F(UsbPortTest, RoleIsTheFirstCharacterOfTheAttribute) {
    const auto roleFile = [](int port) {
        return "/sys/devices/platform/ehci-platform." + std::to_string(port + 1) + "/usb_role";
    };
    const std::vector<std::pair<std::string, bool>> rows = {
        {"0\n", true}, {"1\n", false}, {"0", true}, {"01\n", true}, {" 0\n", false}, {"host\n0\n", false}};
    for (const int port : {0, 1}) {
        for (const auto& [content, active] : rows) {
            AttributeBed::put(roleFile(port), content);
            EXPECT_EQ(active, usb::usbDeviceIsActived(port)) << content;
            EXPECT_THAT(mLog.take(kTag),
                        ElementsAre(info("Cmd \"cat " + roleFile(port) + "\" result:" + firstLine(content))));
        }
    }
    // No more than 31 characters of a line.
    AttributeBed::put(roleFile(0), "0" + std::string(100, 'x') + "\n");
    EXPECT_TRUE(usb::usbDeviceIsActived(0));
    EXPECT_THAT(mLog.take(kTag),
                ElementsAre(info("Cmd \"cat " + roleFile(0) + "\" result:0" + std::string(30, 'x'))));
}

TEST_F(UsbPortTest, RoleThatCannotBeRead) {
    EXPECT_FALSE(usb::usbDeviceIsActived(0));
    EXPECT_THAT(mLog.take(kTag), ElementsAre(error("Error, Func:[usbDeviceIsActived] fgets nothing.")));
    AttributeBed::put("/sys/devices/platform/ehci-platform.2/usb_role", "");
    EXPECT_FALSE(usb::usbDeviceIsActived(1));
    EXPECT_THAT(mLog.take(kTag), ElementsAre(error("Error, Func:[usbDeviceIsActived] fgets nothing.")));
}

TEST_F(UsbPortTest, RoleOfOtherPorts) {
    EXPECT_FALSE(usb::usbDeviceIsActived(2));
    EXPECT_FALSE(usb::usbDeviceIsActived(3));
    EXPECT_FALSE(usb::usbDeviceIsActived(-1));
    EXPECT_THAT(mLog.take(kTag),
                ElementsAre(error("Func:[usbDeviceIsActived], Usb port[2] only support Host mode."),
                            error("Func:[usbDeviceIsActived], Error port number:[3]."),
                            error("Func:[usbDeviceIsActived], Error port number:[-1].")));
}

TEST_F(UsbPortTest, RoleWithoutADescriptorLeft) {
    rlimit before = {};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &before));
    const rlimit none = {3, before.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
    const bool active = usb::usbDeviceIsActived(0);
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &before));
    EXPECT_FALSE(active);
    EXPECT_THAT(mLog.take(kTag), ElementsAre(error("Error, Func:[usbDeviceIsActived] popen fail.")));
}

TEST_F(UsbPortTest, ACloseThatFailsIsLoggedAndTheRoleTold) {
    AttributeBed::put("/sys/devices/platform/ehci-platform.1/usb_role", "0\n");
    // The system keeps no child's status now, so there is none to close with.
    struct sigaction before = {};
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    ASSERT_EQ(0, sigaction(SIGCHLD, &ignore, &before));
    const bool active = usb::usbDeviceIsActived(0);
    const bool none = usb::usbDeviceIsActived(1);
    ASSERT_EQ(0, sigaction(SIGCHLD, &before, nullptr));
    EXPECT_TRUE(active);
    EXPECT_FALSE(none);
    EXPECT_THAT(mLog.take(kTag),
                ElementsAre(error("usbDeviceIsActived 1022:check return value failed"),
                            info("Cmd \"cat /sys/devices/platform/ehci-platform.1/usb_role\" result:0\n"),
                            error("Error, Func:[usbDeviceIsActived] fgets nothing."),
                            error("usbDeviceIsActived 1018:check return value failed")));
}
