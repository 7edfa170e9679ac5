// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The program is linked with usleep wrapped: tests of the start-up wait count its polls, and all others give
 * a machine that is busy more time than the queue does.
 */

#include "common/MessageQueue.h"

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/unit/common/RefusedThreads.h"
#include "tests/unit/common/ThreadProbe.h"
#include "tests/unit/support/LogCapture.h"

using android::Looper;
using android::Message;
using android::MessageHandler;
using android::sp;
using android::wp;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int kTimeoutMillis = 20;
constexpr nsecs_t kMillisecond = 1000000;
constexpr int kStartPolls = 100;
constexpr useconds_t kStartPollMicros = 1000;
constexpr nsecs_t kHour = kMillisecond * 1000 * 3600;

// Stands in for usleep on the thread that sets it.
thread_local std::function<void(useconds_t)> sOnSleep;

}  // namespace

extern "C" int __real_usleep(useconds_t micros);

extern "C" int __wrap_usleep(useconds_t micros) {
    if (!sOnSleep) {
        return __real_usleep(micros);
    }
    sOnSleep(micros);
    return 0;
}

namespace {

/** Replaces usleep on this thread, for its own life. */
class SleepHook {
  public:
    explicit SleepHook(std::function<void(useconds_t)> onSleep) { sOnSleep = std::move(onSleep); }
    ~SleepHook() { sOnSleep = nullptr; }
};

bool startPatiently(MessageQueue* queue) {
    int sleeps = 0;
    const SleepHook hook(
        [&sleeps](useconds_t micros) { __real_usleep(++sleeps <= kStartPolls / 2 ? micros : 100 * micros); });
    return queue->start();
}

bool startPatiently(const sp<MessageQueue>& queue) {
    return startPatiently(queue.get());
}

/** Notes the messages that it is given, and runs the test's function for each. */
class Recorder : public MessageHandler {
  public:
    explicit Recorder(std::function<void(int)> onMessage = nullptr) : mOnMessage(std::move(onMessage)) {}

    void handleMessage(const Message& message) override {
        if (mOnMessage) {
            mOnMessage(message.what);
        }
        const std::lock_guard<std::mutex> hold(mLock);
        mMessages.push_back(message.what);
        mAdded.notify_all();
    }

    bool waitForCount(size_t count) {
        std::unique_lock<std::mutex> hold(mLock);
        return mAdded.wait_for(hold, kTestLimit, [this, count] { return mMessages.size() >= count; });
    }

    std::vector<int> messages() {
        const std::lock_guard<std::mutex> hold(mLock);
        return mMessages;
    }

  private:
    const std::function<void(int)> mOnMessage;
    std::mutex mLock;  // guards mMessages
    std::condition_variable mAdded;
    std::vector<int> mMessages;
};

/** A queue whose thread publishes its looper only when the test says so. */
class LateQueue : public MessageQueue {
  public:
    using MessageQueue::MessageQueue;
    Gate mPublish;
    Gate mPublished;

  protected:
    android::status_t readyToRun() override {
        mPublish.wait();
        const android::status_t status = MessageQueue::readyToRun();
        mPublished.open();
        return status;
    }
};

/** A queue that does not wait long for a handler that blocks. */
class ImpatientQueue : public MessageQueue {
  public:
    using MessageQueue::MessageQueue;

  protected:
    nsecs_t stopLimit() const override { return 50 * kMillisecond; }
};

/** A queue whose stop waits for as long as it takes. */
class PatientQueue : public MessageQueue {
  public:
    using MessageQueue::MessageQueue;

