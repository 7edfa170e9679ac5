// SPDX-License-Identifier: Apache-2.0
#include "device/DeviceObserver.h"

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/device/FakeUevents.h"
#include "tests/unit/support/LogCapture.h"

using android::sp;
using android::String8;
using android::wp;
using device::DeviceItf;
using device::DeviceObserver;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class Listener : public device::DeviceObserverNotifierItf {
  public:
    void onAdd(const sp<DeviceItf>& device) override { mAdded.push_back(device); }
    void onRemove(const sp<DeviceItf>& device) override { mRemoved.push_back(device); }

    std::vector<sp<DeviceItf>> mAdded;
    std::vector<sp<DeviceItf>> mRemoved;
};

class DeviceObserverTest : public ::testing::Test {
  protected:
    void event(const std::string& action, const std::string& subsystem,
               const std::vector<std::string>& properties = {}) {
        mUevents.send(action, "/devices/x", subsystem, properties);
        mUevents.pump();
    }

    LogCapture mLog;
    FakeUevents mUevents;
    sp<DeviceObserver> mObserver = new DeviceObserver(mUevents.observer());
    sp<Listener> mListener = new Listener();
};

}  // namespace

TEST_F(DeviceObserverTest, BuildsADeviceFromAnAddUevent) {
    mObserver->add(String8("usb"), mListener);
    event("add", "usb", {"SEQNUM=7", "DEVTYPE=usb_device"});
    ASSERT_EQ(1U, mListener->mAdded.size());
    EXPECT_THAT(mListener->mRemoved, IsEmpty());
    const sp<DeviceItf> device = mListener->mAdded[0];
    EXPECT_EQ(String8("/devices/x"), device->getPath());
    EXPECT_EQ(String8("usb"), device->getSubsystem());
    ASSERT_EQ(2U, device->getParamSize());
    EXPECT_EQ(String8("DEVPATH"), device->getParamName(0));
    EXPECT_EQ(String8("/devices/x"), device->getParamValue(0));
    EXPECT_EQ(String8("DEVTYPE"), device->getParamName(1));
    EXPECT_EQ(String8("usb_device"), device->getParamValue(1));
}

TEST_F(DeviceObserverTest, RemovalCarriesARecordOfItsOwn) {
    mObserver->add(String8("usb"), mListener);
    event("add", "usb");
    event("remove", "usb");
    ASSERT_EQ(1U, mListener->mRemoved.size());
    EXPECT_NE(mListener->mAdded[0], mListener->mRemoved[0]);
    EXPECT_EQ(mListener->mAdded[0]->getPath(), mListener->mRemoved[0]->getPath());
}

TEST_F(DeviceObserverTest, IgnoresUnregisteredSubsystems) {
    mObserver->add(String8("block"), mListener);
    event("add", "net");
    event("add", "");
    event("change", "net");
    EXPECT_THAT(mListener->mAdded, IsEmpty());
    EXPECT_THAT(mLog.take("DeviceObserver"), IsEmpty());
}

TEST_F(DeviceObserverTest, WarnsOfOtherActions) {
    mObserver->add(String8("block"), mListener);
    event("change", "block");
    event("bind", "block");
    EXPECT_THAT(mListener->mAdded, IsEmpty());
    EXPECT_THAT(mListener->mRemoved, IsEmpty());
    EXPECT_THAT(mLog.take("DeviceObserver"),
                ElementsAre(LogLine{ANDROID_LOG_WARN, "DeviceObserver", "not handle action[3]"},
                            LogLine{ANDROID_LOG_WARN, "DeviceObserver", "not handle action[0]"}));
}

TEST_F(DeviceObserverTest, SecondRegistrationReplacesTheFirst) {
    const sp<Listener> second = new Listener();
    mObserver->add(String8("block"), mListener);
    mObserver->add(String8("block"), second);
    event("add", "block");
    EXPECT_THAT(mListener->mAdded, IsEmpty());
    EXPECT_EQ(1U, second->mAdded.size());
}

TEST_F(DeviceObserverTest, RemovedSubsystemIsSilent) {
    mObserver->add(String8("block"), mListener);
    mObserver->remove(String8("block"));
    mObserver->remove(String8("never added"));
    event("add", "block");
    EXPECT_THAT(mListener->mAdded, IsEmpty());
}

TEST_F(DeviceObserverTest, StartAndStopRunTheSharedThread) {
    class Counter : public UeventObserverNotifier {
      public:
        int onUevent(const sp<Uevent>&) override {
            ++mCount;
            return 0;
        }
        std::atomic<int> mCount{0};
    };
    // Every listener of uevents hears only while the observer of devices is started.
    const sp<Counter> other = new Counter();
    mUevents.observer()->registerNotifier(other);
    mUevents.send("add", "/devices/y", "net");
    EXPECT_EQ(0, other->mCount);
    mObserver->start();
    while (other->mCount < 1) {
        usleep(1000);
    }
    mObserver->stop();
    mUevents.send("add", "/devices/y", "net");
    EXPECT_EQ(1, other->mCount);
}

TEST_F(DeviceObserverTest, GoesWithItsRegistrations) {
    mObserver->add(String8("block"), mListener);
    const wp<DeviceObserver> observer = mObserver;
    const wp<Listener> listener = mListener;
    mObserver.clear();
    mListener.clear();
    EXPECT_EQ(nullptr, observer.promote());
    EXPECT_EQ(nullptr, listener.promote());
    // Nothing is left that would be called.
    event("add", "block");
}
