// SPDX-License-Identifier: Apache-2.0
#include "common/EventLooper.h"

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tests/unit/common/RefusedThreads.h"
#include "tests/unit/common/ThreadProbe.h"
#include "tests/unit/support/LogCapture.h"

using android::Looper;
using android::sp;
using android::Thread;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

constexpr int kNoTimeout = -1;

/** An event looper with one descriptor whose call-back runs a function of the test. */
class EventLooperTest : public ::testing::Test {
  protected:
    EventLooperTest()
        : mLooper(new Looper(false)),
          mThread(new EventLooper(mLooper, kNoTimeout)),
          mFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        mLooper->addFd(mFd, Looper::POLL_CALLBACK, Looper::EVENT_INPUT, onInput, this);
    }

    ~EventLooperTest() override {
        mThread->stop();
        mLooper->removeFd(mFd);
        close(mFd);
    }

    /** Runs @p task on the looper's thread, if there is one, and waits for it. */
    bool runOnLooper(const std::function<void()>& task) {
        Gate done;
        mTask = [&task, &done] {
            task();
            done.open();
        };
        const uint64_t one = 1;
        return write(mFd, &one, sizeof(one)) == sizeof(one) && done.wait();
    }

    const sp<Looper> mLooper;
    const sp<EventLooper> mThread;

  private:
    static int onInput(int fd, int, void* data) {
        uint64_t count = 0;
        if (read(fd, &count, sizeof(count)) == sizeof(count)) {
            static_cast<EventLooperTest*>(data)->mTask();
        }
        return 1;
    }

    const int mFd;
    std::function<void()> mTask;
};

TEST_F(EventLooperTest, RunsCallbacksOnItsNamedThread) {
    mThread->start();
    std::string name;
    std::thread::id id;
    ASSERT_TRUE(runOnLooper([&] {
        name = currentThreadName();
        id = std::this_thread::get_id();
    }));
    EXPECT_EQ("EventLooper", name);
    EXPECT_NE(std::this_thread::get_id(), id);
}

TEST_F(EventLooperTest, RunsAheadOfOtherThreadsButNotSoItsShells) {
    rlimit limit = {};
    ASSERT_EQ(0, getrlimit(RLIMIT_NICE, &limit));
    ASSERT_TRUE(geteuid() == 0 || limit.rlim_cur >= 30)
        << "needs root, or a limit of niceness of 30 and more";
    const int others = getpriority(PRIO_PROCESS, static_cast<id_t>(getpid()));
    int own = 0;
    std::string shells;
    mThread->start();
    ASSERT_TRUE(runOnLooper([&] {
        own = getpriority(PRIO_PROCESS, static_cast<id_t>(gettid()));
        FILE* const pipe = popen("nice", "r");
        char line[16] = "";
        shells = pipe != nullptr && fgets(line, sizeof(line), pipe) != nullptr ? line : "no answer";
        if (pipe != nullptr) {
            pclose(pipe);
        }
    }));
    EXPECT_EQ(-10, own);
    EXPECT_EQ("0\n", shells);
    EXPECT_EQ(others, getpriority(PRIO_PROCESS, static_cast<id_t>(getpid())));
}

TEST_F(EventLooperTest, TheThreadOwnsTheLooper) {
    mThread->start();
    sp<Looper> looper;
    ASSERT_TRUE(runOnLooper([&] { looper = Looper::getForThread(); }));
    EXPECT_EQ(mLooper, looper);
}

TEST_F(EventLooperTest, StopWakesAPollWithoutLimit) {
    mThread->start();
    ASSERT_TRUE(runOnLooper([] {}));
    ASSERT_TRUE(eventually([this] { return mLooper->isPolling(); }));
    const auto start = std::chrono::steady_clock::now();
    mThread->stop();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_FALSE(mThread->isRunning());
}

TEST_F(EventLooperTest, StartsAgainAfterStop) {
    for (int round = 0; round < 20; ++round) {
        mThread->start();
        ASSERT_TRUE(runOnLooper([] {})) << round;
        mThread->stop();
        EXPECT_FALSE(mThread->isRunning());
    }
}

TEST_F(EventLooperTest, StopWithoutStartDoesNotSpoilALaterStart) {
    mThread->stop();
    mThread->stop();
    mThread->start();
    EXPECT_TRUE(runOnLooper([] {}));
}