  protected:
    nsecs_t stopLimit() const override { return kHour; }
};

sp<MessageQueue> makeQueue(const sp<MessageHandler>& handler, int timeoutMillis = kTimeoutMillis) {
    return new MessageQueue(handler, timeoutMillis, "TestQueue");
}

bool ended(const sp<MessageQueue>& queue) {
    return eventually([&queue] { return !queue->isRunning(); });
}

LogLine notReadyLine() {
    return {ANDROID_LOG_ERROR, "MessageQueue", "message queue is not ready in expect time, why? system hal?"};
}

TEST(MessageQueueTest, StartPublishesALooper) {
    LogCapture log;
    const sp<Recorder> recorder = new Recorder();
    const sp<MessageQueue> queue = makeQueue(recorder);
    ASSERT_TRUE(startPatiently(queue));
    queue->sendMessage(7);
    EXPECT_TRUE(recorder->waitForCount(1));
    EXPECT_THAT(recorder->messages(), ElementsAre(7));
    queue->stop();
    EXPECT_FALSE(queue->isRunning());
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST(MessageQueueTest, NamesItsThreadCutTo15Characters) {
    for (const auto& [name, shown] :
         {std::pair("UsbTestQueue", "UsbTestQueue"), std::pair("UsbManagerQueue", "UsbManagerQueue"),
          std::pair("DeviceManagerQueue", "DeviceManagerQu")}) {
        std::string seen;
        const sp<Recorder> recorder = new Recorder([&seen](int) { seen = currentThreadName(); });
        std::string volatileName(name);
        const sp<MessageQueue> queue = new MessageQueue(recorder, kTimeoutMillis, volatileName.c_str());
        volatileName.assign(volatileName.size(), '#');
        ASSERT_TRUE(startPatiently(queue));
        queue->sendMessage(1);
        ASSERT_TRUE(recorder->waitForCount(1));
        queue->stop();
        EXPECT_EQ(shown, seen);
    }
}

TEST(MessageQueueTest, DeliversInOrderOfPosting) {
    const sp<Recorder> recorder = new Recorder();
    const sp<MessageQueue> queue = makeQueue(recorder);
    ASSERT_TRUE(startPatiently(queue));
    std::vector<int> expected;
    for (int what = 0; what < 1000; ++what) {
        queue->sendMessage(static_cast<uint32_t>(what));
        expected.push_back(what);
    }
    ASSERT_TRUE(recorder->waitForCount(expected.size()));
    queue->stop();
    EXPECT_EQ(expected, recorder->messages());
}

TEST(MessageQueueTest, DeliversByDueTime) {
    const sp<Recorder> recorder = new Recorder();
    const sp<MessageQueue> queue = makeQueue(recorder);
    ASSERT_TRUE(startPatiently(queue));
    const auto start = Clock::now();
    queue->sendMessageDelayed(3, 60 * kMillisecond);
    queue->sendMessageDelayed(2, 30 * kMillisecond);
    queue->sendMessageDelayed(1, 0);
    queue->sendMessage(4);
    ASSERT_TRUE(recorder->waitForCount(4));
    EXPECT_GE(Clock::now() - start, milliseconds(60));
    queue->stop();
    EXPECT_THAT(recorder->messages(), ElementsAre(1, 4, 2, 3));
}

TEST(MessageQueueTest, CarriesTheWholeRangeOfCodes) {
    const sp<Recorder> recorder = new Recorder();
    const sp<MessageQueue> queue = makeQueue(recorder);
    ASSERT_TRUE(startPatiently(queue));
    queue->sendMessage(0xffffffff);
    ASSERT_TRUE(recorder->waitForCount(1));
    queue->stop();
    EXPECT_EQ(0xffffffff, static_cast<uint32_t>(recorder->messages()[0]));
}

TEST(MessageQueueTest, AMessageDelayedBeyondThePollStillComes) {
    const sp<Recorder> recorder = new Recorder();
    const sp<MessageQueue> queue = makeQueue(recorder, 5);
    ASSERT_TRUE(startPatiently(queue));
    queue->sendMessageDelayed(1, 50 * kMillisecond);
    EXPECT_TRUE(recorder->waitForCount(1));
    queue->stop();
}

TEST(MessageQueueTest, PostsToAnotherHandlerOnTheSameThread) {
    std::thread::id ownThread;
    std::thread::id otherThread;
    const sp<Recorder> own = new Recorder([&](int) { ownThread = std::this_thread::get_id(); });
    const sp<Recorder> other = new Recorder([&](int) { otherThread = std::this_thread::get_id(); });
    const sp<MessageQueue> queue = makeQueue(own);
    ASSERT_TRUE(startPatiently(queue));
    queue->sendMessage(1);
    queue->sendMessage(other, 2);
    queue->sendMessageDelayed(other, 3, kMillisecond);
    ASSERT_TRUE(own->waitForCount(1));
    ASSERT_TRUE(other->waitForCount(2));
    queue->stop();
    EXPECT_THAT(own->messages(), ElementsAre(1));
    EXPECT_THAT(other->messages(), ElementsAre(2, 3));
    EXPECT_EQ(ownThread, otherThread);
}

/** Holds the queue's thread in a handler while the test posts and removes. */
class HeldQueueTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(startPatiently(mQueue));
        mQueue->sendMessage(mHolder, 0);
        ASSERT_TRUE(mHeld.wait());
    }

