// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What the services list, as standard containers.
 */
#include "client/Lists.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "client/DevicePaths.h"
#include "tests/support/TestFolder.h"
#include "tests/unit/client/FakeDaemon.h"

using android::interface_cast;
using android::sp;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

namespace {

class ListsTest : public ::testing::Test {
  protected:
    std::vector<std::string> volumeNames() {
        std::vector<std::string> names;
        const auto manager =
            interface_cast<volume::IVolumeManager>(sp<android::IBinder>(mDaemon.mVolumeService.remote));
        for (const auto& volume : client::Lists::volumes(*manager)) {
            names.emplace_back(volume->getName().string());
        }
        return names;
    }
    std::vector<uint32_t> usbIds() {
        std::vector<uint32_t> ids;
        const auto manager =
            interface_cast<usb::IUsbManager>(sp<android::IBinder>(mDaemon.mUsbService.remote));
        for (const auto& device : client::Lists::usbDevices(*manager)) {
            ids.push_back(device->getId());
        }
        return ids;
    }
    std::vector<std::string> devicePaths(const std::vector<std::string>& asked) {
        std::vector<std::string> paths;
        const auto manager =
            interface_cast<device::IDeviceManager>(sp<android::IBinder>(mDaemon.mDeviceService.remote));
        for (const auto& device : client::Lists::devices(*manager, asked)) {
            paths.emplace_back(device->getPath().string());
        }
        return paths;
    }

    FakeDaemon mDaemon;
};

}  // namespace

TEST_F(ListsTest, AreEmptyWhereNothingIs) {
    EXPECT_THAT(volumeNames(), IsEmpty());
    EXPECT_THAT(usbIds(), IsEmpty());
    EXPECT_THAT(devicePaths({"/devices/a"}), IsEmpty());
    EXPECT_THAT(devicePaths({}), IsEmpty());
}

TEST_F(ListsTest, HoldEverythingInTheServicesOrder) {
    mDaemon.mVolumes->mList.insert(makeVolume("sda1"));
    mDaemon.mVolumes->mList.insert(makeVolume("sdb1"));
    mDaemon.mUsb->mList.insert(makeUsbDevice(7, 1));
    mDaemon.mUsb->mList.insert(makeUsbDevice(9, 0));
    EXPECT_THAT(volumeNames(), ElementsAre("sda1", "sdb1"));
    EXPECT_THAT(usbIds(), ElementsAre(7, 9));
}

TEST_F(ListsTest, DevicesAreFoundAtAndAboveThePaths) {
    for (const char* path :
         {"/devices/usb1", "/devices/usb1/1-1", "/devices/usb1/1-1/1-1:1.0", "/devices/usb2"}) {
        mDaemon.mDevices->mList.insert(makeDevice(path));
    }
    EXPECT_THAT(devicePaths({"/devices/usb1/1-1/1-1:1.0", "/devices/usb1"}),
                ElementsAre("/devices/usb1", "/devices/usb1/1-1", "/devices/usb1/1-1/1-1:1.0"));
    EXPECT_THAT(devicePaths({"/devices/usb2", "/devices/usb3"}), ElementsAre("/devices/usb2"));
}

TEST_F(ListsTest, ADeviceWhoseNameBeginsLikeAnothersIsNotAboveIt) {
    for (const char* path : {"/devices/usb1", "/devices/usb1/1-1", "/devices/usb1/1-10"}) {
        mDaemon.mDevices->mList.insert(makeDevice(path));
    }
    EXPECT_THAT(devicePaths({"/devices/usb1/1-10"}), ElementsAre("/devices/usb1", "/devices/usb1/1-10"));
    EXPECT_THAT(devicePaths({"/devices/usb1/1-100"}), ElementsAre("/devices/usb1"));
    EXPECT_THAT(devicePaths({"/devices/usb1/1-1"}), ElementsAre("/devices/usb1", "/devices/usb1/1-1"));
}