TEST_F(EventLooperTest, StopRightAfterStartEnds) {
    for (int round = 0; round < 100; ++round) {
        mThread->start();
        mThread->stop();
        ASSERT_FALSE(mThread->isRunning());
    }
}

TEST_F(EventLooperTest, SecondStartKeepsTheThread) {
    mThread->start();
    std::thread::id first;
    ASSERT_TRUE(runOnLooper([&] { first = std::this_thread::get_id(); }));
    mThread->start();
    std::thread::id second;
    ASSERT_TRUE(runOnLooper([&] { second = std::this_thread::get_id(); }));
    EXPECT_EQ(first, second);
}

TEST_F(EventLooperTest, StopFromInsideACallbackEndsAfterIt) {
    mThread->start();
    ASSERT_TRUE(runOnLooper([this] { mThread->stop(); }));
    EXPECT_TRUE(eventually([this] { return !mThread->isRunning(); }));
    mThread->start();
    EXPECT_TRUE(runOnLooper([] {}));
}

TEST_F(EventLooperTest, StopsFromACallbackAndOutsideAtOnce) {
    mThread->start();
    Gate stopping;
    Gate stopped;
    std::thread stopper;
    ASSERT_TRUE(runOnLooper([&] {
        stopper = std::thread([&] {
            stopping.open();
            mThread->stop();
            stopped.open();
        });
        stopping.wait();
        // Gives the other the time to wait for this thread.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        mThread->stop();
    }));
    EXPECT_TRUE(stopped.wait());
    stopper.join();
    EXPECT_FALSE(mThread->isRunning());
}

TEST_F(EventLooperTest, StartRightAfterAStopFromInsideACallback) {
    for (int round = 0; round < 50; ++round) {
        mThread->start();
        ASSERT_TRUE(runOnLooper([this] { mThread->stop(); }));
        mThread->start();
        ASSERT_TRUE(runOnLooper([] {})) << round;
    }
}

// The start found the thread running still, did nothing, and the thread ended after it.
TEST_F(EventLooperTest, StartDuringACallbackThatHasStopped) {
    mThread->start();
    std::thread starter;
    ASSERT_TRUE(runOnLooper([&] {
        mThread->stop();
        starter = std::thread([this] { mThread->start(); });
        // Gives the other the time to find this thread running.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }));
    starter.join();
    EXPECT_TRUE(runOnLooper([] {}));
}

// A refusal at the moment of the start left the daemon without ears until somebody stopped and started it.
TEST_F(EventLooperTest, AThreadThatIsRefusedIsTriedAgain) {
    {
        const RefusedThreads refused(2);
        mThread->start();
        EXPECT_EQ(3, RefusedThreads::asked());
    }
    EXPECT_TRUE(runOnLooper([] {}));
}

TEST_F(EventLooperTest, AThreadThatIsAlwaysRefusedIsGivenUp) {
    LogCapture log;
    {
        const RefusedThreads refused(1000);
        mThread->start();
        EXPECT_EQ(50, RefusedThreads::asked());
        EXPECT_FALSE(mThread->isRunning());
    }
    EXPECT_THAT(log.take("EventLooper"),
                ElementsAre(LogLine{ANDROID_LOG_ERROR, "EventLooper",
                                    "the system refuses the thread, no event is heard"}));
    mThread->start();
    EXPECT_TRUE(runOnLooper([] {}));
}

TEST_F(EventLooperTest, ConcurrentStartsAndStopsEnd) {
    std::vector<std::thread> threads;
    threads.reserve(3);
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([this] {
            for (int i = 0; i < 200; ++i) {
                mThread->start();
                mThread->stop();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(mThread->isRunning());
    mThread->start();
    EXPECT_TRUE(runOnLooper([] {}));
}

using EventLooperDeathTest = EventLooperTest;

TEST_F(EventLooperDeathTest, RefusesAThreadThatOwnsALooper) {
    EXPECT_DEATH(
        {
            Looper::prepare(0);
            static_cast<Thread&>(*mThread).readyToRun();
        },
        AllOf(HasSubstr("EventLooper F "),
              HasSubstr("assertion \"0\" failed: file \"EventLooper\", line 41, "
                        "function \"virtual status_t EventLooper::readyToRun()\"")));
}

}  // namespace
