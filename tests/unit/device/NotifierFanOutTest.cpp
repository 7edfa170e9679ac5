// SPDX-License-Identifier: Apache-2.0
#include "common/NotifierFanOut.h"

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "device/Device.h"
#include "device/DeviceManagerNotifierProxy.h"
#include "tests/unit/device/Recorder.h"
#include "tests/unit/support/LogCapture.h"

using android::sp;
using android::wp;
using device::Device;
using device::DeviceItf;
using device::DeviceManagerNotifierItf;
using device::DeviceManagerNotifierProxy;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr const char* kTag = "DeviceManagerNotifierProxy";

wp<DeviceManagerNotifierItf> weak(const sp<Recorder>& recorder) {
    return wp<DeviceManagerNotifierItf>(recorder);
}

sp<DeviceItf> someDevice() {
    const sp<DeviceItf> device = new Device();
    device->setPath("/devices/x");
    return device;
}

}  // namespace

TEST(NotifierFanOutTest, ReturnsZeroWithoutNotifiers) {
    const sp<DeviceManagerNotifierProxy> proxy = new DeviceManagerNotifierProxy();
    EXPECT_EQ(0, proxy->onDeviceAdded(someDevice()));
    EXPECT_EQ(0, proxy->onDeviceRemoved(someDevice()));
    EXPECT_EQ(0, proxy->onEvent(1, 2));
}

TEST(NotifierFanOutTest, PassesEveryOperationToEveryNotifier) {
    const sp<DeviceManagerNotifierProxy> proxy = new DeviceManagerNotifierProxy();
    const std::vector<sp<Recorder>> recorders = {new Recorder(), new Recorder(), new Recorder()};
    for (const sp<Recorder>& recorder : recorders) {
        proxy->addNotifier(weak(recorder));
    }
    proxy->onDeviceAdded(someDevice());
    proxy->onDeviceRemoved(someDevice());
    proxy->onEvent(3, -4);
    for (const sp<Recorder>& recorder : recorders) {
        EXPECT_THAT(recorder->calls(), ElementsAre("added /devices/x", "removed /devices/x", "event 3 -4"));
    }
}

TEST(NotifierFanOutTest, CallsInOrderOfAddressesAndReturnsTheLastResult) {
    const sp<DeviceManagerNotifierProxy> proxy = new DeviceManagerNotifierProxy();
    std::vector<int32_t> order;
    std::vector<sp<Recorder>> recorders;
    for (int32_t i = 0; i < 5; ++i) {
        recorders.push_back(new Recorder(i));
        recorders.back()->mInside = [&order, i] { order.push_back(i); };
    }
    // Registered in descending order of their addresses.
    std::sort(recorders.begin(), recorders.end(),
              [](const sp<Recorder>& a, const sp<Recorder>& b) { return a.get() > b.get(); });
    for (const sp<Recorder>& recorder : recorders) {
        proxy->addNotifier(weak(recorder));
    }
    const int32_t result = proxy->onEvent(0, 0);
    std::vector<int32_t> ascending;
    for (auto recorder = recorders.rbegin(); recorder != recorders.rend(); ++recorder) {
        (*recorder)->mInside = nullptr;
        ascending.push_back((*recorder)->onEvent(0, 0));
    }
    EXPECT_EQ(ascending, order);
    EXPECT_EQ(ascending.back(), result);
}

TEST(NotifierFanOutTest, KeepsEachNotifierOnce) {
    const sp<DeviceManagerNotifierProxy> proxy = new DeviceManagerNotifierProxy();
    const sp<Recorder> recorder = new Recorder();
    proxy->addNotifier(weak(recorder));
    proxy->addNotifier(weak(recorder));
    proxy->onEvent(1, 1);
    EXPECT_EQ(1U, recorder->calls().size());
    proxy->removeNotifier(weak(recorder));
    proxy->removeNotifier(weak(recorder));
    proxy->onEvent(1, 1);
    EXPECT_EQ(1U, recorder->calls().size());
}

