// SPDX-License-Identifier: Apache-2.0
#include <binder/IInterface.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/devicectl/CommandLine.h"
#include "tools/devicectl/MountTable.h"
#include "tools/devicectl/RenderWait.h"
#include "tools/devicectl/VolumeOperations.h"
#include "usb/UsbDevice.h"
#include "volume/Volume.h"

namespace devicectl {

using android::IBinder;
using android::sp;
using android::String8;
using testing::HasSubstr;
using testing::StartsWith;
using volume::Volume;
using volume::VolumeItf;

namespace {

WaitRequest request(const std::vector<std::string>& words) {
    std::vector<std::string> line{"wait"};
    line.insert(line.end(), words.begin(), words.end());
    const ParsedLine parsed = parseCommandLine(line);
    EXPECT_TRUE(parsed.options.has_value()) << parsed.error;
    const Options options = parsed.options.value_or(Options());
    EXPECT_EQ(options.command, Options::Command::kWait);
    return options.wait;
}

std::string refusal(const std::vector<std::string>& words) {
    const ParsedLine parsed = parseCommandLine(words);
    EXPECT_FALSE(parsed.options.has_value());
    EXPECT_EQ(parsed.exitCode, kUsage);
    return parsed.error;
}

TEST(WaitCommandLine, Targets) {
    EXPECT_EQ(request({"service", "all"}).kind, WaitRequest::Kind::kService);
    EXPECT_EQ(request({"service", "all"}).text, "all");
    EXPECT_EQ(request({"volume", "MY MUSIC"}).kind, WaitRequest::Kind::kVolume);
    EXPECT_EQ(request({"volume", "MY MUSIC"}).text, "MY MUSIC");
    EXPECT_EQ(request({"volume", "--", "--json"}).text, "--json");
    const WaitRequest usb = request({"usb", "05AC:12a8"});
    EXPECT_EQ(usb.kind, WaitRequest::Kind::kUsb);
    EXPECT_EQ(usb.vendor, 0x05acU);
    EXPECT_EQ(usb.product, 0x12a8U);
    EXPECT_EQ(request({"usb", "1:2"}).product, 2U);
}

TEST(WaitCommandLine, TimeoutIsThatOfTheWholeWait) {
    EXPECT_EQ(parseCommandLine({"wait", "service", "all", "--timeout", "5"}).options->answerSeconds, 5U);
    EXPECT_EQ(parseCommandLine({"--timeout", "0", "wait", "volume", "x"}).options->answerSeconds, 0U);
    EXPECT_EQ(parseCommandLine({"wait", "volume", "x"}).options->answerSeconds, 30U);
}

TEST(WaitCommandLine, WhatIsNoTarget) {
    for (const char* const number :
         {"05ac", "05ac:", ":12a8", "05ac:12a8:1", "105ac:1", "0x5ac:1", "-5:1", "x:y", ""}) {
        EXPECT_THAT(refusal({"wait", "usb", number}), HasSubstr("VENDOR:PRODUCT")) << number;
    }
    EXPECT_THAT(refusal({"wait", "volume", ""}), HasSubstr("must not be empty"));
    EXPECT_THAT(refusal({"wait", "service", "\xff"}), HasSubstr("UTF-8"));
    refusal({"wait"});
    refusal({"wait", "volume"});
    refusal({"wait", "device", "x"});
    refusal({"wait", "volume", "a", "b"});
}

constexpr const char* kMounts =
    "22 27 0:20 / /proc rw,nosuid shared:13 - proc proc rw\n"
    "31 27 8:1 / /mnt/sda1 rw,relatime - vfat /dev/sda1 rw\n"
    "32 27 8:17 / /mnt/with\\040blank\\134 rw - ext4 /dev/sdb1 rw\n"
    "33 27 8:17 /mnt/sdc1 /elsewhere rw - ext4 /mnt/sdc1 rw";

TEST(MountTable, KnowsMountPointsAndNothingElse) {
    EXPECT_TRUE(isMountPoint(kMounts, "/mnt/sda1"));
    EXPECT_TRUE(isMountPoint(kMounts, "/mnt/with blank\\"));
    EXPECT_TRUE(isMountPoint(kMounts, "/elsewhere"));
    EXPECT_FALSE(isMountPoint(kMounts, "/mnt/sdc1")) << "the root or the source of a mount is none";
    EXPECT_FALSE(isMountPoint(kMounts, "/mnt/sda"));
    EXPECT_FALSE(isMountPoint(kMounts, "/mnt"));
    EXPECT_FALSE(isMountPoint(kMounts, ""));
    EXPECT_FALSE(isMountPoint("", "/mnt/sda1"));
    EXPECT_FALSE(isMountPoint("broken\n\n1 2 3\n", "/mnt/sda1"));
    EXPECT_FALSE(isMountPoint("\n", ""));
    EXPECT_FALSE(isMountPoint("1 2 3 4 \\04", "\\040"));
}

TEST(MountTable, ReadsThatOfThisProcess) {
    EXPECT_TRUE(isMountPoint(readMountInfo(), "/"));
    EXPECT_TRUE(isMountPoint(readMountInfo(), "/proc"));
}

/** A list of volumes that changes, ends early and holds nothing, as that of a daemon that dies. */
class Manager : public android::BnInterface<volume::IVolumeManager> {
  public:
    std::vector<sp<VolumeItf>> volumes;