    void TearDown() override {
        mRelease.open();
        mQueue->stop();
    }

    /** Lets the thread go and waits until it has delivered what is due. */
    bool release() {
        const sp<Recorder> last = new Recorder();
        mQueue->sendMessage(last, 0);
        mRelease.open();
        return last->waitForCount(1);
    }

    Gate mHeld;
    Gate mRelease;
    const sp<Recorder> mHolder = new Recorder([this](int) {
        mHeld.open();
        mRelease.wait();
    });
    const sp<Recorder> mOwn = new Recorder();
    const sp<Recorder> mOther = new Recorder();
    const sp<MessageQueue> mQueue = new ImpatientQueue(mOwn, kTimeoutMillis, "HeldQueue");
};

TEST_F(HeldQueueTest, RemovesAllOfOneCodeOfTheDefaultHandler) {
    mQueue->sendMessage(1);
    mQueue->sendMessage(2);
    mQueue->sendMessage(1);
    mQueue->sendMessageDelayed(1, kMillisecond);
    mQueue->sendMessage(mOther, 1);
    mQueue->removeMessage(1);
    ASSERT_TRUE(release());
    std::this_thread::sleep_for(milliseconds(5));
    mQueue->sendMessage(3);
    ASSERT_TRUE(mOwn->waitForCount(2));
    EXPECT_THAT(mOwn->messages(), ElementsAre(2, 3));
    EXPECT_THAT(mOther->messages(), ElementsAre(1));
}

TEST_F(HeldQueueTest, RemovesAllOfOneCodeOfAnotherHandler) {
    mQueue->sendMessage(mOther, 1);
    mQueue->sendMessage(mOther, 2);
    mQueue->sendMessageDelayed(mOther, 1, kMillisecond);
    mQueue->sendMessage(1);
    mQueue->removeMessage(mOther, 1);
    // Had it stayed, the delayed one would be due by now.
    std::this_thread::sleep_for(milliseconds(5));
    ASSERT_TRUE(release());
    EXPECT_THAT(mOther->messages(), ElementsAre(2));
    EXPECT_THAT(mOwn->messages(), ElementsAre(1));
}

TEST_F(HeldQueueTest, RemovingWhatIsNotPendingDoesNothing) {
    mQueue->sendMessage(1);
    mQueue->removeMessage(2);
    mQueue->removeMessage(mOther, 1);
    ASSERT_TRUE(release());
    EXPECT_THAT(mOwn->messages(), ElementsAre(1));
}

TEST_F(HeldQueueTest, DeliversByDueTimeWhatCameDueMeanwhile) {
    mQueue->sendMessage(1);
    mQueue->sendMessageDelayed(2, 0);
    mQueue->sendMessage(mOwn, 3);
    mQueue->sendMessageDelayed(4, kMillisecond);
    std::this_thread::sleep_for(milliseconds(5));
    mQueue->sendMessage(5);
    mQueue->sendMessageDelayed(6, kMillisecond);
    std::this_thread::sleep_for(milliseconds(5));
    mQueue->sendMessage(7);
    ASSERT_TRUE(release());
    EXPECT_THAT(mOwn->messages(), ElementsAre(1, 2, 3, 4, 5, 6, 7));
}

