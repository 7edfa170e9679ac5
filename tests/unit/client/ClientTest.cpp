// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A client against the services themselves: what it tells, once and in order, whatever comes in between. A
 * registration that breaks the services' contract ends the test, since it would end the daemon.
 */
#include "client/Client.h"

#include <dirent.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <utils/String8.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <future>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "client/Environment.h"
#include "client/EventBacklog.h"
#include "tests/unit/client/FakeDaemon.h"
#include "tests/unit/support/LogCapture.h"

using android::ALREADY_EXISTS;
using android::BAD_VALUE;
using android::OK;
using android::sp;
using client::Client;
using client::EventBacklog;
using client::Events;
using client::Options;
using client::Service;
using device::IDeviceManager;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::UnorderedElementsAre;
using usb::IUsbManager;
using volume::IVolumeManager;

namespace {

constexpr std::chrono::seconds kLimit(60);
using Texts = std::vector<std::string>;

/** Writes down what a client tells. Any thread. */
class Recorder {
  public:
    void note(const std::string& text) {
        const std::lock_guard<std::mutex> hold(mLock);
        mTexts.push_back(text);
        mAdded.notify_all();
    }

    Texts texts() const {
        const std::lock_guard<std::mutex> hold(mLock);
        return mTexts;
    }

    Texts take() {
        const std::lock_guard<std::mutex> hold(mLock);
        return std::exchange(mTexts, {});
    }

    /** Those that do not speak of the connection. */
    Texts changes() const {
        Texts found = texts();
        found.erase(std::remove_if(
                        found.begin(), found.end(),
                        [](const std::string& text) { return text.find("connected") != std::string::npos; }),
                    found.end());
        return found;
    }

    bool waitFor(const std::string& text) const {
        std::unique_lock<std::mutex> hold(mLock);
        return mAdded.wait_for(hold, kLimit, [this, &text] {
            return std::find(mTexts.begin(), mTexts.end(), text) != mTexts.end();
        });
    }

    Events events() {
        const auto device = [this](const char* what) {
            return [this, what](const sp<device::DeviceItf>& told) {
                note(std::string(what) + " " + told->getPath().string());
            };
        };
        const auto volume = [this](const char* what) {
            return [this, what](const sp<volume::VolumeItf>& told) {
                note(std::string(what) + " " + told->getName().string() + " " +
                     told->getMountPath().string());
            };
        };
        const auto usbDevice = [this](const char* what) {
            return [this, what](const sp<usb::UsbDeviceItf>& told) {
                note(std::string(what) + " " + std::to_string(told->getId()));
            };
        };
        const auto number = [this](const char* what) {
            return [this, what](int32_t event, int32_t value) {
                note(std::string(what) + " " + std::to_string(event) + " " + std::to_string(value));
            };
        };
        Events events;
        events.connected = [this](Service service) {
            note(std::string("connected ") + Events::nameOf(service));
        };
        events.disconnected = [this](Service service) {
            note(std::string("disconnected ") + Events::nameOf(service));
        };
        events.deviceAdded = device("device");
        events.deviceRemoved = device("no device");
        events.volumeAdded = volume("volume");
        events.volumeRemoved = volume("no volume");
        events.usbDeviceAttached = usbDevice("usb");
        events.usbDeviceDetached = usbDevice("no usb");
        events.usbEvent = number("usb event");
        events.usbHostEvent = number("usb host event");
        events.deviceEvent = number("device event");
        events.volumeEvent = number("volume event");
        return events;
    }

  private:
    mutable std::mutex mLock;
    mutable std::condition_variable mAdded;
    Texts mTexts;
};

/** A gate that call-backs may be held at. */
class Gate {
  public:
    void open() {
        const std::lock_guard<std::mutex> hold(mLock);
        mIsOpen = true;
        mChanged.notify_all();
    }
    /** @return false at the limit */
    bool pass() {
        std::unique_lock<std::mutex> hold(mLock);
        return mChanged.wait_for(hold, kLimit, [this] { return mIsOpen; });
    }

