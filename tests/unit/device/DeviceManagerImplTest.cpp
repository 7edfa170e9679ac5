// SPDX-License-Identifier: Apache-2.0
#include "device/DeviceManagerImpl.h"

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "device/Device.h"
#include "device/DeviceManagerMessageHandler.h"
#include "tests/unit/common/ThreadProbe.h"
#include "tests/unit/device/FakeUevents.h"
#include "tests/unit/device/Recorder.h"
#include "tests/unit/support/LogCapture.h"
#include "tests/unit/support/ManagerTransitions.h"

using android::Message;
using android::sp;
using android::String16;
using android::String8;
using android::Vector;
using android::wp;
using device::Device;
using device::DeviceItf;
using device::DeviceManagerImpl;
using device::DeviceObserver;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr const char* kTag = "DeviceManagerImpl";
using namespace std::chrono_literals;

/** With the state in the test's hands. */
class Manager : public DeviceManagerImpl {
  public:
    using DeviceManagerImpl::DeviceManagerImpl;
    using DeviceManagerImpl::setState;
    using DeviceManagerImpl::state;
};

class DeviceManagerImplTest : public ::testing::Test {
  protected:
    ~DeviceManagerImplTest() override { mManager.clear(); }

    static sp<DeviceItf> makeDevice(const char* path, const char* subsystem = "block",
                                    const char* name = nullptr) {
        const sp<DeviceItf> device = new Device();
        device->setPath(path);
        device->setSubsystem(subsystem);
        if (name != nullptr) {
            device->addParam("DEVNAME", name);
        }
        return device;
    }

    std::vector<std::string> ancestorsOf(const char* path) {
        std::vector<std::string> paths;
        for (const sp<DeviceItf>& device : mManager->getDevices(String8(path))) {
            paths.emplace_back(device->getPath().string());
        }
        return paths;
    }

    std::string dump() {
        String8 text;
        EXPECT_EQ(0, mManager->dump(Vector<String16>(), text));
        return text.string();
    }

    /** Has @p shutdown run inside a notification; the manager starts again all the same. */
    void expectShutdownAndStart(const std::function<void()>& shutdown) {
        mRecorder->mInside = shutdown;
        mManager->setNotifier(mRecorder);
        mManager->startup();
        mUevents.send("add", "/devices/x", "block");
        ASSERT_TRUE(mRecorder->waitFor(1));
        EXPECT_EQ(0, mManager->state());
        mRecorder->mInside = nullptr;
        mManager->startup();
        mUevents.send("add", "/devices/y", "block");
        EXPECT_TRUE(mRecorder->waitFor(2));
        mManager->shutdown();
    }

    LogCapture mLog;
    FakeUevents mUevents;
    sp<DeviceObserver> mObserver = new DeviceObserver(mUevents.observer());
    sp<Manager> mManager = new Manager(mObserver);
    sp<Recorder> mRecorder = new Recorder();
};

}  // namespace

TEST_F(DeviceManagerImplTest, LogsRepeatedTransitions) {
    expectRepeatedTransitionsLogged(*mManager, mLog, kTag);
}

TEST_F(DeviceManagerImplTest, LogsAnImpossibleState) {
    expectImpossibleStateLogged(*mManager, mLog, kTag);
}

TEST_F(DeviceManagerImplTest, TellsControllerPaths) {
    EXPECT_EQ(String8("/devices/platform/ehci-platform.1/usb1"), mManager->getDevicePath(1, 0));
    EXPECT_EQ(String8("/devices/platform/ehci-platform.2/usb2"), mManager->getDevicePath(1, 1));
    EXPECT_EQ(String8("/devices/platform/ehci-platform.3/usb3"), mManager->getDevicePath(1, 2));
    EXPECT_EQ(String8("/devices/platform/vxsdv2-sdc.0"), mManager->getDevicePath(2, 0));
    EXPECT_EQ(String8("/devices/platform/vxsdv2-sdc.1"), mManager->getDevicePath(2, 1));
    EXPECT_THAT(mLog.take(kTag), IsEmpty());
}