TEST_F(HeldQueueTest, RemovingTheFirstDoesNotHurryTheNext) {
    mQueue->sendMessage(1);
    mQueue->sendMessageDelayed(2, kMillisecond);
    std::this_thread::sleep_for(milliseconds(5));
    mQueue->sendMessage(3);
    mQueue->removeMessage(1);
    ASSERT_TRUE(release());
    EXPECT_THAT(mOwn->messages(), ElementsAre(2, 3));
}

TEST_F(HeldQueueTest, DeliversALongBacklogInOrder) {
    constexpr int kMessages = 100000;
    std::vector<int> expected;
    for (int what = 0; what < kMessages; ++what) {
        mQueue->sendMessage(what % 2 == 0 ? mOwn : mOther, static_cast<uint32_t>(what));
        if (what % 2 == 0) {
            expected.push_back(what);
        }
    }
    ASSERT_TRUE(release());
    EXPECT_EQ(expected, mOwn->messages());
    EXPECT_EQ(kMessages / 2, static_cast<int>(mOther->messages().size()));
}

TEST_F(HeldQueueTest, KeepsNoHandlerOnceTheThreadHasEnded) {
    const wp<Recorder> waiting = [this] {
        const sp<Recorder> handler = new Recorder();
        mQueue->sendMessage(handler, 1);
        mQueue->sendMessage(handler, 2);
        return wp<Recorder>(handler);
    }();
    EXPECT_NE(nullptr, waiting.promote());
    mQueue->requestExit();
    mRelease.open();
    ASSERT_TRUE(ended(mQueue));
    mQueue->stop();
    EXPECT_EQ(nullptr, waiting.promote());
}

TEST_F(HeldQueueTest, AHandlerPostsAndRemovesWhileOthersWait) {
    const sp<Recorder> busy = new Recorder([this](int what) {
        if (what == 1) {
            mQueue->sendMessage(4);
            mQueue->removeMessage(2);
        }
    });
    mQueue->sendMessage(busy, 1);
    mQueue->sendMessage(2);
    mQueue->sendMessage(3);
    mRelease.open();
    ASSERT_TRUE(mOwn->waitForCount(2));
    EXPECT_THAT(mOwn->messages(), ElementsAre(3, 4));
}

TEST_F(HeldQueueTest, StopGivesUpOnAHandlerThatBlocks) {
    LogCapture log;
    mQueue->stop();
    EXPECT_TRUE(mQueue->isRunning());
    EXPECT_THAT(log.take(), ElementsAre(LogLine{ANDROID_LOG_WARN, "MessageQueue",
                                                "\"HeldQueue\" is held by its handler, it stops when that "
                                                "returns"}));
    mRelease.open();
    EXPECT_TRUE(ended(mQueue));
}

TEST_F(HeldQueueTest, StartsAnewOnceAStopGivenUpHasHappened) {
    mQueue->stop();
    mRelease.open();
    ASSERT_TRUE(ended(mQueue));
    ASSERT_TRUE(startPatiently(mQueue));
    mQueue->sendMessage(5);
    EXPECT_TRUE(mOwn->waitForCount(1));
}

TEST_F(HeldQueueTest, StartTakesBackAStopGivenUp) {
    mQueue->sendMessage(1);
    mQueue->stop();
    ASSERT_TRUE(startPatiently(mQueue));
    mQueue->sendMessage(2);
    mRelease.open();
    ASSERT_TRUE(mOwn->waitForCount(2));
    EXPECT_THAT(mOwn->messages(), ElementsAre(1, 2));
    std::this_thread::sleep_for(milliseconds(3 * kTimeoutMillis));
    EXPECT_TRUE(mQueue->isRunning());
}

