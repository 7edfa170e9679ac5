// SPDX-License-Identifier: Apache-2.0
#include "volume/VolumeManagerImpl.h"

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/common/ThreadProbe.h"
#include "tests/unit/device/FakeUevents.h"
#include "tests/unit/support/LogCapture.h"
#include "tests/unit/support/ManagerTransitions.h"
#include "tests/unit/volume/VolumeRecorder.h"
#include "volume/VolumeManagerDetectorNotifier.h"
#include "volume/VolumeManagerMessageHandler.h"

using android::Message;
using android::sp;
using android::String16;
using android::String8;
using android::Vector;
using android::wp;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using volume::Volume;
using volume::VolumeManagerDetectorNotifier;
using volume::VolumeManagerImpl;

namespace {

constexpr const char* kTag = "VolumeManagerImpl";

/** With the state in the test's hands. */
class Manager : public VolumeManagerImpl {
  public:
    using VolumeManagerImpl::setState;
    using VolumeManagerImpl::state;
    using VolumeManagerImpl::VolumeManagerImpl;
};

class VolumeManagerImplTest : public ::testing::Test {
  protected:
    ~VolumeManagerImplTest() override { mManager.clear(); }

    LogCapture mLog;
    FakeUevents mUevents;
    sp<Manager> mManager = new Manager(mUevents.observer());
    sp<VolumeRecorder> mRecorder = new VolumeRecorder();
};

}  // namespace

TEST_F(VolumeManagerImplTest, LogsRepeatedTransitions) {
    expectRepeatedTransitionsLogged(*mManager, mLog, kTag);
}

TEST_F(VolumeManagerImplTest, LogsAnImpossibleState) {
    expectImpossibleStateLogged(*mManager, mLog, kTag);
}

TEST_F(VolumeManagerImplTest, RunsItsThreadsWhileStarted) {
    for (int i = 0; i < 3; ++i) {
        mManager->startup();
        for (const char* thread : {"VolumeManagerQu", "VolumeDetectorQ", "ObserverThread"}) {
            EXPECT_TRUE(eventually([&] { return countThreads(thread) == 1; })) << thread;
        }
        mManager->shutdown();
        for (const char* thread : {"VolumeManagerQu", "VolumeDetectorQ", "ObserverThread"}) {
            EXPECT_TRUE(eventually([&] { return countThreads(thread) == 0; })) << thread;
        }
    }
}

TEST_F(VolumeManagerImplTest, DumpsOneLineWhateverTheArguments) {
    Vector<String16> arguments;
    String8 text("before ");
    EXPECT_EQ(0, mManager->dump(arguments, text));
    EXPECT_EQ(String8("before dump volume sample\n"), text);
    arguments.add(String16("notifier"));
    arguments.add(String16("x"));
    text = String8();
    EXPECT_EQ(0, mManager->dump(arguments, text));
    EXPECT_EQ(String8("dump volume sample\n"), text);
}

TEST_F(VolumeManagerImplTest, AnswersWithoutVolumes) {
    EXPECT_EQ(0, mManager->getVolumeCount());
    EXPECT_EQ(String8("unknown"), mManager->queryVolume(0)->getName());
    EXPECT_EQ(String8("unknown"), mManager->queryVolume(-1)->getName());
}

TEST_F(VolumeManagerImplTest, PassesReportsOnWhileThereIsANotifier) {
    const sp<VolumeManagerDetectorNotifier> reports = new VolumeManagerDetectorNotifier(mManager);
    const sp<Volume> volume = new Volume();
    volume->setName(String8("sda1"));
    reports->onVolumeAttached(volume);
    EXPECT_EQ(0, mManager->setNotifier(mRecorder));
    reports->onVolumeAttached(volume);
    reports->onVolumeDetached(volume);
    EXPECT_THAT(mRecorder->calls(), ElementsAre("added sda1", "removed sda1"));
    EXPECT_EQ(volume, mRecorder->lastVolume());
    mManager.clear();
    reports->onVolumeAttached(volume);
    EXPECT_EQ(2U, mRecorder->calls().size());
}

TEST_F(VolumeManagerImplTest, ItsQueueLogsWhatComes) {
    const sp<volume::VolumeManagerMessageHandler> handler = new volume::VolumeManagerMessageHandler(mManager);
    handler->handleMessage(Message(12));
    EXPECT_THAT(mLog.take(kTag), ElementsAre(LogLine{ANDROID_LOG_INFO, kTag, "message [12]"}));
}

TEST_F(VolumeManagerImplTest, GoesWithItsThreadsAndNotifiers) {
    mManager->setNotifier(mRecorder);
    mManager->startup();
    const wp<Manager> manager = mManager;
    const wp<VolumeRecorder> recorder = mRecorder;
    mRecorder.clear();
    // Still started: its threads must not keep it.
    mManager.clear();
    EXPECT_EQ(nullptr, manager.promote());
    EXPECT_EQ(nullptr, recorder.promote());
    EXPECT_TRUE(eventually([] { return countThreads("VolumeDetectorQ") == 0; }));
}