TEST_F(ListsTest, AnEntryThatLeavesDuringTheWalkHidesNoOther) {
    const std::vector<sp<usb::UsbDeviceItf>> devices = {makeUsbDevice(1, 0), makeUsbDevice(2, 0),
                                                        makeUsbDevice(3, 0)};
    for (const auto& device : devices) {
        mDaemon.mUsb->mList.insert(device);
    }
    // The count, the first one, then the first one is gone and the others have moved.
    int questions = 0;
    mDaemon.mUsb->mList.mOnQuestion = [&] {
        if (++questions == 3) {
            mDaemon.mUsb->mList.erase(devices[0]);
        }
    };
    EXPECT_THAT(usbIds(), ElementsAre(2, 3));
}

TEST_F(ListsTest, UsbDevicesStandInTheOrderInWhichTheyCameAndOnce) {
    const sp<usb::UsbDeviceItf> second = makeUsbDevice(2, 0);
    mDaemon.mUsb->mList.insert(makeUsbDevice(11, 0));
    mDaemon.mUsb->mList.insert(second);
    // While the list is walked the second comes to stand in it twice.
    int questions = 0;
    mDaemon.mUsb->mList.mOnQuestion = [&] {
        if (++questions == 3) {
            mDaemon.mUsb->mList.insert(second);
        }
    };
    EXPECT_THAT(usbIds(), ElementsAre(2, 11));
}

TEST_F(ListsTest, AListThatNeverComesToRestIsReadTenTimes) {
    int questions = 0;
    mDaemon.mVolumes->mList.mOnQuestion = [&] {
        if (++questions > 100) {
            FAIL() << "reads for ever";
        }
        // Alternately one and none: a reading asks twice when there is one, and once when there is none.
        static sp<volume::VolumeItf> sVolume = makeVolume("sda1");
        static bool sIsThere = false;
        static int sLeft = 0;
        if (sLeft == 0) {
            sIsThere = !sIsThere;
            sLeft = sIsThere ? 2 : 1;
            sIsThere ? mDaemon.mVolumes->mList.insert(sVolume) : mDaemon.mVolumes->mList.erase(sVolume);
        }
        --sLeft;
    };
    volumeNames();
    EXPECT_EQ(15, questions);  // five readings of two, five of one
}

TEST_F(ListsTest, OfADeadDaemonAreEmpty) {
    mDaemon.mVolumes->mList.insert(makeVolume("sda1"));
    mDaemon.mUsb->mList.insert(makeUsbDevice(7, 1));
    mDaemon.mDevices->mList.insert(makeDevice("/devices/usb1"));
    mDaemon.die();
    EXPECT_THAT(volumeNames(), IsEmpty());
    EXPECT_THAT(usbIds(), IsEmpty());
    EXPECT_THAT(devicePaths({"/devices/usb1"}), IsEmpty());
}

TEST(DevicePathsTest, TheDeepestStandForAllAboveThem) {
    EXPECT_THAT(client::deepest({"/a", "/a/b", "/a/b/c", "/a/b-x", "/a/b-x", "/d", "/a/bc", ""}),
                ElementsAre("/a/b-x", "/a/b/c", "/a/bc", "/d"));
    EXPECT_THAT(client::deepest({}), IsEmpty());
}

TEST(DevicePathsTest, AreTheKernelsDevicesWithoutLinks) {
    const TestFolder sysfs;
    const auto makeFolder = [&sysfs](const std::string& name) {
        ASSERT_EQ(0, mkdir(sysfs.path(name).c_str(), 0755)) << name;
    };
    for (const char* name : {"devices", "devices/usb1", "devices/usb1/1-1", "devices/sda", "class",
                             "class/block", "bus", "bus/usb", "bus/usb/devices"}) {
        makeFolder(name);
    }
    const auto link = [&sysfs](const char* target, const char* name) {
        ASSERT_EQ(0, symlink(target, sysfs.path(name).c_str())) << name;
    };
    link("../../devices/sda", "class/block/sda");
    link("../../../devices/usb1", "bus/usb/devices/usb1");
    link("../../../devices/usb1/1-1", "bus/usb/devices/1-1");
    link("../../../devices/gone", "bus/usb/devices/gone");
    EXPECT_THAT(client::devicePaths(sysfs.path()),
                UnorderedElementsAre("/devices/sda", "/devices/usb1", "/devices/usb1/1-1"));
    EXPECT_THAT(client::devicePaths(sysfs.path("nowhere")), IsEmpty());
}