TEST_F(HeldQueueTest, PostingStaysLegalWhileTheStopIsPending) {
    mQueue->stop();
    mQueue->sendMessage(1);
    mQueue->removeMessage(1);
    mRelease.open();
    EXPECT_TRUE(ended(mQueue));
}

TEST(MessageQueueTest, StartEndsTheWaitOfAStop) {
    Gate held;
    Gate release;
    const sp<Recorder> recorder = new Recorder([&](int) {
        held.open();
        release.wait();
    });
    const sp<MessageQueue> queue = new PatientQueue(recorder, kTimeoutMillis, "PatientQueue");
    ASSERT_TRUE(startPatiently(queue));
    queue->sendMessage(1);
    ASSERT_TRUE(held.wait());
    LogCapture log;
    Gate stopped;
    std::thread stopper([&] {
        queue->stop();
        stopped.open();
    });
    // Whether the stop comes before or after a start, the last word must be this thread's.
    ASSERT_TRUE(eventually([&] {
        queue->start();
        return stopped.wait(milliseconds(1));
    }));
    stopper.join();
    EXPECT_THAT(log.take(), IsEmpty());
    release.open();
    queue->sendMessage(2);
    EXPECT_TRUE(recorder->waitForCount(2));
    queue->stop();
}

TEST(MessageQueueTest, StopLimitIsTwoSeconds) {
    EXPECT_EQ(2000 * kMillisecond, MessageQueue::kStopLimit);
}

