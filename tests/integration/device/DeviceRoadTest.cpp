// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * From the kernel's socket to a notifier, with real uevents in a network namespace of the test's own.
 */
#include <android/log.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "device/DeviceManagerImpl.h"
#include "tests/support/UeventInjector.h"
#include "tests/unit/device/Recorder.h"
#include "tests/unit/support/LogCapture.h"

using android::sp;
using android::String8;
using device::DeviceManagerImpl;
using device::DeviceObserver;
using namespace std::chrono_literals;

namespace {

class DeviceRoadTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(0, mInjector.open());
        mManager->setNotifier(mRecorder);
        mManager->startup();
    }

    void TearDown() override { mManager->shutdown(); }

    void inject(const std::string& action, const std::string& path, const std::string& subsystem,
                const std::vector<std::string>& properties = {}) {
        ASSERT_EQ(0, mInjector.send(action, path, subsystem, properties));
    }

    LogCapture mLog;
    UeventInjector mInjector;
    sp<UeventObserver> mUevents = new UeventObserver();
    sp<DeviceManagerImpl> mManager = new DeviceManagerImpl(new DeviceObserver(mUevents));
    sp<Recorder> mRecorder = new Recorder();
};

}  // namespace

TEST_F(DeviceRoadTest, ADeviceComesAndGoes) {
    inject("add", "/devices/x", "block", {"DEVNAME=sda", "MAJOR=8", "MINOR=0"});
    ASSERT_TRUE(mRecorder->waitFor(1));
    const sp<device::DeviceItf> listed = mManager->getDevice(String8("block"), String8("sda"));
    ASSERT_NE(nullptr, listed);
    EXPECT_EQ(String8("8"), listed->getParam(String8("MAJOR")));
    EXPECT_EQ(4U, listed->getParamSize());
    inject("remove", "/devices/x", "block", {"DEVNAME=sda"});
    ASSERT_TRUE(mRecorder->waitFor(2));
    EXPECT_EQ(nullptr, mManager->getDevice(String8("block"), String8("sda")));
    EXPECT_THAT(mRecorder->calls(), ::testing::ElementsAre("added /devices/x", "removed /devices/x"));
}

TEST_F(DeviceRoadTest, KeepsTheOrderOfThousands) {
    constexpr int kDevices = 2500;
    std::vector<std::string> expected;
    for (int i = 0; i < kDevices; ++i) {
        const std::string path = "/devices/" + std::to_string(i);
        inject("add", path, "usb", {"DEVTYPE=usb_device"});
        inject("remove", path, "usb", {"DEVTYPE=usb_device"});
        expected.push_back("added " + path);
        expected.push_back("removed " + path);
        // The socket holds about 150 events: a sender that never waits would outrun any reader.
        if (i % 50 == 49) {
            ASSERT_TRUE(mRecorder->waitFor(expected.size()));
        }
    }
    EXPECT_EQ(expected, mRecorder->calls());
}

TEST_F(DeviceRoadTest, IgnoresWhatIsNotItsConcern) {
    inject("add", "/devices/net", "net", {"INTERFACE=eth7"});
    inject("add", "/devices/none", "");
    inject("change", "/devices/x", "block", {"DEVNAME=sda"});
    inject("add", "/devices/x", "mmc");
    ASSERT_TRUE(mRecorder->waitFor(1));
    EXPECT_THAT(mRecorder->calls(), ::testing::ElementsAre("added /devices/x"));
    EXPECT_THAT(mLog.take("DeviceObserver"),
                ::testing::ElementsAre(LogLine{ANDROID_LOG_WARN, "DeviceObserver", "not handle action[3]"}));
}

TEST_F(DeviceRoadTest, HearsARealDeviceOfTheKernel) {
    // Asks the kernel to announce a block device of its own once more, as udevadm trigger does.
    const int fd = open("/sys/class/block/loop0/uevent", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(fd, 0) << "no block device loop0 on this machine";
    ASSERT_EQ(3, write(fd, "add", 3));
    close(fd);
    ASSERT_TRUE(mRecorder->waitFor(1));
    const sp<device::DeviceItf> loop = mManager->getDevice(String8("block"), String8("loop0"));
    ASSERT_NE(nullptr, loop);
    EXPECT_EQ(String8("/devices/virtual/block/loop0"), loop->getPath());
    EXPECT_EQ(String8("disk"), loop->getParam(String8("DEVTYPE")));
}

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    if (unshare(CLONE_NEWNET) != 0) {
        perror("cannot enter a network namespace (root is needed)");
        return 1;
    }
    return RUN_ALL_TESTS();
}
