// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/Status.h"

#include <gtest/gtest.h>

#include "tools/devicectl/ColorChoice.h"

namespace devicectl {

using Life = ServiceState::Life;

namespace {

Status allUp() {
    return {"1.2.3",
            {{"DeviceManager", Life::kAlive, 1},
             {"VolumeManager", Life::kAlive, 2},
             {"UsbManager", Life::kAlive, 0}},
            12,
            3,
            1,
            1};
}

Status withUsb(Life life) {
    Status status = allUp();
    status.services[2] = {"UsbManager", life, std::nullopt};
    status.usbDevices.reset();
    return status;
}

TEST(Status, AtAGlance) {
    EXPECT_EQ(renderStatus(Format::kHuman, allUp()),
              "SERVICE        CLIENTS  HOLDS                 STATE\n"
              "DeviceManager  1        12 devices            alive\n"
              "VolumeManager  2        3 volumes, 1 mounted  alive\n"
              "UsbManager     0        1 USB device          alive\n"
              "devicectl 1.2.3\n");
    EXPECT_EQ(renderStatus(Format::kHuman, withUsb(Life::kMissing)),
              "SERVICE        CLIENTS  HOLDS                 STATE\n"
              "DeviceManager  1        12 devices            alive\n"
              "VolumeManager  2        3 volumes, 1 mounted  alive\n"
              "UsbManager     -        - USB devices         missing\n"
              "devicectl 1.2.3\n");
}

TEST(Status, AsJson) {
    EXPECT_EQ(renderStatus(Format::kJson, withUsb(Life::kDead)),
              "{\"schemaVersion\":1,\"all_up\":false,\"client_version\":\"1.2.3\",\"services\":["
              "{\"name\":\"DeviceManager\",\"state\":\"alive\",\"clients\":1},"
              "{\"name\":\"VolumeManager\",\"state\":\"alive\",\"clients\":2},"
              "{\"name\":\"UsbManager\",\"state\":\"dead\",\"clients\":null}],"
              "\"devices\":12,\"volumes\":3,\"mounted\":1,\"usb_devices\":null}\n");
    EXPECT_NE(renderStatus(Format::kJson, allUp()).find("\"all_up\":true"), std::string::npos);
}

TEST(Status, ColorsStandWhereTheyMoveNothing) {
    const std::string text = renderStatus(Format::kColor, withUsb(Life::kSilent));
    EXPECT_NE(text.find("VolumeManager  2        3 volumes, 1 mounted  \x1b[32malive\x1b[0m\n"),
              std::string::npos);
    EXPECT_NE(text.find("\x1b[33msilent\x1b[0m\n"), std::string::npos);
    EXPECT_EQ(text.find("\x1b[1mSERVICE"), 0U);
}

TEST(Status, ExitCodeSaysWhetherAllIsUp) {
    EXPECT_EQ(exitCodeOf(allUp()), kOk);
    EXPECT_EQ(complaintOf(allUp()), "");
    EXPECT_EQ(exitCodeOf(withUsb(Life::kMissing)), kNoService);
    EXPECT_EQ(complaintOf(withUsb(Life::kMissing)),
              "service UsbManager is not registered: start device-service");
    EXPECT_EQ(exitCodeOf(withUsb(Life::kDead)), kDaemonDied);
    EXPECT_EQ(complaintOf(withUsb(Life::kDead)),
              "service UsbManager is registered but its process is dead: restart device-service");
    EXPECT_EQ(exitCodeOf(withUsb(Life::kSilent)), kFailed);
    EXPECT_EQ(complaintOf(withUsb(Life::kSilent)),
              "no answer from UsbManager: its process hangs or is stopped");
}

TEST(Status, CountsAreReadFromTheDumps) {
    EXPECT_EQ(clientsIn("-[device.DeviceManager]-\nnotifier size[12]\nnotifier[0x1] pid[3] \n"), 12);
    EXPECT_EQ(clientsIn("-[device.DeviceManager]-\n"), std::nullopt);
    EXPECT_EQ(clientsIn("notifier size["), std::nullopt);
    EXPECT_EQ(clientsIn(""), std::nullopt);
    EXPECT_EQ(devicesIn("-[device.DeviceManager]-\n---- dump DeviceManager----\n---dump device---\n"), 0);
    EXPECT_EQ(
        devicesIn("---dump device---\n---device[0]---\n[ SUBSYSTEM] [---device[9]---]\n---device[1]---\n"),
        2);
    EXPECT_EQ(devicesIn("---device[0]---"), 1);
}

TEST(Color, OnlyOnATerminalUnlessTold) {
    EXPECT_TRUE(usesColor(ColorMode::kAuto, true, nullptr, "xterm"));
    EXPECT_FALSE(usesColor(ColorMode::kAuto, false, nullptr, "xterm"));
    EXPECT_FALSE(usesColor(ColorMode::kAuto, true, "1", "xterm"));
    EXPECT_FALSE(usesColor(ColorMode::kAuto, true, "0", "xterm")) << "any text asks for none";
    EXPECT_TRUE(usesColor(ColorMode::kAuto, true, "", "xterm")) << "but the empty one";
    EXPECT_FALSE(usesColor(ColorMode::kAuto, true, nullptr, "dumb"));
    EXPECT_FALSE(usesColor(ColorMode::kAuto, true, nullptr, nullptr));
    EXPECT_TRUE(usesColor(ColorMode::kAlways, false, "1", nullptr));
    EXPECT_FALSE(usesColor(ColorMode::kNever, true, nullptr, "xterm"));
}

TEST(Color, IsNoPartOfOtherFormats) {
    const std::vector<ServiceState> services{{"A", Life::kAlive}, {"LongName", Life::kDead}};
    EXPECT_EQ(renderServices(Format::kColor, services),
              "A         \x1b[32malive\x1b[0m\nLongName  \x1b[31mdead\x1b[0m\n");
    for (const Format format : {Format::kHuman, Format::kJson}) {
        EXPECT_EQ(renderServices(format, services).find('\x1b'), std::string::npos);
        EXPECT_EQ(renderStatus(format, allUp()).find('\x1b'), std::string::npos);
    }
}

}  // namespace

}  // namespace devicectl