TEST_F(DeviceManagerImplTest, RefusesUnknownControllers) {
    EXPECT_EQ(String8("unknown"), mManager->getDevicePath(1, 3));
    EXPECT_EQ(String8("unknown"), mManager->getDevicePath(1, -1));
    EXPECT_EQ(String8("unknown"), mManager->getDevicePath(2, 2));
    EXPECT_EQ(String8("unknown"), mManager->getDevicePath(2, -1));
    EXPECT_EQ(String8("unknown"), mManager->getDevicePath(0, 0));
    EXPECT_EQ(String8("unknown"), mManager->getDevicePath(-3, INT32_MIN));
    EXPECT_THAT(
        mLog.take(kTag),
        ElementsAre(LogLine{ANDROID_LOG_ERROR, kTag, "unknown usb controller id[3], must 0 <= id < 3"},
                    LogLine{ANDROID_LOG_ERROR, kTag, "unknown usb controller id[-1], must 0 <= id < 3"},
                    LogLine{ANDROID_LOG_ERROR, kTag, "unknown card controller id[2], must 0 <= id < 2"},
                    LogLine{ANDROID_LOG_ERROR, kTag, "unknown card controller id[-1], must 0 <= id < 2"},
                    LogLine{ANDROID_LOG_ERROR, kTag, "unknown type[0] id[0]"},
                    LogLine{ANDROID_LOG_ERROR, kTag, "unknown type[-3] id[-2147483648]"}));
}

TEST_F(DeviceManagerImplTest, FindsTheFirstDeviceByName) {
    const sp<DeviceItf> first = makeDevice("/devices/1", "block", "sda");
    mManager->addDevice(first);
    mManager->addDevice(makeDevice("/devices/2", "block", "sda"));
    EXPECT_EQ(first, mManager->getDevice(String8("block"), String8("sda")));
    EXPECT_EQ(nullptr, mManager->getDevice(String8("block"), String8("sdb")));
    EXPECT_EQ(nullptr, mManager->getDevice(String8("usb"), String8("sda")));
}

TEST_F(DeviceManagerImplTest, FindsAncestorsInOrderOfArrival) {
    mManager->addDevice(makeDevice("/devices/a/b"));
    mManager->addDevice(makeDevice("/devices"));
    mManager->addDevice(makeDevice("/devices/a/b/c"));
    mManager->addDevice(makeDevice("/other"));
    EXPECT_THAT(ancestorsOf("/devices/a/b/c"), ElementsAre("/devices/a/b", "/devices"));
    EXPECT_THAT(ancestorsOf("/devices/a/b/c/d"), ElementsAre("/devices/a/b", "/devices", "/devices/a/b/c"));
    EXPECT_THAT(ancestorsOf(""), IsEmpty());
}

TEST_F(DeviceManagerImplTest, ListsAPathTwiceAndRemovesOneAtATime) {
    mManager->addDevice(makeDevice("/devices/x", "block", "sda"));
    mManager->addDevice(makeDevice("/devices/x", "block", "sdb"));
    mManager->removeDevice(makeDevice("/devices/x"));
    EXPECT_EQ(nullptr, mManager->getDevice(String8("block"), String8("sda")));
    EXPECT_NE(nullptr, mManager->getDevice(String8("block"), String8("sdb")));
    mManager->removeDevice(makeDevice("/devices/unknown"));
    mManager->removeDevice(makeDevice("/devices/x"));
    mManager->removeDevice(makeDevice("/devices/x"));
    EXPECT_EQ(nullptr, mManager->getDevice(String8("block"), String8("sdb")));
}

TEST_F(DeviceManagerImplTest, DumpsSubsystemAndParameters) {
    EXPECT_EQ("---- dump DeviceManager----\n---dump device---\n", dump());
    mManager->addDevice(makeDevice("/devices/x", "block", "sda"));
    mManager->addDevice(makeDevice("/devices/y", "usb"));
    EXPECT_EQ(
        "---- dump DeviceManager----\n---dump device---\n---device[0]---\n[ SUBSYSTEM] [block]\n[   DEVNAME] "
        "[sda]\n"
        "---device[1]---\n[ SUBSYSTEM] [usb]\n",
        dump());
}

TEST_F(DeviceManagerImplTest, CutsLongLinesOfTheDump) {
    mManager->addDevice(makeDevice("/devices/x", "block", std::string(2000, 'n').c_str()));
    const std::string text = dump();
    const std::string head =
        "---- dump DeviceManager----\n---dump device---\n---device[0]---\n[ SUBSYSTEM] [block]\n";
    EXPECT_EQ(head + "[   DEVNAME] [" + std::string(1023 - 14, 'n'), text);
}