  private:
    std::mutex mLock;
    std::condition_variable mChanged;
    bool mIsOpen = false;
};

/** Threads of this process by this name. */
int threadsNamed(const std::string& name) {
    int count = 0;
    DIR* const tasks = opendir("/proc/self/task");
    while (const dirent* const entry = readdir(tasks)) {
        std::ifstream file(std::string("/proc/self/task/") + entry->d_name + "/comm");
        std::string comm;
        std::getline(file, comm);
        count += comm == name ? 1 : 0;
    }
    closedir(tasks);
    return count;
}

bool comesToHold(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + kLimit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

class ClientTest : public ::testing::Test {
  protected:
    static Options fast(uint32_t services = Options::kAllServices) {
        Options options;
        options.services = services;
        options.retryInterval = std::chrono::milliseconds(1);
        return options;
    }

    std::unique_ptr<Client> newClient() { return std::make_unique<Client>(mSurroundings.environment()); }

    /** A client that is connected to @p mDaemon. */
    std::unique_ptr<Client> connectedClient() {
        mSurroundings.publish(*mDaemon);
        auto client = newClient();
        EXPECT_EQ(OK, client->start(mTold.events(), fast()));
        EXPECT_TRUE(client->waitUntilConnected(kLimit));
        return client;
    }

    /** The daemon dies, and another one takes its place. */
    void restart(std::unique_ptr<FakeDaemon> next) {
        mSurroundings.withdrawAll();
        mDaemon->die();
        mFormer.push_back(std::move(mDaemon));
        mDaemon = std::move(next);
        mSurroundings.publish(*mDaemon);
    }

    /** The thread that reads the log's and the strings' shared data first. */
    const android::String8 mFirstString;
    FakeSurroundings mSurroundings;
    Recorder mTold;
    std::unique_ptr<FakeDaemon> mDaemon = std::make_unique<FakeDaemon>();
    std::vector<std::unique_ptr<FakeDaemon>> mFormer;
};

/** Each service's registration, as the daemon counts them. */
Texts registrationsOf(const FakeDaemon& daemon) {
    const auto text = [](const char* name, const FakeService& service, uint32_t add, uint32_t remove) {
        return std::string(name) + " " + std::to_string(service.calls(add)) + " -" +
               std::to_string(service.calls(remove));
    };
    return {
        text("device", daemon.mDeviceService, IDeviceManager::kAddNotifier, IDeviceManager::kRemoveNotifier),
        text("volume", daemon.mVolumeService, IVolumeManager::kAddNotifier, IVolumeManager::kRemoveNotifier),
        text("usb", daemon.mUsbService, IUsbManager::kAddNotifier, IUsbManager::kRemoveNotifier),
        text("host", daemon.mUsbService, IUsbManager::kAddHostNotifier, IUsbManager::kRemoveHostNotifier)};
}

}  // namespace

TEST_F(ClientTest, TellsWhatIsThereAndThenIsConnected) {
    mDaemon->mDevices->mList.insert(makeDevice("/devices/usb1"));
    mDaemon->mDevices->mList.insert(makeDevice("/devices/usb1/sda"));
    mDaemon->mVolumes->mList.insert(makeVolume("sda1"));
    mDaemon->mUsb->mList.insert(makeUsbDevice(3, 1));
    mSurroundings.setDevicePaths({"/devices/usb1/sda", "/devices/other"});
    const auto client = connectedClient();

    EXPECT_THAT(mTold.texts(),
                UnorderedElementsAre("connected DeviceManager", "device /devices/usb1",
                                     "device /devices/usb1/sda", "connected VolumeManager",
                                     "volume sda1 /mnt/sda1", "connected UsbManager", "usb 3"));
    const Texts texts = mTold.texts();
    const auto position = [&texts](const char* text) { return std::find(texts.begin(), texts.end(), text); };
    EXPECT_LT(position("connected DeviceManager"), position("device /devices/usb1"));
    EXPECT_LT(position("connected VolumeManager"), position("volume sda1 /mnt/sda1"));
    EXPECT_LT(position("connected UsbManager"), position("usb 3"));
    for (const Service service : {Service::kDeviceManager, Service::kVolumeManager, Service::kUsbManager}) {
        EXPECT_TRUE(client->isConnected(service));
    }
    ASSERT_EQ(2U, client->devices().size());
    EXPECT_EQ(1U, client->volumes().size());
    EXPECT_EQ(1U, client->usbDevices().size());
    EXPECT_EQ(1, mSurroundings.threadStarts());
    EXPECT_EQ(1, threadsNamed("DeviceClient"));
}

TEST_F(ClientTest, TellsWhatHappensInItsOrder) {
    const auto client = connectedClient();
    mTold.take();
    const auto volume = makeVolume("sda1");
    const auto device = makeUsbDevice(1, 2);
    mDaemon->mUsb->attach(device);
    mDaemon->mDevices->add(makeDevice("/devices/sda"));
    mDaemon->mVolumes->add(volume);
    mDaemon->mUsb->mNotifier->onEvent(9, 1);
    mDaemon->mUsb->mHostNotifier->onEvent(8, 2);
    mDaemon->mDevices->mNotifier->onEvent(7, 3);
    mDaemon->mVolumes->mNotifier->onEvent(6, 4);
    mDaemon->mVolumes->remove(volume);
    // A removal comes as a record of its own.
    mDaemon->mDevices->remove(makeDevice("/devices/sda"));
    mDaemon->mUsb->detach(device);
    ASSERT_TRUE(mTold.waitFor("no usb 1"));
    ASSERT_TRUE(mTold.waitFor("no device /devices/sda"));
    ASSERT_TRUE(mTold.waitFor("usb host event 8 2"));
    // While the USB list is read again, other services' events go ahead, and USB's changes go before its
    // other events.
    std::map<std::string, std::vector<std::string>> told;
    for (const std::string& text : mTold.texts()) {
        const std::string change = text.compare(0, 3, "no ") == 0 ? text.substr(3) : text;
        const std::string service = change.substr(0, change.find(' '));
        const bool isUsbEvent = service == "usb" && text.find(" event ") != std::string::npos;
        told[isUsbEvent ? "usb event" : service].push_back(text);
    }
    EXPECT_THAT(told["usb"], ElementsAre("usb 1", "no usb 1"));
    EXPECT_THAT(told["usb event"], ElementsAre("usb event 9 1", "usb host event 8 2"));
    EXPECT_THAT(told["device"],
                ElementsAre("device /devices/sda", "device event 7 3", "no device /devices/sda"));
    EXPECT_THAT(told["volume"],
                ElementsAre("volume sda1 /mnt/sda1", "volume event 6 4", "no volume sda1 /mnt/sda1"));
    EXPECT_THAT(client->devices(), IsEmpty());
    EXPECT_THAT(client->volumes(), IsEmpty());
    EXPECT_THAT(client->usbDevices(), IsEmpty());
}

TEST_F(ClientTest, TheRecordThatGoesIsTheOneThatCame) {
    mSurroundings.publish(*mDaemon);
    std::vector<sp<device::DeviceItf>> told;
    Gate removed;
    Events events;
    events.deviceAdded = [&told](const auto& device) { told.push_back(device); };
    events.deviceRemoved = [&](const auto& device) {
        told.push_back(device);
        removed.open();
    };
    const auto client = newClient();
    ASSERT_EQ(OK, client->start(events, fast()));
    ASSERT_TRUE(client->waitUntilConnected(kLimit));
    mDaemon->mDevices->add(makeDevice("/devices/sda"));
    mDaemon->mDevices->remove(makeDevice("/devices/sda"));
    ASSERT_TRUE(removed.pass());
    ASSERT_EQ(2U, told.size());
    EXPECT_EQ(told[0], told[1]);
}

TEST_F(ClientTest, WhatComesWhileTheClientRegistersIsToldOnce) {
    // Whenever a list is asked for, one more thing comes: it is listed, and its notice is sent.
    const auto device = makeDevice("/devices/sda");
    const auto volume = makeVolume("sda1");
    const auto usbDevice = makeUsbDevice(5, 0);
    std::atomic<int> questions{0};
    mDaemon->mUsb->mList.mOnQuestion = [&, done = false]() mutable {
        ++questions;
        if (!std::exchange(done, true)) {
            mDaemon->mUsb->mNotifier->onEvent(9, 1);
            mDaemon->mUsb->attach(usbDevice);
        }
    };
    mDaemon->mVolumes->mList.mOnQuestion = [&, done = false]() mutable {
        if (!std::exchange(done, true)) {
            mDaemon->mVolumes->add(volume);
        }
    };
    mDaemon->mDevices->mList.mOnQuestion = [&, done = false]() mutable {
        if (!std::exchange(done, true)) {
            mDaemon->mDevices->add(device);
        }
    };
    mSurroundings.setDevicePaths({"/devices/sda"});
    const auto client = connectedClient();
    mDaemon->mUsb->mNotifier->onEvent(99, 0);
    ASSERT_TRUE(mTold.waitFor("usb event 99 0"));
    EXPECT_THAT(mTold.changes(), UnorderedElementsAre("device /devices/sda", "volume sda1 /mnt/sda1", "usb 5",
                                                      "usb event 9 1", "usb event 99 0"));
    EXPECT_GT(questions, 1);
    const Texts texts = mTold.texts();
    EXPECT_LT(std::find(texts.begin(), texts.end(), "connected UsbManager"),
              std::find(texts.begin(), texts.end(), "usb event 9 1"));
}

TEST_F(ClientTest, WhatGoesWhileTheClientRegistersIsNotTold) {
    const auto volume = makeVolume("sda1");
    mDaemon->mVolumes->mList.insert(volume);
    int questions = 0;
    mDaemon->mVolumes->mList.mOnQuestion = [&] {
        // The first question still answers with it.
        if (++questions == 2) {
            mDaemon->mVolumes->remove(volume);
        }
    };
    const auto client = connectedClient();
    mDaemon->mUsb->mNotifier->onEvent(99, 0);
    ASSERT_TRUE(mTold.waitFor("usb event 99 0"));
    EXPECT_THAT(mTold.changes(), ElementsAre("usb event 99 0"));
}

TEST_F(ClientTest, WaitsForADaemonThatIsNotThereYet) {
    const auto client = newClient();
    ASSERT_EQ(OK, client->start(mTold.events(), fast()));
    EXPECT_FALSE(client->waitUntilConnected(std::chrono::milliseconds(0)));
    EXPECT_FALSE(client->waitUntilConnected(std::chrono::milliseconds(20)));
    EXPECT_FALSE(client->isConnected(Service::kUsbManager));
    EXPECT_EQ(nullptr, client->usbManager());
    EXPECT_EQ(nullptr, client->deviceManager());
    EXPECT_EQ(nullptr, client->volumeManager());
    ASSERT_TRUE(comesToHold([this] { return mSurroundings.lookUps() > 30; }));
    mSurroundings.publish(*mDaemon);
    EXPECT_TRUE(client->waitUntilConnected(kLimit));
    EXPECT_NE(nullptr, client->usbManager());
    EXPECT_NE(nullptr, client->deviceManager());
    EXPECT_NE(nullptr, client->volumeManager());
    EXPECT_THAT(mTold.texts(), UnorderedElementsAre("connected DeviceManager", "connected VolumeManager",
                                                    "connected UsbManager"));
}

TEST_F(ClientTest, ALimitBelowZeroOnlyLooks) {
    // In nanoseconds, cut to 64 bits, these are about three centuries, none, and the least there is.
    for (const int64_t limit : {int64_t{-9223372036855}, int64_t{-1}, std::numeric_limits<int64_t>::min()}) {
        mSurroundings.withdrawAll();
        const auto client = newClient();
        ASSERT_EQ(OK, client->start(mTold.events(), fast()));
        auto answer = std::async(std::launch::async, [&client, limit] {
            return client->waitUntilConnected(std::chrono::milliseconds(limit));
        });
        EXPECT_EQ(std::future_status::ready, answer.wait_for(kLimit)) << limit;
        // For one that waits after all.
        const FakeDaemon daemon;
        mSurroundings.publish(daemon);
        EXPECT_FALSE(answer.get()) << limit;
        EXPECT_TRUE(client->waitUntilConnected(kLimit));
    }
}

TEST_F(ClientTest, AServiceThatIsKnownToBeDeadIsNotConnectedTo) {
    mDaemon->die();
    mSurroundings.publish(*mDaemon);
    const auto client = newClient();
    ASSERT_EQ(OK, client->start(mTold.events(), fast()));
    ASSERT_TRUE(comesToHold([this] { return mSurroundings.lookUps() > 30; }));
    EXPECT_THAT(mTold.texts(), IsEmpty());
    EXPECT_THAT(registrationsOf(*mDaemon),
                ElementsAre("device 0 -0", "volume 0 -0", "usb 0 -0", "host 0 -0"));
}

TEST_F(ClientTest, ARestartTellsTheDifferences) {
    for (const char* name : {"sda1", "sdb1", "sdd1"}) {
        mDaemon->mVolumes->mList.insert(makeVolume(name));
    }
    mDaemon->mUsb->mList.insert(makeUsbDevice(1, 1));
    mDaemon->mDevices->mList.insert(makeDevice("/devices/sda"));
    mDaemon->mDevices->mList.insert(makeDevice("/devices/sdb"));
    mSurroundings.setDevicePaths({"/devices/sda", "/devices/sdb", "/devices/sdc"});
    const auto client = connectedClient();
    mTold.take();
    const auto kept = client->volumes().at(1);

    auto next = std::make_unique<FakeDaemon>();
    next->mVolumes->mList.insert(makeVolume("sdb1"));
    next->mVolumes->mList.insert(makeVolume("sdc1"));
    next->mVolumes->mList.insert(makeVolume("sdd1", "another medium"));
    next->mUsb->mList.insert(makeUsbDevice(1, 2));  // another device under the old number
    next->mDevices->mList.insert(makeDevice("/devices/sdb"));
    next->mDevices->mList.insert(makeDevice("/devices/sdc"));
    restart(std::move(next));
    ASSERT_TRUE(mTold.waitFor("connected UsbManager"));
    ASSERT_TRUE(mTold.waitFor("connected VolumeManager"));
    ASSERT_TRUE(mTold.waitFor("connected DeviceManager"));
    ASSERT_TRUE(client->waitUntilConnected(kLimit));

    Texts volumes;
    for (const std::string& text : mTold.changes()) {
        if (text.find("volume") != std::string::npos) {
            volumes.push_back(text);
        }
    }
    EXPECT_THAT(volumes, ElementsAre("no volume sda1 /mnt/sda1", "no volume sdd1 /mnt/sdd1",
                                     "volume sdc1 /mnt/sdc1", "volume sdd1 /mnt/sdd1"));
    EXPECT_THAT(mTold.changes(),
                IsSupersetOf({"no usb 1", "usb 1", "no device /devices/sda", "device /devices/sdc"}));
    EXPECT_EQ(8U, mTold.changes().size());
    EXPECT_THAT(mTold.texts(), IsSupersetOf({"disconnected UsbManager", "disconnected VolumeManager",
                                             "disconnected DeviceManager"}));
    // What stayed is the record that was told.
    ASSERT_EQ(3U, client->volumes().size());
    EXPECT_EQ(kept, client->volumes()[0]);
    EXPECT_THAT(registrationsOf(*mDaemon),
                ElementsAre("device 1 -0", "volume 1 -0", "usb 1 -0", "host 1 -0"));
}

TEST_F(ClientTest, WhileDisconnectedTheLastPictureStands) {
    mDaemon->mVolumes->mList.insert(makeVolume("sda1"));
    const auto client = connectedClient();
    mSurroundings.withdrawAll();
    mDaemon->die();
    ASSERT_TRUE(mTold.waitFor("disconnected VolumeManager"));
    EXPECT_FALSE(client->isConnected(Service::kVolumeManager));
    EXPECT_EQ(nullptr, client->volumeManager());
    EXPECT_EQ(1U, client->volumes().size());
    EXPECT_THAT(mTold.changes(), ElementsAre("volume sda1 /mnt/sda1"));
}

TEST_F(ClientTest, ARestartOfTheUsbManagerLeavesNoDeviceOfBefore) {
    mDaemon->mUsb->mList.insert(makeUsbDevice(1, 1));
    mDaemon->mUsb->mList.insert(makeUsbDevice(2, 1));
    const auto client = connectedClient();
    mTold.take();
    // Shut down and started again: the same devices are found, under the next identifiers.
    mDaemon->mUsb->mList.clear();
    mDaemon->mUsb->attach(makeUsbDevice(3, 1));
    mDaemon->mUsb->attach(makeUsbDevice(4, 1));
    ASSERT_TRUE(mTold.waitFor("no usb 1"));
    ASSERT_TRUE(mTold.waitFor("no usb 2"));
    ASSERT_TRUE(mTold.waitFor("usb 3"));
    ASSERT_TRUE(mTold.waitFor("usb 4"));
    ASSERT_EQ(2U, client->usbDevices().size());
    EXPECT_EQ(3U, client->usbDevices()[0]->getId());
    EXPECT_EQ(4U, client->usbDevices()[1]->getId());
    mDaemon->mUsb->mNotifier->onEvent(99, 0);
    ASSERT_TRUE(mTold.waitFor("usb event 99 0"));
    EXPECT_THAT(mTold.texts(),
                UnorderedElementsAre("no usb 1", "no usb 2", "usb 3", "usb 4", "usb event 99 0"));
}

TEST_F(ClientTest, WhatHappensWhileTheListIsReadAgainIsToldOnceAndInOrder) {
    const auto staying = makeUsbDevice(1, 1);
    const auto going = makeUsbDevice(2, 1);
    mDaemon->mUsb->mList.insert(staying);
    mDaemon->mUsb->mList.insert(going);
    FakeUsb& usb = *mDaemon->mUsb;
    std::atomic<bool> isConnected{false};
    std::atomic<int> questions{0};
    usb.mList.mOnQuestion = [&] {
        // The count has been answered; then one goes and another one comes.
        if (isConnected && ++questions == 2) {
            usb.detach(going);
            usb.attach(makeUsbDevice(4, 1));
            usb.mNotifier->onEvent(9, 1);
        }
    };
    const auto client = connectedClient();
    mTold.take();
    isConnected = true;
    usb.attach(makeUsbDevice(3, 1));
    ASSERT_TRUE(mTold.waitFor("usb event 9 1"));
    EXPECT_THAT(mTold.texts(), ElementsAre("usb 3", "no usb 2", "usb 4", "usb event 9 1"));
    EXPECT_EQ(3U, client->usbDevices().size());
    // For the arrival while it was read, the list is read once more, and then no more: each time twice, which
    // is eight questions about three devices.
    ASSERT_TRUE(comesToHold([&questions] { return questions >= 16; }));
    for (int fence = 100; fence < 110; ++fence) {
        usb.mNotifier->onEvent(fence, 0);
        ASSERT_TRUE(mTold.waitFor("usb event " + std::to_string(fence) + " 0"));
    }
    EXPECT_EQ(16, questions);
    EXPECT_EQ(14U, mTold.texts().size());
}

TEST_F(ClientTest, ARestartOfTheUsbManagerWhileItsListIsReadLeavesNoDeviceOfBefore) {
    const auto former = makeUsbDevice(1, 1);
    FakeUsb& usb = *mDaemon->mUsb;
    usb.mList.insert(former);
    std::atomic<int> questions{0};
    usb.mList.mOnQuestion = [&] {
        // The two readings of one are over with the fourth question, but for the answer to it.
        if (++questions == 4) {
            const auto next = makeUsbDevice(2, 1);
            usb.mHostNotifier->onUsbDeviceAttached(next);
        }
        if (questions == 5) {
            usb.mList.clear();
            usb.mList.insert(makeUsbDevice(2, 1));
        }
    };
    const auto client = connectedClient();
    ASSERT_TRUE(mTold.waitFor("no usb 1"));
    EXPECT_THAT(mTold.changes(), ElementsAre("usb 1", "usb 2", "no usb 1"));
}

TEST_F(ClientTest, ADaemonThatDiesWhileItsListIsReadAgainTellsNoDepartures) {
    mDaemon->mUsb->mList.insert(makeUsbDevice(1, 1));
    std::atomic<bool> isConnected{false};
    FakeDaemon& dying = *mDaemon;
    dying.mUsb->mList.mOnQuestion = [this, &isConnected, &dying] {
        if (isConnected.exchange(false)) {
            mSurroundings.withdrawAll();
            dying.die();
        }
    };
    const auto client = connectedClient();
    isConnected = true;
    dying.mUsb->attach(makeUsbDevice(2, 1));
    ASSERT_TRUE(mTold.waitFor("disconnected UsbManager"));
    EXPECT_THAT(mTold.changes(), ElementsAre("usb 1", "usb 2"));
    EXPECT_EQ(2U, client->usbDevices().size());
}

TEST_F(ClientTest, DoesNotConnectToMoreThanTheApplicationKeepsUpWith) {
    constexpr size_t kVolumes = EventBacklog::kLimit + 44;
    Gate begun;
    Gate gate;
    std::atomic<size_t> told{0};
    Events events;
    events.volumeAdded = [&](const auto&) {
        begun.open();
        gate.pass();
        ++told;
    };
    mSurroundings.publish(*mDaemon);
    Client client(mSurroundings.environment());
    ASSERT_EQ(OK, client.start(events, fast()));
    ASSERT_TRUE(client.waitUntilConnected(kLimit));
    for (size_t i = 0; i < kVolumes; ++i) {
        mDaemon->mVolumes->add(makeVolume("sda" + std::to_string(i)));
    }
    ASSERT_TRUE(begun.pass());
    FakeDaemon next;
    std::atomic<size_t> toldBefore{0};
    next.mUsb->mList.mOnQuestion = [&, done = false]() mutable {
        if (!std::exchange(done, true)) {
            toldBefore = told.load();
        }
    };
    mSurroundings.publish("UsbManager", next.mUsbService.remote);
    mDaemon->mUsbService.remote->die();
    gate.open();
    ASSERT_TRUE(comesToHold([&client] { return client.isConnected(Service::kUsbManager); }));
    EXPECT_GE(toldBefore, kVolumes - EventBacklog::kLimit);
}

TEST_F(ClientTest, ANoticeThatComesAfterTheDaemonsDeathIsIgnored) {
    const auto client = connectedClient();
    restart(std::make_unique<FakeDaemon>());
    FakeDaemon& dead = *mFormer.back();
    dead.mVolumes->add(makeVolume("sda1"));
    dead.mUsb->attach(makeUsbDevice(1, 0));
    dead.mUsb->mNotifier->onEvent(1, 1);
    dead.mDevices->add(makeDevice("/devices/sda"));
    ASSERT_TRUE(mTold.waitFor("disconnected UsbManager"));
    ASSERT_TRUE(client->waitUntilConnected(kLimit));
    dead.mUsb->attach(makeUsbDevice(2, 0));
    mDaemon->mUsb->mNotifier->onEvent(99, 0);
    ASSERT_TRUE(mTold.waitFor("usb event 99 0"));
    EXPECT_THAT(mTold.changes(), ElementsAre("usb event 99 0"));
}

TEST_F(ClientTest, ADaemonThatDiesWhileItsListIsReadTellsNoDepartures) {
    mDaemon->mVolumes->mList.insert(makeVolume("sda1"));
    const auto client = connectedClient();
    mTold.take();
    auto next = std::make_unique<FakeDaemon>();
    FakeDaemon& dying = *next;
    next->mVolumes->mList.mOnQuestion = [this, &dying] {
        mSurroundings.withdrawAll();
        dying.die();
    };
    restart(std::move(next));
    ASSERT_TRUE(mTold.waitFor("disconnected VolumeManager"));
    ASSERT_TRUE(comesToHold([&dying] { return !dying.mVolumeService.remote->isBinderAlive(); }));

    auto third = std::make_unique<FakeDaemon>();
    third->mVolumes->mList.insert(makeVolume("sda1"));
    mFormer.push_back(std::move(mDaemon));
    mDaemon = std::move(third);
    mSurroundings.publish(*mDaemon);
    ASSERT_TRUE(client->waitUntilConnected(kLimit));
    EXPECT_THAT(mTold.changes(), IsEmpty());
    EXPECT_EQ(1U, client->volumes().size());
}

TEST_F(ClientTest, ADeathThatIsToldBeforeTheRegistrationIsOverIsNotMissed) {
    // Of every service in turn: it dies as soon as it is asked for anything.
    for (const uint32_t round : {0, 1, 2}) {
        auto daemon = std::make_unique<FakeDaemon>();
        FakeDaemon& dying = *daemon;
        const sp<LoopbackBinder> services[] = {dying.mDeviceService.remote, dying.mVolumeService.remote,
                                               dying.mUsbService.remote};
        const sp<LoopbackBinder>& service = services[round];
        service->onRequest([this, &dying](uint32_t, const android::Parcel&) {
            mSurroundings.withdrawAll();
            dying.die();
        });
        mSurroundings.publish(dying);
        const auto client = newClient();
        ASSERT_EQ(OK, client->start(mTold.events(), fast()));
        ASSERT_TRUE(comesToHold([&service] { return !service->isBinderAlive(); }));
        const FakeDaemon next;
        mSurroundings.publish(next);
        EXPECT_TRUE(client->waitUntilConnected(kLimit)) << round;
        mFormer.push_back(std::move(daemon));
    }
}

TEST_F(ClientTest, ASecondClientIsRefusedAndTheDaemonLives) {
    const auto first = connectedClient();
    EXPECT_EQ(ALREADY_EXISTS, first->start(Events(), fast()));
    {
        LogCapture log;
        Client second(mSurroundings.environment());
        EXPECT_EQ(ALREADY_EXISTS, second.start(mTold.events(), fast()));
        EXPECT_FALSE(second.waitUntilConnected(kLimit));
        EXPECT_EQ(1U, log.count([](const LogLine& line) {
            return line.tag == "Client" && line.text == "a client of this process is started already";
        }));
    }
    // The refused one takes nothing back at its end.
    mDaemon->mUsb->attach(makeUsbDevice(1, 0));
    EXPECT_TRUE(mTold.waitFor("usb 1"));
    EXPECT_THAT(registrationsOf(*mDaemon),
                ElementsAre("device 1 -0", "volume 1 -0", "usb 1 -0", "host 1 -0"));
}

TEST_F(ClientTest, ALaterClientOfTheProcessTakesOver) {
    connectedClient().reset();
    // The daemon keeps a host notifier until its process ends: a second one would end the daemon.
    EXPECT_THAT(registrationsOf(*mDaemon),
                ElementsAre("device 1 -1", "volume 1 -1", "usb 1 -1", "host 1 -0"));
    mDaemon->mUsb->attach(makeUsbDevice(1, 0));
    mTold.take();
    const auto second = connectedClient();
    EXPECT_THAT(registrationsOf(*mDaemon),
                ElementsAre("device 2 -1", "volume 2 -1", "usb 2 -1", "host 1 -0"));
    mDaemon->mUsb->attach(makeUsbDevice(2, 0));
    ASSERT_TRUE(mTold.waitFor("usb 2"));
    EXPECT_THAT(mTold.changes(), ElementsAre("usb 1", "usb 2"));

    // Another daemon is another matter.
    restart(std::make_unique<FakeDaemon>());
    ASSERT_TRUE(mTold.waitFor("disconnected UsbManager"));
    ASSERT_TRUE(second->waitUntilConnected(kLimit));
    EXPECT_THAT(registrationsOf(*mDaemon),
                ElementsAre("device 1 -0", "volume 1 -0", "usb 1 -0", "host 1 -0"));
    mDaemon->mUsb->attach(makeUsbDevice(3, 0));
    EXPECT_TRUE(mTold.waitFor("usb 3"));
}

TEST_F(ClientTest, ADeadDaemonIsNotAskedToForget) {
    auto client = connectedClient();
    mSurroundings.withdrawAll();
    mDaemon->die();
    client.reset();
    EXPECT_THAT(registrationsOf(*mDaemon),
                ElementsAre("device 1 -0", "volume 1 -0", "usb 1 -0", "host 1 -0"));
}

TEST_F(ClientTest, LeavesAloneWhatItIsNotAskedFor) {
    mSurroundings.publish(*mDaemon);
    auto client = newClient();
    ASSERT_EQ(OK, client->start(mTold.events(), fast(static_cast<uint32_t>(Service::kVolumeManager))));
    ASSERT_TRUE(client->waitUntilConnected(kLimit));
    EXPECT_EQ(nullptr, client->usbManager());
    EXPECT_FALSE(client->isConnected(Service::kUsbManager));
    client.reset();
    EXPECT_THAT(registrationsOf(*mDaemon),
                ElementsAre("device 0 -0", "volume 1 -1", "usb 0 -0", "host 0 -0"));
}

TEST_F(ClientTest, RefusesOptionsOutOfRange) {
    Client client(mSurroundings.environment());
    EXPECT_EQ(BAD_VALUE, client.start(Events(), fast(0)));
    EXPECT_EQ(BAD_VALUE, client.start(Events(), fast(8)));
    Options options;
    options.retryInterval = std::chrono::milliseconds(0);
    EXPECT_EQ(BAD_VALUE, client.start(Events(), options));
    options.retryInterval = std::chrono::hours(25);
    EXPECT_EQ(BAD_VALUE, client.start(Events(), options));
    EXPECT_EQ(OK, client.start(Events(), fast()));
}

TEST_F(ClientTest, AClientThatWasNeverStartedKnowsNothing) {
    const Client client(mSurroundings.environment());
    EXPECT_THAT(client.volumes(), IsEmpty());
    EXPECT_EQ(nullptr, client.volumeManager());
    EXPECT_FALSE(client.isConnected(Service::kVolumeManager));
}

TEST_F(ClientTest, OneServiceMayComeBackWhileTheOthersStay) {
    const auto client = connectedClient();
    mTold.take();
    const FakeDaemon other;
    mSurroundings.publish("VolumeManager", other.mVolumeService.remote);
    mDaemon->mVolumeService.remote->die();
    ASSERT_TRUE(mTold.waitFor("connected VolumeManager"));
    ASSERT_TRUE(client->waitUntilConnected(kLimit));
    EXPECT_THAT(mTold.texts(), ElementsAre("disconnected VolumeManager", "connected VolumeManager"));
}

TEST_F(ClientTest, ACallBackMayCallEverything) {
    mDaemon->mUsb->mList.insert(makeUsbDevice(1, 0));
    mDaemon->mVolumes->mList.insert(makeVolume("sda1"));
    mSurroundings.publish(*mDaemon);
    Client client(mSurroundings.environment());
    Gate told;
    Events events = mTold.events();
    events.usbDeviceAttached = [&](const sp<usb::UsbDeviceItf>& device) {
        // In the picture already; and the daemon may be asked anything.
        EXPECT_EQ(1U, client.usbDevices().size());
        EXPECT_EQ(device, client.usbDevices()[0]);
        EXPECT_EQ(1, client.usbManager()->getUsbDeviceCount());
        EXPECT_EQ(1U, client.devices().size() + client.usbDevices().size());
        // Not all is told yet, and it cannot be while this runs: does not wait.
        EXPECT_FALSE(client.waitUntilConnected(kLimit));
        EXPECT_FALSE(client.isConnected(Service::kUsbManager));
        EXPECT_EQ(ALREADY_EXISTS, client.start(Events(), fast()));
        // A call that has the daemon tell this client something before it answers.
        mDaemon->mVolumes->add(makeVolume("sdb1"));
        told.open();
    };
    ASSERT_EQ(OK, client.start(events, fast()));
    EXPECT_TRUE(told.pass());
    EXPECT_TRUE(client.waitUntilConnected(kLimit));
    EXPECT_TRUE(mTold.waitFor("volume sdb1 /mnt/sdb1"));
    EXPECT_TRUE(client.isConnected(Service::kUsbManager));
}

TEST_F(ClientTest, ThePictureIsCompleteWhenItSaysSo) {
    mDaemon->mVolumes->mList.insert(makeVolume("sda1"));
    mSurroundings.publish(*mDaemon);
    Client client(mSurroundings.environment());
    Events events;
    events.connected = [&](Service) {
        EXPECT_FALSE(client.isConnected(Service::kVolumeManager));
        mTold.note("connected");
    };
    events.volumeAdded = [this](const auto&) { mTold.note("volume"); };
    events.pictureComplete = [&](Service service) {
        EXPECT_EQ(Service::kVolumeManager, service);
        EXPECT_TRUE(client.isConnected(service));
        EXPECT_TRUE(client.waitUntilConnected(kLimit));
        EXPECT_EQ(1U, client.volumes().size());
        mTold.note("complete");
    };
    ASSERT_EQ(OK, client.start(events, fast(static_cast<uint32_t>(Service::kVolumeManager))));
    ASSERT_TRUE(mTold.waitFor("complete"));
    EXPECT_THAT(mTold.texts(), ElementsAre("connected", "volume", "complete"));
}

TEST_F(ClientTest, ConnectedMeansTold) {
    mDaemon->mVolumes->mList.insert(makeVolume("sda1"));
    mSurroundings.publish(*mDaemon);
    Gate begun;
    Gate gate;
    Events events;
    events.volumeAdded = [&](const auto&) {
        begun.open();
        gate.pass();
    };
    Client client(mSurroundings.environment());
    ASSERT_EQ(OK, client.start(events, fast()));
    ASSERT_TRUE(begun.pass());
    EXPECT_FALSE(client.waitUntilConnected(std::chrono::milliseconds(20)));
    gate.open();
    EXPECT_TRUE(client.waitUntilConnected(kLimit));
}

TEST_F(ClientTest, ASlowCallBackDelaysNobodyAndIsCaughtUpWith) {
    Gate gate;
    std::mutex lock;
    std::vector<std::string> told;
    Events events;
    events.volumeAdded = [&](const sp<volume::VolumeItf>& volume) {
        gate.pass();
        const std::lock_guard<std::mutex> hold(lock);
        told.push_back("+" + std::string(volume->getName().string()));
    };
    events.volumeRemoved = [&](const sp<volume::VolumeItf>& volume) {
        const std::lock_guard<std::mutex> hold(lock);
        told.push_back("-" + std::string(volume->getName().string()));
    };
    mSurroundings.publish(*mDaemon);
    Client client(mSurroundings.environment());
    ASSERT_EQ(OK, client.start(events, fast()));
    ASSERT_TRUE(client.waitUntilConnected(kLimit));
    // Returns each time although the call-back holds the first of them.
    for (int i = 0; i < 2000; ++i) {
        const auto volume = makeVolume("sda" + std::to_string(i));
        mDaemon->mVolumes->add(volume);
        mDaemon->mVolumes->remove(volume);
    }
    mDaemon->mVolumes->add(makeVolume("last"));
    gate.open();
    ASSERT_TRUE(comesToHold([&] {
        const std::lock_guard<std::mutex> hold(lock);
        return !told.empty() && told.back() == "+last";
    }));
    const std::lock_guard<std::mutex> hold(lock);
    EXPECT_LE(told.size(), client::EventBacklog::kLimit + 4);
    EXPECT_EQ(
        std::count_if(told.begin(), told.end(), [](const std::string& text) { return text[0] == '+'; }),
        std::count_if(told.begin(), told.end(), [](const std::string& text) { return text[0] == '-'; }) + 1);
    EXPECT_EQ(1U, client.volumes().size());
}

TEST_F(ClientTest, ACallBackThatIsEmptyCostsNothing) {
    mSurroundings.publish(*mDaemon);
    Client client(mSurroundings.environment());
    ASSERT_EQ(OK, client.start(Events(), fast()));
    ASSERT_TRUE(client.waitUntilConnected(kLimit));
    mDaemon->mVolumes->add(makeVolume("sda1"));
    mDaemon->mUsb->mNotifier->onEvent(1, 2);
    ASSERT_TRUE(comesToHold([&client] { return client.volumes().size() == 1; }));
    mDaemon->die();
    EXPECT_TRUE(comesToHold([&client] { return !client.isConnected(Service::kVolumeManager); }));
}

TEST_F(ClientTest, ItsEndWaitsForTheCallBackThatRuns) {
    Gate begun;
    Gate gate;
    std::atomic<bool> isOver{false};
    Events events;
    events.volumeAdded = [&](const auto&) {
        begun.open();
        gate.pass();
        isOver = true;
    };
    mSurroundings.publish(*mDaemon);
    auto client = newClient();
    ASSERT_EQ(OK, client->start(events, fast()));
    mDaemon->mVolumes->add(makeVolume("sda1"));
    mDaemon->mVolumes->add(makeVolume("sdb1"));
    // The volume that was listed first, or told first, holds the thread.
    ASSERT_TRUE(begun.pass());
    std::thread opener([&gate] { gate.open(); });
    client.reset();
    EXPECT_TRUE(isOver);
    opener.join();
    EXPECT_TRUE(comesToHold([] { return threadsNamed("DeviceClient") == 0; }));
}

TEST_F(ClientTest, MayBeDestroyedInItsOwnCallBack) {
    mSurroundings.publish(*mDaemon);
    auto held = std::make_shared<int>(7);
    const std::weak_ptr<int> watched = held;
    std::unique_ptr<Client> client = newClient();
    std::atomic<int> calls{0};
    Gate destroyed;
    Events events;
    events.volumeAdded = [&, held](const sp<volume::VolumeItf>& volume) {
        ++calls;
        client.reset();
        // What the call-back holds and was given is still there.
        EXPECT_EQ(7, *held);
        EXPECT_STREQ("sda1", volume->getName().string());
        destroyed.open();
    };
    held.reset();
    ASSERT_EQ(OK, client->start(events, fast()));
    ASSERT_TRUE(client->waitUntilConnected(kLimit));
    events = Events();
    mDaemon->mVolumes->add(makeVolume("sda1"));
    ASSERT_TRUE(destroyed.pass());
    mDaemon->mVolumes->add(makeVolume("sdb1"));
    EXPECT_TRUE(comesToHold([&watched] { return watched.expired(); }));
    EXPECT_EQ(1, calls);
    EXPECT_THAT(registrationsOf(*mDaemon),
                ElementsAre("device 1 -1", "volume 1 -1", "usb 1 -1", "host 1 -0"));
    EXPECT_TRUE(comesToHold([] { return threadsNamed("DeviceClient") == 0; }));

    const auto next = connectedClient();
    EXPECT_TRUE(mTold.waitFor("volume sdb1 /mnt/sdb1"));
}

TEST_F(ClientTest, IsReplacedInItsOwnCallBack) {
    mSurroundings.publish(*mDaemon);
    std::unique_ptr<Client> client = newClient();
    Gate replaced;
    Events events;
    events.usbEvent = [&](int32_t, int32_t) {
        client = newClient();
        EXPECT_EQ(OK, client->start(mTold.events(), fast()));
        replaced.open();
    };
    ASSERT_EQ(OK, client->start(events, fast()));
    ASSERT_TRUE(client->waitUntilConnected(kLimit));
    mDaemon->mUsb->mNotifier->onEvent(1, 1);
    ASSERT_TRUE(replaced.pass());
    EXPECT_TRUE(client->waitUntilConnected(kLimit));
}

TEST_F(ClientTest, NothingIsToldAfterItsEndWhateverComes) {
    mSurroundings.publish(*mDaemon);
    std::atomic<bool> isOver{false};
    std::atomic<int> told{0};
    std::thread storm([this, &isOver] {
        while (!isOver) {
            const auto volume = makeVolume("sda1");
            mDaemon->mVolumes->add(volume);
            const auto device = makeUsbDevice(1, 0);
            mDaemon->mUsb->attach(device);
            mDaemon->mUsb->mNotifier->onEvent(1, 1);
            mDaemon->mUsb->detach(device);
            mDaemon->mVolumes->remove(volume);
        }
    });
    for (int round = 0; round < 20; ++round) {
        const auto mayBeTold = std::make_shared<std::atomic<bool>>(true);
        const std::weak_ptr<std::atomic<bool>> watched = mayBeTold;
        const int before = told;
        Events events;
        events.volumeAdded = [&told, mayBeTold](const auto&) {
            EXPECT_TRUE(*mayBeTold);
            ++told;
        };
        events.usbDeviceDetached =
            events.usbDeviceAttached = [mayBeTold](const auto&) { EXPECT_TRUE(*mayBeTold); };
        auto client = newClient();
        ASSERT_EQ(OK, client->start(std::move(events), fast()));
        EXPECT_TRUE(comesToHold([&told, before] { return told > before; }));
        client.reset();
        *mayBeTold = false;
        // Nothing of the events is left anywhere.
        EXPECT_EQ(1, watched.use_count());
    }
    isOver = true;
    storm.join();
}

TEST_F(ClientTest, FollowsADaemonThatKeepsDying) {
    // Volumes come and go and daemons die without pause; what is told fits together, and ends right.
    std::mutex lock;
    std::vector<std::string> there;
    std::atomic<int> changes{0};
    Events events;
    events.volumeAdded = [&](const sp<volume::VolumeItf>& volume) {
        const std::lock_guard<std::mutex> hold(lock);
        ++changes;
        EXPECT_EQ(0, std::count(there.begin(), there.end(), volume->getName().string())) << "told twice";
        there.emplace_back(volume->getName().string());
    };
    events.volumeRemoved = [&](const sp<volume::VolumeItf>& volume) {
        const std::lock_guard<std::mutex> hold(lock);
        const auto found = std::find(there.begin(), there.end(), volume->getName().string());
        ASSERT_NE(there.end(), found) << "never came";
        there.erase(found);
    };
    mSurroundings.publish(*mDaemon);
    Client client(mSurroundings.environment());
    ASSERT_EQ(OK, client.start(events, fast()));
    for (int life = 0; life < 30; ++life) {
        for (int i = 0; i < 20; ++i) {
            const auto volume = makeVolume("sd" + std::to_string(i % 7), std::to_string(i % 3));
            mDaemon->mVolumes->add(volume);
            mDaemon->mVolumes->remove(volume);
        }
        for (int i = 0; i < life % 4; ++i) {
            mDaemon->mVolumes->add(makeVolume("sd" + std::to_string(i)));
        }
        if (life % 5 == 0) {
            ASSERT_TRUE(client.waitUntilConnected(kLimit));
        }
        restart(std::make_unique<FakeDaemon>());
    }
    mDaemon->mVolumes->add(makeVolume("marker"));
    ASSERT_TRUE(comesToHold([&] {
        const std::lock_guard<std::mutex> hold(lock);
        return there == std::vector<std::string>{"marker"};
    }));
    EXPECT_GT(changes, 0);
    EXPECT_TRUE(client.waitUntilConnected(kLimit));
    EXPECT_EQ(1U, client.volumes().size());
}