TEST(NotifierFanOutTest, SkipsTheDeadButCountsThem) {
    const sp<DeviceManagerNotifierProxy> proxy = new DeviceManagerNotifierProxy();
    const sp<Recorder> lives = new Recorder(5);
    sp<Recorder> dies = new Recorder(6);
    proxy->addNotifier(weak(lives));
    proxy->addNotifier(weak(dies));
    dies.clear();
    EXPECT_EQ(5, proxy->onEvent(1, 1));
    LogCapture log;
    EXPECT_EQ(2U, proxy->size());
    EXPECT_THAT(log.take(kTag), ElementsAre(LogLine{ANDROID_LOG_INFO, kTag, "notifier size[2]"}));
}

TEST(NotifierFanOutTest, MayBeChangedFromInsideANotification) {
    const sp<DeviceManagerNotifierProxy> proxy = new DeviceManagerNotifierProxy();
    const sp<Recorder> added = new Recorder();
    const sp<Recorder> recorder = new Recorder();
    recorder->mInside = [&] {
        proxy->removeNotifier(weak(recorder));
        proxy->addNotifier(weak(added));
        EXPECT_EQ(1U, proxy->size());
    };
    proxy->addNotifier(weak(recorder));
    proxy->onEvent(1, 1);
    // Who came during a notification hears the next one.
    EXPECT_THAT(added->calls(), IsEmpty());
    proxy->onEvent(2, 2);
    EXPECT_EQ(1U, recorder->calls().size());
    EXPECT_THAT(added->calls(), ElementsAre("event 2 2"));
}

// A client that waits inside its call-back for another of its threads must not stop the service.
TEST(NotifierFanOutTest, MayBeChangedFromAThreadThatANotificationWaitsFor) {
    const sp<DeviceManagerNotifierProxy> proxy = new DeviceManagerNotifierProxy();
    const sp<Recorder> recorder = new Recorder();
    recorder->mInside = [&] {
        std::thread([&] {
            proxy->size();
            proxy->removeNotifier(weak(recorder));
        }).join();
    };
    proxy->addNotifier(weak(recorder));
    proxy->onEvent(1, 1);
    EXPECT_EQ(0U, proxy->size());
}

TEST(NotifierFanOutTest, ARemovedAndDroppedNotifierIsNotReachedAnyMore) {
    const sp<DeviceManagerNotifierProxy> proxy = new DeviceManagerNotifierProxy();
    std::vector<sp<Recorder>> recorders = {new Recorder(), new Recorder()};
    std::sort(recorders.begin(), recorders.end(),
              [](const sp<Recorder>& a, const sp<Recorder>& b) { return a.get() < b.get(); });
    int reached = 0;
    recorders[1]->mInside = [&] { ++reached; };
    recorders[0]->mInside = [&] {
        proxy->removeNotifier(weak(recorders[1]));
        recorders[1].clear();
    };
    proxy->addNotifier(weak(recorders[0]));
    proxy->addNotifier(weak(recorders[1]));
    proxy->onEvent(1, 1);
    EXPECT_EQ(0, reached);
}

// Detach must not overtake the attach that another thread is telling.
TEST(NotifierFanOutTest, MakesOneNotificationAfterTheOther) {
    const sp<DeviceManagerNotifierProxy> proxy = new DeviceManagerNotifierProxy();
    const sp<Recorder> recorder = new Recorder();
    std::atomic<int> inside{0};
    std::atomic<int> together{0};
    recorder->mInside = [&] {
        together += inside++;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
        --inside;
    };
    proxy->addNotifier(weak(recorder));
    const auto notify = [&] {
        for (int i = 0; i < 100; ++i) {
            proxy->onEvent(1, 1);
        }
    };
    std::thread other(notify);
    notify();
    other.join();
    EXPECT_EQ(0, together);
    EXPECT_EQ(200U, recorder->calls().size());
}
