// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/Managers.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace devicectl {

namespace {

TEST(Managers, TheDeviceManagerStartsLastAndStopsFirst) {
    ASSERT_FALSE(managersToStart("").empty());
    EXPECT_STREQ(managersToStart("").back()->name, "device");
    EXPECT_STREQ(managersToStop("").front()->name, "device");
}

TEST(Managers, StopIsStartReversed) {
    std::vector<const Manager*> stops = managersToStop("");
    std::reverse(stops.begin(), stops.end());
    EXPECT_EQ(stops, managersToStart(""));
}

TEST(Managers, OneByName) {
    ASSERT_EQ(managersToStart("device").size(), 1U);
    EXPECT_EQ(managersToStart("device").front(), findManager("device"));
    EXPECT_EQ(managersToStop("device"), managersToStart("device"));
    EXPECT_STREQ(findManager("device")->service, "DeviceManager");
}

TEST(Managers, TheVolumeManager) {
    ASSERT_EQ(managersToStart("volume").size(), 1U);
    EXPECT_EQ(managersToStart("volume").front(), findManager("volume"));
    EXPECT_STREQ(findManager("volume")->service, "VolumeManager");
    EXPECT_NE(findManager("volume")->startup, findManager("device")->startup);
    EXPECT_NE(findManager("volume")->shutdown, findManager("volume")->startup);
}

TEST(Managers, TheUsbManager) {
    ASSERT_EQ(managersToStart("usb").size(), 1U);
    EXPECT_EQ(managersToStart("usb").front(), findManager("usb"));
    EXPECT_STREQ(findManager("usb")->service, "UsbManager");
    EXPECT_NE(findManager("usb")->startup, findManager("device")->startup);
    EXPECT_NE(findManager("usb")->shutdown, findManager("usb")->startup);
}

TEST(Managers, UnknownNames) {
    EXPECT_EQ(findManager("devic"), nullptr);
    EXPECT_EQ(findManager(""), nullptr);
    EXPECT_TRUE(managersToStart("devices").empty());
    EXPECT_NE(managerNames().find("device"), std::string::npos);
}

}  // namespace

}  // namespace devicectl