TEST_F(DeviceManagerImplTest, DeliversAttachAndDetachInOrder) {
    mManager->setNotifier(mRecorder);
    mManager->startup();
    for (int i = 0; i < 50; ++i) {
        const std::string path = "/devices/" + std::to_string(i);
        mUevents.send("add", path, "block", {"DEVNAME=sda"});
        mUevents.send("remove", path, "block");
    }
    ASSERT_TRUE(mRecorder->waitFor(100));
    std::vector<std::string> expected;
    for (int i = 0; i < 50; ++i) {
        expected.push_back("added /devices/" + std::to_string(i));
        expected.push_back("removed /devices/" + std::to_string(i));
    }
    EXPECT_EQ(expected, mRecorder->calls());
    mManager->shutdown();
    EXPECT_EQ("---- dump DeviceManager----\n---dump device---\n", dump());
}

TEST_F(DeviceManagerImplTest, WatchesFourSubsystems) {
    mManager->setNotifier(mRecorder);
    mManager->startup();
    for (const char* subsystem : {"block", "net", "usb", "tty", "usb_device", "scsi", "mmc", "mmc_host"}) {
        mUevents.send("add", std::string("/devices/") + subsystem, subsystem);
    }
    ASSERT_TRUE(mRecorder->waitFor(4));
    mManager->shutdown();
    EXPECT_THAT(mRecorder->calls(), ElementsAre("added /devices/block", "added /devices/usb",
                                                "added /devices/usb_device", "added /devices/mmc"));
}

TEST_F(DeviceManagerImplTest, AQueryFromANotificationSeesTheNewList) {
    std::atomic<bool> found{false};
    mRecorder->mInside = [&] { found = mManager->getDevice(String8("block"), String8("sda")) != nullptr; };
    mManager->setNotifier(mRecorder);
    mManager->startup();
    mUevents.send("add", "/devices/x", "block", {"DEVNAME=sda"});
    ASSERT_TRUE(mRecorder->waitFor(1));
    EXPECT_TRUE(found);
    mManager->shutdown();
}

/** Takes its time over the list. */
class SlowManager : public DeviceManagerImpl {
  public:
    using DeviceManagerImpl::DeviceManagerImpl;

    void addDevice(const sp<DeviceItf>& device) override {
        std::this_thread::sleep_for(20ms);
        DeviceManagerImpl::addDevice(device);
    }

    void removeDevice(const sp<DeviceItf>& device) override {
        std::this_thread::sleep_for(20ms);
        DeviceManagerImpl::removeDevice(device);
    }
};

TEST_F(DeviceManagerImplTest, NotifiesOnceTheListHasChanged) {
    const sp<SlowManager> manager = new SlowManager(mObserver);
    std::vector<size_t> listed;
    mRecorder->mInside = [&] { listed.push_back(manager->getDevices(String8("/devices/x/y")).size()); };
    manager->setNotifier(mRecorder);
    manager->startup();
    mUevents.send("add", "/devices/x", "block");
    ASSERT_TRUE(mRecorder->waitFor(1));
    mUevents.send("remove", "/devices/x", "block");
    ASSERT_TRUE(mRecorder->waitFor(2));
    manager->shutdown();
    EXPECT_THAT(listed, ElementsAre(1U, 0U));
}

TEST_F(DeviceManagerImplTest, RunsTwoNamedThreads) {
    const auto counts = [](int threads) {
        return eventually([threads] {
            // Cut to the 15 characters that the system shows.
            return countThreads("DeviceManagerQu") == threads && countThreads("EventLooper") == threads;
        });
    };
    EXPECT_TRUE(counts(0));
    mManager->startup();
    EXPECT_TRUE(counts(1));
    mManager->shutdown();
    EXPECT_TRUE(counts(0));
}

TEST_F(DeviceManagerImplTest, HearsNothingBeforeTheStartAndAfterTheStop) {
    mManager->setNotifier(mRecorder);
    mUevents.send("add", "/devices/1", "block");
    mManager->startup();
    // What came before the start waited in the socket.
    ASSERT_TRUE(mRecorder->waitFor(1));
    mManager->shutdown();
    mUevents.send("add", "/devices/2", "block");
    mManager->startup();
    ASSERT_TRUE(mRecorder->waitFor(2));
    mManager->shutdown();
    EXPECT_THAT(mRecorder->calls(), ElementsAre("added /devices/1", "added /devices/2"));
}

