// SPDX-License-Identifier: Apache-2.0
#include "common/ManagerState.h"

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "tests/unit/common/ThreadProbe.h"
#include "tests/unit/support/LogCapture.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr const char* kTag = "AnyManager";

LogLine warning(const char* text) {
    return {ANDROID_LOG_WARN, kTag, text};
}

class ManagerStateTest : public ::testing::Test {
  protected:
    static bool succeed() { return true; }

    LogCapture mLog;
    ManagerState mState{kTag};
};

}  // namespace

TEST_F(ManagerStateTest, IsStartedOnceItsStartIsDone) {
    EXPECT_EQ(ManagerState::kShutDown, mState.get());
    mState.startup([this] {
        EXPECT_EQ(ManagerState::kShutDown, mState.get());
        return true;
    });
    EXPECT_EQ(ManagerState::kStarted, mState.get());
    EXPECT_THAT(mLog.take(kTag), IsEmpty());
}

TEST_F(ManagerStateTest, IsShutDownOnceItsStopIsDone) {
    mState.startup(succeed);
    mState.shutdown([this] { EXPECT_EQ(ManagerState::kStarted, mState.get()); });
    EXPECT_EQ(ManagerState::kShutDown, mState.get());
    EXPECT_THAT(mLog.take(kTag), IsEmpty());
}

TEST_F(ManagerStateTest, AStartThatFailsMayBeRepeated) {
    mState.startup([] { return false; });
    EXPECT_EQ(ManagerState::kShutDown, mState.get());
    mState.startup(succeed);
    EXPECT_EQ(ManagerState::kStarted, mState.get());
    EXPECT_THAT(mLog.take(kTag), IsEmpty());
}

TEST_F(ManagerStateTest, DoesNothingTwice) {
    int starts = 0;
    int stops = 0;
    const auto start = [&starts] { return ++starts > 0; };
    const auto stop = [&stops] { ++stops; };
    mState.shutdown(stop);
    mState.startup(start);
    mState.startup(start);
    mState.shutdown(stop);
    mState.shutdown(stop);
    EXPECT_EQ(1, starts);
    EXPECT_EQ(1, stops);
    const LogLine noStop = warning("already shutdown, no need re-shutdown");
    EXPECT_THAT(mLog.take(kTag), ElementsAre(noStop, warning("already startup, no need re-startup"), noStop));
}

TEST_F(ManagerStateTest, AnImpossibleStateStaysWhatItIs) {
    mState.set(-2);
    mState.startup([] { return ADD_FAILURE(), true; });
    mState.shutdown([] { ADD_FAILURE(); });
    EXPECT_EQ(-2, mState.get());
    const LogLine line = {ANDROID_LOG_ERROR, kTag, "unknown state[-2], why??"};
    EXPECT_THAT(mLog.take(kTag), ElementsAre(line, line));
}

// Two clients that start a manager at once: the second one must not be told that it runs before it does.
TEST_F(ManagerStateTest, ASecondStartWaitsForTheFirst) {
    Gate starting;
    std::atomic<bool> started{false};
    std::thread first([&] {
        mState.startup([&] {
            starting.open();
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            return started = true;
        });
    });
    ASSERT_TRUE(starting.wait());
    mState.startup([] { return ADD_FAILURE(), true; });
    EXPECT_TRUE(started);
    first.join();
    EXPECT_THAT(mLog.take(kTag), ElementsAre(warning("already startup, no need re-startup")));
}

TEST_F(ManagerStateTest, AStopWaitsForTheStart) {
    Gate starting;
    std::atomic<bool> started{false};
    std::thread first([&] {
        mState.startup([&] {
            starting.open();
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            return started = true;
        });
    });
    ASSERT_TRUE(starting.wait());
    mState.shutdown([&] { EXPECT_TRUE(started); });
    first.join();
    EXPECT_EQ(ManagerState::kShutDown, mState.get());
    EXPECT_THAT(mLog.take(kTag), IsEmpty());
}