    int startup() override { return 0; }
    int shutdown() override { return 0; }
    int addNotifier(const sp<IBinder>& /*notifier*/) override { return 0; }
    int removeNotifier(const sp<IBinder>& /*notifier*/) override { return 0; }
    int getVolumeCount() override { return static_cast<int>(volumes.size()); }
    sp<VolumeItf> queryVolume(int index) override {
        const auto at = static_cast<size_t>(index);
        return at < volumes.size() ? volumes[at] : nullptr;
    }
};

sp<VolumeItf> stick(const char* name, const char* label, const char* mountPath) {
    return new Volume(String8(name), String8("id"), String8(label), String8("vfat"), String8("/media/x"),
                      String8("/dev/x"), String8(mountPath), String8("/dev/sda"));
}

TEST(VolumeOperations, AListThatEndsEarlyHoldsNoNulls) {
    const sp<Manager> manager = new Manager();
    EXPECT_EQ(listVolumes(*manager).size(), 0U);
    manager->volumes = {stick("sda1", "A", "/mnt/sda1")};
    const Volumes volumes = listVolumes(*manager);
    ASSERT_EQ(volumes.size(), 1U);
    EXPECT_EQ(volumes[0]->getName(), "sda1");
    manager->volumes.push_back(stick("unknown", "B", "unknown"));
    manager->volumes.push_back(stick("sdb1", "C", "/mnt/sdb1"));
    EXPECT_EQ(listVolumes(*manager).size(), 1U) << "the placeholder ends the list";
}

TEST(VolumeOperations, WhatIsUnknownIsNotKnown) {
    EXPECT_FALSE(isKnown(String8("")));
    EXPECT_FALSE(isKnown(String8("unknown")));
    EXPECT_TRUE(isKnown(String8("/mnt/sda1")));
}

TEST(RenderWait, WhatWasFound) {
    EXPECT_EQ(renderFoundVolume(Format::kHuman, stick("sda1", "MU\x1bSIC", "/mnt/sda1")),
              "NAME  LABEL      FORMAT  IDENTITY  MOUNT PATH  ACCESS PATH  DEVICE  DISK\n"
              "sda1  MU\\x1bSIC  vfat    id        /mnt/sda1   /media/x     /dev/x  /dev/sda\n");
    EXPECT_THAT(renderFoundVolume(Format::kJson, stick("sda1", "MUSIC", "/mnt/sda1")),
                StartsWith("{\"schemaVersion\":1,\"found\":\"volume\",\"volume\":{\"name\":\"sda1\","));
    EXPECT_EQ(renderFoundServices(Format::kHuman, {{"A", ServiceState::Life::kAlive}}), "A  alive\n");
    EXPECT_EQ(
        renderFoundServices(Format::kJson, {{"A", ServiceState::Life::kAlive}}),
        "{\"schemaVersion\":1,\"found\":\"service\",\"services\":[{\"name\":\"A\",\"state\":\"alive\"}]}\n");
    const sp<usb::UsbDeviceItf> device = new usb::UsbDevice(
        7, 1, nullptr, 0x12a8, 0x05ac, 0, 0, 0, usb::UsbDevice::Interfaces(), new usb::UsbConfig(50));
    EXPECT_THAT(renderFoundUsbDevice(Format::kHuman, device, UsbNames()),
                HasSubstr("7   1    05ac:12a8  100 mA"));
    EXPECT_THAT(renderFoundUsbDevice(Format::kJson, device, UsbNames()),
                StartsWith("{\"schemaVersion\":1,\"found\":\"usb\",\"usb_device\":{\"id\":7,"));
}

}  // namespace

}  // namespace devicectl
