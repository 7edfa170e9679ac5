// SPDX-License-Identifier: Apache-2.0
#include "device/Device.h"

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device/DeviceNode.h"
#include "tests/unit/support/LogCapture.h"

using android::sp;
using android::String8;
using device::Device;
using device::DeviceItf;
using device::DeviceNode;
using ::testing::ElementsAre;

namespace {

sp<DeviceItf> deviceAt(const char* path, const char* subsystem = "block") {
    const sp<DeviceItf> device = new Device();
    device->setPath(path);
    device->setSubsystem(subsystem);
    return device;
}

sp<DeviceNode> nodeAt(const char* path) {
    return new DeviceNode(deviceAt(path));
}

}  // namespace

TEST(DeviceTest, IsEmptyAtFirst) {
    const sp<DeviceItf> device = new Device();
    EXPECT_EQ(String8(), device->getPath());
    EXPECT_EQ(String8(), device->getSubsystem());
    EXPECT_EQ(0U, device->getParamSize());
}

TEST(DeviceTest, EnumeratesParametersByAscendingKey) {
    const sp<DeviceItf> device = new Device();
    device->addParam("MINOR", "1");
    device->addParam("DEVNAME", "sda1");
    device->addParam(String8("MAJOR"), String8("8"));
    device->addParam("DEVPATH", "/devices/x");
    ASSERT_EQ(4U, device->getParamSize());
    std::vector<std::string> names;
    for (size_t i = 0; i < device->getParamSize(); ++i) {
        names.emplace_back(device->getParamName(i).string());
        EXPECT_EQ(device->getParamValue(i), device->getParam(device->getParamName(i)));
    }
    EXPECT_THAT(names, ElementsAre("DEVNAME", "DEVPATH", "MAJOR", "MINOR"));
}

TEST(DeviceTest, SecondValueReplacesTheFirst) {
    const sp<DeviceItf> device = new Device();
    device->addParam("DEVNAME", "sda");
    device->addParam("DEVNAME", "sdb");
    EXPECT_EQ(1U, device->getParamSize());
    EXPECT_EQ(String8("sdb"), device->getParam(String8("DEVNAME")));
}

TEST(DeviceTest, TakesNullTextAsEmpty) {
    const sp<DeviceItf> device = new Device();
    device->setPath(static_cast<const char*>(nullptr));
    device->setSubsystem(static_cast<const char*>(nullptr));
    device->addParam("KEY", static_cast<const char*>(nullptr));
    EXPECT_EQ(String8(), device->getPath());
    EXPECT_EQ(String8(), device->getSubsystem());
    EXPECT_EQ(String8(), device->getParam(String8("KEY")));
}

TEST(DeviceDeathTest, AbsentKeyAborts) {
    const sp<DeviceItf> device = deviceAt("/devices/x");
    EXPECT_DEATH(device->getParam(String8("DEVNAME")), "Device.*getParam.*: key not found");
}

TEST(DeviceTest, DumpsPathSubsystemAndParameters) {
    const sp<DeviceItf> device = deviceAt("/devices/x", "usb");
    device->addParam("DEVTYPE", "usb_device");
    device->addParam("BUSNUM", "001");
    LogCapture log;
    device->dump();
    EXPECT_THAT(log.take("Device"),
                ElementsAre(LogLine{ANDROID_LOG_INFO, "Device", "[   DEVPATH] [/devices/x]"},
                            LogLine{ANDROID_LOG_INFO, "Device", "[ SUBSYSTEM] [usb]"},
                            LogLine{ANDROID_LOG_INFO, "Device", "[    BUSNUM] [001]"},
                            LogLine{ANDROID_LOG_INFO, "Device", "[   DEVTYPE] [usb_device]"}));
}

TEST(DeviceNodeTest, AncestorIsAStrictTextualPrefix) {
    EXPECT_TRUE(nodeAt("/devices")->isAncestorOf(String8("/devices/x")));
    EXPECT_FALSE(nodeAt("/devices/x")->isAncestorOf(String8("/devices/x")));
    EXPECT_FALSE(nodeAt("/devices/x")->isAncestorOf(String8("/devices")));
    EXPECT_FALSE(nodeAt("/devices/y")->isAncestorOf(String8("/devices/xx")));
    // Components are not looked at.
    EXPECT_TRUE(nodeAt("/devices/a/usb1")->isAncestorOf(String8("/devices/a/usb10")));
    EXPECT_FALSE(nodeAt("/devices")->isAncestorOf(String8("")));
    EXPECT_TRUE(nodeAt("")->isAncestorOf(String8("/")));
}

TEST(DeviceNodeTest, SamePathIsEqualText) {
    EXPECT_TRUE(nodeAt("/devices/x")->isSamePath(String8("/devices/x")));
    EXPECT_FALSE(nodeAt("/devices/x")->isSamePath(String8("/devices/xx")));
    EXPECT_FALSE(nodeAt("/devices/xx")->isSamePath(String8("/devices/x")));
    EXPECT_FALSE(nodeAt("/devices/x")->isSamePath(String8("/devices/y")));
}

TEST(DeviceNodeTest, MatchesSubsystemAndName) {
    const sp<DeviceItf> device = deviceAt("/devices/x", "block");
    device->addParam("DEVNAME", "sda");
    const sp<DeviceNode> node = new DeviceNode(device);
    EXPECT_EQ(device, node->getDevice());
    EXPECT_TRUE(node->match(String8("block"), String8("sda")));
    EXPECT_FALSE(node->match(String8("block"), String8("sdb")));
    EXPECT_FALSE(node->match(String8("usb"), String8("sda")));
}

TEST(DeviceNodeTest, LooksForTheNameOnlyWhenTheSubsystemMatches) {
    // It would abort otherwise.
    EXPECT_FALSE(nodeAt("/devices/x")->match(String8("usb"), String8("sda")));
}

TEST(DeviceNodeDeathTest, MatchAbortsWithoutTheName) {
    EXPECT_DEATH(nodeAt("/devices/x")->match(String8("block"), String8("sda")), "key not found");
}