TEST_F(DeviceManagerImplTest, SurvivesWithoutNotifier) {
    mManager->startup();
    mUevents.send("add", "/devices/x", "block", {"DEVNAME=sda"});
    while (mManager->getDevice(String8("block"), String8("sda")) == nullptr) {
        std::this_thread::sleep_for(1ms);
    }
    mManager->shutdown();
}

TEST_F(DeviceManagerImplTest, HandlersLogUnknownMessages) {
    const sp<android::MessageHandler> event =
        new device::DeviceMessageHandler(mManager, makeDevice("/devices/x"));
    mManager->setNotifier(mRecorder);
    event->handleMessage(Message(1));
    event->handleMessage(Message(2));
    event->handleMessage(Message(3));
    const sp<android::MessageHandler> unused = new device::DeviceManagerMessageHandler(mManager);
    unused->handleMessage(Message(42));
    EXPECT_THAT(mRecorder->calls(), ElementsAre("added /devices/x", "removed /devices/x"));
    EXPECT_THAT(mLog.take(kTag), ElementsAre(LogLine{ANDROID_LOG_WARN, kTag, "unknown message [3]"},
                                             LogLine{ANDROID_LOG_INFO, kTag, "message [42]"}));
}

TEST_F(DeviceManagerImplTest, HandlersOutliveTheManager) {
    const sp<android::MessageHandler> event =
        new device::DeviceMessageHandler(mManager, makeDevice("/devices/x"));
    const sp<android::MessageHandler> unused = new device::DeviceManagerMessageHandler(mManager);
    mManager->setNotifier(mRecorder);
    mManager.clear();
    event->handleMessage(Message(1));
    unused->handleMessage(Message(1));
    EXPECT_THAT(mRecorder->calls(), IsEmpty());
}

// A notification that led to a shutdown waited for the thread that it ran on.
TEST_F(DeviceManagerImplTest, ShutsDownFromInsideANotification) {
    expectShutdownAndStart([&] { mManager->shutdown(); });
}

// The thread that a notification waits for was itself waiting for the notification.
TEST_F(DeviceManagerImplTest, ShutsDownFromAThreadThatANotificationWaitsFor) {
    expectShutdownAndStart([&] { std::thread([&] { mManager->shutdown(); }).join(); });
}

// The uevent thread needs the lock of the list; a shutdown that held it waited for that thread for ever.
TEST_F(DeviceManagerImplTest, StopsAndStartsWhileUeventsPourIn) {
    mManager->setNotifier(mRecorder);
    std::atomic<bool> done{false};
    std::thread kernel([&] {
        for (int i = 0; !done; ++i) {
            mUevents.send(i % 2 == 0 ? "add" : "remove", "/devices/x", "block", {"DEVNAME=sda"});
        }
    });
    for (int i = 0; i < 10; ++i) {
        mManager->startup();
        std::this_thread::sleep_for(5ms);
        mManager->shutdown();
    }
    // The sender may wait for room in the socket: somebody must read until it sees the end.
    mManager->startup();
    done = true;
    kernel.join();
    mManager->shutdown();
    EXPECT_FALSE(mRecorder->calls().empty());
}

TEST_F(DeviceManagerImplTest, GoesWithItsThreadsAndNotifiers) {
    mManager->setNotifier(mRecorder);
    mManager->startup();
    mUevents.send("add", "/devices/x", "block");
    ASSERT_TRUE(mRecorder->waitFor(1));
    const wp<Manager> manager = mManager;
    const wp<DeviceObserver> observer = mObserver;
    const wp<Recorder> recorder = mRecorder;
    // Waits for the uevent thread, which holds the manager while it calls in.
    mObserver->remove(String8("nothing"));
    mObserver.clear();
    mRecorder.clear();
    // Still started: its threads must not keep it.
    mManager.clear();
    // The queue thread may be on its way out of the call-back, where it holds them for a moment more.
    EXPECT_TRUE(eventually([&] { return manager.promote() == nullptr; }));
    EXPECT_TRUE(eventually([&] { return observer.promote() == nullptr; }));
    EXPECT_TRUE(eventually([&] { return recorder.promote() == nullptr; }));
}

TEST_F(DeviceManagerImplTest, GetDeviceAbortsOnADeviceWithoutName) {
    mManager->addDevice(makeDevice("/devices/x", "usb"));
    GTEST_FLAG_SET(death_test_style, "fast");
    EXPECT_DEATH(mManager->getDevice(String8("usb"), String8("1-1")), "key not found");
}