TEST(MessageQueueTest, StartFailsWhenTheLooperIsLate) {
    const sp<Recorder> recorder = new Recorder();
    const sp<LateQueue> queue = new LateQueue(recorder, kTimeoutMillis, "LateQueue");
    LogCapture log;
    std::vector<useconds_t> sleeps;
    {
        const SleepHook hook([&sleeps](useconds_t micros) { sleeps.push_back(micros); });
        EXPECT_FALSE(queue->start());
    }
    EXPECT_EQ(std::vector<useconds_t>(kStartPolls, kStartPollMicros), sleeps);
    EXPECT_THAT(log.take(), ElementsAre(notReadyLine()));
    EXPECT_TRUE(queue->isRunning());

    queue->mPublish.open();
    EXPECT_TRUE(startPatiently(queue.get()));
    queue->sendMessage(1);
    EXPECT_TRUE(recorder->waitForCount(1));
    queue->stop();
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST(MessageQueueTest, StartWaitsForALooperThatIsSlow) {
    for (const int lastSleep : {1, kStartPolls / 2, kStartPolls}) {
        const sp<Recorder> recorder = new Recorder();
        const sp<LateQueue> queue = new LateQueue(recorder, kTimeoutMillis, "LateQueue");
        LogCapture log;
        int sleeps = 0;
        {
            const SleepHook hook([&](useconds_t) {
                if (++sleeps == lastSleep) {
                    queue->mPublish.open();
                    queue->mPublished.wait();
                }
            });
            EXPECT_TRUE(queue->start());
        }
        EXPECT_EQ(lastSleep, sleeps);
        EXPECT_THAT(log.take(), IsEmpty());
        queue->stop();
    }
}

TEST(MessageQueueTest, AThreadThatIsRefusedMayBeStartedLater) {
    LogCapture log;
    const sp<Recorder> recorder = new Recorder();
    const sp<MessageQueue> queue = makeQueue(recorder);
    {
        const RefusedThreads refused(1);
        const SleepHook hook([](useconds_t) {});
        EXPECT_FALSE(queue->start());
        EXPECT_EQ(1, RefusedThreads::asked());
    }
    EXPECT_THAT(log.take("MessageQueue"),
                ElementsAre(LogLine{ANDROID_LOG_ERROR, "MessageQueue",
                                    "message queue is not ready in expect time, why? system hal?"}));
    // As of a queue that was never started.
    queue->stop();
    ASSERT_TRUE(startPatiently(queue));
    queue->sendMessage(1);
    EXPECT_TRUE(recorder->waitForCount(1));
    queue->stop();
}

TEST(MessageQueueTest, StopsAThreadThatIsNotReadyYet) {
    const sp<Recorder> recorder = new Recorder();
    const sp<LateQueue> queue = new LateQueue(recorder, kTimeoutMillis, "LateQueue");
    EXPECT_FALSE(queue->start());
    std::thread opener([&queue] {
        std::this_thread::sleep_for(milliseconds(20));
        queue->mPublish.open();
    });
    queue->stop();
    EXPECT_FALSE(queue->isRunning());
    opener.join();
}

TEST(MessageQueueTest, StopWaitsForThePollInProgressAndNoLonger) {
    constexpr int kLongPoll = 300;
    sp<Looper> looper;
    const sp<Recorder> recorder = new Recorder([&looper](int) { looper = Looper::getForThread(); });
    const sp<MessageQueue> queue = makeQueue(recorder, kLongPoll);
    ASSERT_TRUE(startPatiently(queue));
    queue->sendMessage(1);
    ASSERT_TRUE(recorder->waitForCount(1));
    ASSERT_TRUE(eventually([&looper] { return looper->isPolling(); }));
    const auto start = Clock::now();
    queue->stop();
    const auto waited = Clock::now() - start;
    EXPECT_FALSE(queue->isRunning());
    // The poll began just before; nothing wakes it.
    EXPECT_GT(waited, milliseconds(kLongPoll / 2));
    EXPECT_LT(waited, milliseconds(kLongPoll) + std::chrono::seconds(1));
}

TEST(MessageQueueTest, StopAndStartMayBeRepeated) {
    const sp<Recorder> recorder = new Recorder();
    const sp<MessageQueue> queue = makeQueue(recorder, 1);
    queue->stop();
    for (size_t round = 1; round <= 20; ++round) {
        ASSERT_TRUE(startPatiently(queue));
        ASSERT_TRUE(startPatiently(queue));
        queue->sendMessage(1);
        ASSERT_TRUE(recorder->waitForCount(round)) << round;
        queue->stop();
        queue->stop();
        ASSERT_FALSE(queue->isRunning());
    }
}

TEST(MessageQueueTest, PendingMessagesDoNotSurviveAStop) {
    const sp<Recorder> recorder = new Recorder();
    const sp<MessageQueue> queue = makeQueue(recorder, 1);
    ASSERT_TRUE(startPatiently(queue));
    queue->sendMessageDelayed(1, kHour);
    queue->sendMessageDelayed(1, 30 * kMillisecond);
    queue->stop();
    ASSERT_TRUE(startPatiently(queue));
    std::this_thread::sleep_for(milliseconds(40));
    queue->sendMessage(2);
    ASSERT_TRUE(recorder->waitForCount(1));
    queue->stop();
    EXPECT_THAT(recorder->messages(), ElementsAre(2));
}

TEST(MessageQueueTest, StopFromAHandlerEndsTheThreadAfterwards) {
    sp<MessageQueue> queue;
    Gate stopped;
    const sp<Recorder> recorder = new Recorder([&](int what) {
        if (what == 1) {
            queue->stop();
            stopped.open();
        }
    });
    queue = makeQueue(recorder);
    for (size_t round = 1; round <= 10; ++round) {
        ASSERT_TRUE(startPatiently(queue));
        queue->sendMessage(2);
        queue->sendMessage(1);
        ASSERT_TRUE(stopped.wait());
        ASSERT_TRUE(ended(queue));
        ASSERT_TRUE(recorder->waitForCount(2 * round));
    }
}

TEST(MessageQueueTest, StartRightAfterAStopFromAHandler) {
    sp<MessageQueue> queue;
    const sp<Recorder> recorder = new Recorder([&](int what) {
        if (what == 1) {
            queue->stop();
        }
    });
    queue = makeQueue(recorder, 1);
    for (size_t round = 1; round <= 100; ++round) {
        ASSERT_TRUE(startPatiently(queue));
        queue->sendMessage(1);
        ASSERT_TRUE(recorder->waitForCount(2 * round - 1));
        // Taken back or started anew, depending on how far the thread has got: a message comes in any case.
        ASSERT_TRUE(startPatiently(queue));
        queue->sendMessage(2);
        ASSERT_TRUE(recorder->waitForCount(2 * round));
    }
    queue->stop();
}

TEST(MessageQueueTest, StopAndStartFromAHandlerKeepsPendingMessages) {
    sp<MessageQueue> queue;
    bool started = false;
    const sp<Recorder> recorder = new Recorder([&](int what) {
        if (what == 1) {
            queue->stop();
            started = queue->start();
        }
    });
    queue = makeQueue(recorder);
    ASSERT_TRUE(startPatiently(queue));
    queue->sendMessageDelayed(2, kMillisecond * kTimeoutMillis * 2);
    queue->sendMessage(1);
    ASSERT_TRUE(recorder->waitForCount(2));
    queue->stop();
    EXPECT_TRUE(started);
    EXPECT_THAT(recorder->messages(), ElementsAre(1, 2));
}

TEST(MessageQueueTest, StopsFromHandlerAndOutsideAtOnce) {
    sp<MessageQueue> queue;
    Gate entered;
    const sp<Recorder> recorder = new Recorder([&](int) {
        entered.open();
        std::this_thread::sleep_for(milliseconds(10));
        queue->stop();
    });
    queue = makeQueue(recorder);
    ASSERT_TRUE(startPatiently(queue));
    queue->sendMessage(1);
    ASSERT_TRUE(entered.wait());
    queue->stop();
    EXPECT_FALSE(queue->isRunning());
}

TEST(MessageQueueTest, ThreadEndedBehindItsBackIsStartedAnew) {
    const sp<Recorder> recorder = new Recorder();
    const sp<MessageQueue> queue = makeQueue(recorder);
    ASSERT_TRUE(startPatiently(queue));
    queue->requestExitAndWait();
    ASSERT_TRUE(startPatiently(queue));
    queue->sendMessage(1);
    EXPECT_TRUE(recorder->waitForCount(1));
    queue->stop();
}

TEST(MessageQueueTest, ConcurrentStartsAndStopsEndInAUsableQueue) {
    const sp<Recorder> recorder = new Recorder();
    const sp<MessageQueue> queue = makeQueue(recorder, 1);
    std::vector<std::thread> threads;
    threads.reserve(3);
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&queue] {
            for (int i = 0; i < 100; ++i) {
                queue->start();
                queue->stop();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(queue->isRunning());
    ASSERT_TRUE(startPatiently(queue));
    queue->sendMessage(1);
    EXPECT_TRUE(recorder->waitForCount(1));
    queue->stop();
}

TEST(MessageQueueTest, ManyThreadsPost) {
    constexpr size_t kThreads = 4;
    constexpr size_t kMessages = 500;
    const sp<Recorder> recorder = new Recorder();
    const sp<MessageQueue> queue = makeQueue(recorder);
    ASSERT_TRUE(startPatiently(queue));
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (uint32_t t = 0; t < kThreads; ++t) {
        threads.emplace_back([&queue, t] {
            for (size_t i = 0; i < kMessages; ++i) {
                queue->sendMessage(t);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(recorder->waitForCount(kThreads * kMessages));
    queue->stop();
}

TEST(MessageQueueTest, HoldsItsHandlerUntilItGoes) {
    sp<Recorder> recorder = new Recorder();
    const wp<Recorder> watch = recorder;
    sp<MessageQueue> queue = makeQueue(recorder);
    recorder.clear();
    EXPECT_NE(nullptr, watch.promote());
    queue.clear();
    EXPECT_EQ(nullptr, watch.promote());
}

TEST(MessageQueueTest, GoesAfterAStop) {
    sp<Recorder> recorder = new Recorder();
    const wp<Recorder> watch = recorder;
    sp<MessageQueue> queue = makeQueue(recorder);
    ASSERT_TRUE(startPatiently(queue));
    queue->stop();
    recorder.clear();
    queue.clear();
    EXPECT_TRUE(eventually([&watch] { return watch.promote() == nullptr; }));
}

TEST(MessageQueueTest, GoesOnItsOwnThreadWhenItIsDroppedRunning) {
    sp<Recorder> recorder = new Recorder();
    const wp<Recorder> watch = recorder;
    sp<MessageQueue> queue = makeQueue(recorder, 1);
    ASSERT_TRUE(startPatiently(queue));
    recorder.clear();
    queue.clear();
    EXPECT_TRUE(eventually([&watch] { return watch.promote() == nullptr; }));
}

/** An owner as the managers are: holds the queue, is its handler, stops it when it goes. */
class Owner : public MessageHandler {
  public:
    explicit Owner(Gate* gone) : mGone(gone) {}

    void start() {
        mQueue = new MessageQueue(mHandler, 1, "OwnerQueue");
        startPatiently(mQueue);
    }

    sp<MessageQueue> queue() { return mQueue; }
    void handleMessage(const Message&) override {}

  protected:
    ~Owner() override {
        mQueue->stop();
        mGone->open();
    }

  private:
    Gate* const mGone;
    const sp<Recorder> mHandler = new Recorder();
    sp<MessageQueue> mQueue;
};

TEST(MessageQueueTest, OwnerMayGoOnTheQueuesThread) {
    for (int round = 0; round < 20; ++round) {
        Gate gone;
        sp<Owner> owner = new Owner(&gone);
        owner->start();
        // The pending message is the last to hold the owner.
        owner->queue()->sendMessageDelayed(owner, 1, 2 * kMillisecond);
        owner.clear();
        ASSERT_TRUE(gone.wait()) << round;
    }
}

class MessageQueueDeathTest : public ::testing::Test {
  protected:
    static auto assertion(const std::string& function) {
        return AllOf(HasSubstr("MessageQueue F "),
                     HasSubstr("assertion \"mLooper.get()\" failed: file \"MessageQueue\", line "),
                     HasSubstr(", function \"" + function + "\""));
    }

    const sp<Recorder> mRecorder = new Recorder();
    const sp<MessageQueue> mQueue = makeQueue(mRecorder);
};

TEST_F(MessageQueueDeathTest, RefusesEveryPostWithoutLooper) {
    EXPECT_DEATH(mQueue->sendMessage(1), assertion("void MessageQueue::sendMessage(uint32_t)"));
    EXPECT_DEATH(mQueue->sendMessageDelayed(1, 1),
                 assertion("void MessageQueue::sendMessageDelayed(uint32_t, nsecs_t)"));
    EXPECT_DEATH(mQueue->removeMessage(1), assertion("void MessageQueue::removeMessage(uint32_t)"));
    EXPECT_DEATH(
        mQueue->sendMessage(mRecorder, 1),
        assertion("void MessageQueue::sendMessage(const android::sp<android::MessageHandler>&, uint32_t)"));
    EXPECT_DEATH(
        mQueue->sendMessageDelayed(mRecorder, 1, 1),
        assertion("void MessageQueue::sendMessageDelayed(const android::sp<android::MessageHandler>&, "
                  "uint32_t, nsecs_t)"));
    EXPECT_DEATH(
        mQueue->removeMessage(mRecorder, 1),
        assertion("void MessageQueue::removeMessage(const android::sp<android::MessageHandler>&, uint32_t)"));
}

TEST_F(MessageQueueDeathTest, RefusesAPostAfterStop) {
    EXPECT_DEATH(
        {
            mQueue->start();
            mQueue->stop();
            mQueue->sendMessage(1);
        },
        assertion("void MessageQueue::sendMessage(uint32_t)"));
}

TEST_F(MessageQueueDeathTest, RefusesAPostBeforeALateLooper) {
    EXPECT_DEATH(
        {
            const sp<LateQueue> queue = new LateQueue(mRecorder, kTimeoutMillis, "LateQueue");
            queue->start();
            queue->sendMessage(1);
        },
        assertion("void MessageQueue::sendMessage(uint32_t)"));
}

}  // namespace
