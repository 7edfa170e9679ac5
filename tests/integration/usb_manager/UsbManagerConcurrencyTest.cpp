// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The USB manager's core under several threads at once, and in an order that nobody plans.
 */
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vx_vendor_data.h>

#include <atomic>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "common/Uevent.h"
#include "tests/integration/usb_manager/AttributeBed.h"
#include "tests/integration/usb_manager/UsbRecorders.h"
#include "tests/support/UeventInjector.h"
#include "tests/unit/support/LogCapture.h"
#include "usb/UsbManagerImpl.h"

using android::sp;
using android::String16;
using android::String8;
using android::Vector;
using ::testing::IsEmpty;
using usb::UsbManagerImpl;

namespace {

constexpr int kModeItem = 173;

std::vector<std::string> accessoryWrites() {
    return {"/sys/class/android_usb/android0/enable=0\n", "/sys/class/android_usb/android0/functions=eap",
            "/sys/module/usbcore/parameters/apple_role=1\n", "/sys/class/android_usb/android0/enable=1\n"};
}

/** With the state in the test's hands. */
class Manager : public UsbManagerImpl {
  public:
    using UsbManagerImpl::setState;
    using UsbManagerImpl::state;
    using UsbManagerImpl::UsbManagerImpl;
};

/** Remembers the paths of all uevents. */
class Fence : public UeventObserverNotifier, public Remembered {
  public:
    int onUevent(const sp<Uevent>& event) override {
        note(event->getPath());
        return 0;
    }
};

class UsbManagerConcurrencyTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ("", mAttributes.problem());
        ASSERT_EQ(0, mInjector.open());
        store('O');
        mUevents = new UeventObserver();
        mUevents->registerNotifier(mFence);
        mUevents->start();
        make();
    }

    void TearDown() override {
        if (mManager != nullptr && mManager->state() == 1) {
            mManager->shutdown();
        }
        if (mUevents != nullptr) {
            mUevents->stop();
        }
    }

    static void store(char mode) { ASSERT_EQ(0, vx_vendor_data_write_string(&mode, kModeItem, 1)); }

    void make() {
        mManager = new Manager(mUevents);
        mManager->setNotifier(mEvents);
        mManager->setHostNotifier(mHost);
        mAttributes.take();
    }

    /** Sends a uevent and waits until all notifiers have had it. */
    void inject(const std::string& action, const std::string& subsystem) {
        ASSERT_EQ(0, mInjector.send(action, "/devices/x", subsystem));
        // The second one begins when the round of the first, and so of the one before it, is over.
        for (int i = 0; i < 2; ++i) {
            const std::string path = "/devices/fence" + std::to_string(++mFences);
            ASSERT_EQ(0, mInjector.send("change", path, "fence"));
            ASSERT_TRUE(mFence->waitFor(path));
        }
    }

    LogCapture mLog;
    AttributeBed mAttributes;
    UeventInjector mInjector;
    int mFences = 0;
    sp<Fence> mFence = new Fence();
    sp<EventMemory> mEvents = new EventMemory();
    sp<HostMemory> mHost = new HostMemory();
    sp<UeventObserver> mUevents;
    sp<Manager> mManager;
};

}  // namespace

TEST_F(UsbManagerConcurrencyTest, ASlowShellHoldsUpNobodyElse) {
    mAttributes.block("/sys/class/android_usb/android0/functions");
    auto slow = std::async(std::launch::async, [this] { return mManager->switchUsbState(1); });
    ASSERT_TRUE(mAttributes.waitForOpen("/sys/class/android_usb/android0/functions"));

    // Each would wait for ever if it needed what the shell holds up.
    EXPECT_EQ(0, mManager->startup());
    EXPECT_EQ(0, mManager->getUsbDeviceCount());
    EXPECT_EQ(nullptr, mManager->queryUsbDevice(0));
    String8 text;
    EXPECT_EQ(0, mManager->dump(Vector<String16>(), text));
    EXPECT_EQ(0, mManager->configDefaultMode(2, true));
    EXPECT_EQ(79, mManager->getCertificationMode());
    inject("add", "usb");
    EXPECT_EQ(0, mManager->shutdown());

    mAttributes.release("/sys/class/android_usb/android0/functions");
    EXPECT_EQ(0, slow.get());
}

TEST_F(UsbManagerConcurrencyTest, StartsAndStopsOfManyThreadsDoNotMix) {
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this, i] {
            for (int round = 0; round < 2; ++round) {
                if (i % 2 == 0) {
                    mManager->startup();
                } else {
                    mManager->shutdown();
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    mManager->shutdown();
    EXPECT_EQ(0, mManager->state());
    EXPECT_TRUE(eventually([] { return countThreads("UsbManagerQueue") == 0; }));
}

TEST_F(UsbManagerConcurrencyTest, GoesWhileUeventsCome) {
    std::atomic<bool> over{false};
    std::thread sender([this, &over] {
        // Few at a time: the socket holds them, however slowly they are read.
        for (int batch = 0; !over; ++batch) {
            for (int i = 0; i < 20; ++i) {
                EXPECT_EQ(0, mInjector.send("add", "/devices/x", "apple"));
            }
            const std::string last = "/devices/batch" + std::to_string(batch);
            EXPECT_EQ(0, mInjector.send("add", last, "apple"));
            EXPECT_TRUE(mFence->waitFor(last));
        }
    });
    for (int round = 0; round < 20; ++round) {
        mManager.clear();
        mManager = new Manager(mUevents);
    }
    over = true;
    sender.join();
    mManager.clear();
}

TEST_F(UsbManagerConcurrencyTest, APendingFunctionOutlivesAStop) {
    mManager->startup();
    inject("add", "apple");
    mManager->switchUsbState(1);
    mManager->shutdown();
    mAttributes.take();
    inject("remove", "apple");
    EXPECT_EQ(accessoryWrites(), mAttributes.take());
}

TEST_F(UsbManagerConcurrencyTest, ARequestForWhatIsSetUpTakesThePendingOneBack) {
    mManager->switchUsbState(1);
    mManager->startup();
    inject("add", "apple");
    mAttributes.take();
    mManager->switchUsbState(0);
    mManager->switchUsbState(1);
    inject("remove", "apple");
    EXPECT_THAT(mAttributes.take(), IsEmpty());
}

TEST_F(UsbManagerConcurrencyTest, ATestMessageOutsideARunIsDropped) {
    store('T');
    mManager.clear();
    make();
    store('O');
    EXPECT_EQ(0, mManager->postTestMessage(9));
    mManager->startup();
    EXPECT_EQ(1, countThreads("UsbTestQueue"));
    mManager->shutdown();
    EXPECT_EQ(0, mManager->postTestMessage(9));
    EXPECT_TRUE(eventually([] { return countThreads("UsbTestQueue") == 0; }));
}
