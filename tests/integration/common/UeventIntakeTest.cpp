// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * From the kernel to the notifiers: the uevent observer on the real socket.
 */

#include <android/log.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <sched.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "common/Uevent.h"
#include "common/UeventObserver.h"
#include "tests/integration/common/UeventSender.h"
#include "tests/support/UeventInjector.h"
#include "tests/unit/common/ThreadProbe.h"
#include "tests/unit/support/LogCapture.h"

using android::sp;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

using Clock = std::chrono::steady_clock;

// The machine's own uevents come through as well: this path is the test's.
const std::string kPath = "/devices/virtual/uevent-intake-test";

/** Keeps the records of paths that end in the given text. */
class KeepingNotifier : public UeventObserverNotifier {
  public:
    explicit KeepingNotifier(std::string pathEnd) : mPathEnd(std::move(pathEnd)) {}

    int onUevent(const sp<Uevent>& event) override {
        const std::string path = event->getPath();
        if (path.size() < mPathEnd.size() ||
            path.compare(path.size() - mPathEnd.size(), mPathEnd.size(), mPathEnd) != 0) {
            return 0;
        }
        const std::lock_guard<std::mutex> hold(mLock);
        mEvents.push_back(event);
        mAdded.notify_all();
        return 0;
    }

    bool waitForCount(size_t count) {
        std::unique_lock<std::mutex> hold(mLock);
        return mAdded.wait_for(hold, kTestLimit, [this, count] { return mEvents.size() >= count; });
    }

    std::vector<sp<Uevent>> events() {
        const std::lock_guard<std::mutex> hold(mLock);
        return mEvents;
    }

  private:
    const std::string mPathEnd;
    std::mutex mLock;  // guards mEvents
    std::condition_variable mAdded;
    std::vector<sp<Uevent>> mEvents;
};

class UeventIntakeTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(0, mInjector.open());
        mObserver = new UeventObserver();
        mObserver->registerNotifier(mNotifier);
    }

    void TearDown() override { mObserver->stop(); }

    int inject(const std::string& action, const std::vector<std::string>& properties = {}) {
        return mInjector.send(action, kPath, "test", properties);
    }

    /** Has the kernel announce an existing device once more. */
    static bool announce(const std::string& device, const std::string& action) {
        const int fd = open(("/sys/class/" + device + "/uevent").c_str(), O_WRONLY | O_CLOEXEC);
        const ssize_t written = write(fd, action.data(), action.size());
        close(fd);
        return written == static_cast<ssize_t>(action.size());
    }

    static LogLine errorLine(const std::string& text) { return {ANDROID_LOG_ERROR, "UeventObserver", text}; }

    UeventInjector mInjector;
    const sp<KeepingNotifier> mNotifier = new KeepingNotifier(kPath);
    sp<UeventObserver> mObserver;
    LogCapture mLog;
};

TEST_F(UeventIntakeTest, HearsTheKernelAboutANetworkDevice) {
    const sp<KeepingNotifier> notifier = new KeepingNotifier("/net/lo");
    mObserver->registerNotifier(notifier);
    mObserver->start();
    const std::vector<std::pair<std::string, int>> actions = {
        {"add", 1}, {"remove", 2}, {"change", 3}, {"move", 4}, {"online", 5}, {"offline", 6}, {"bind", 0},
    };
    for (const auto& [word, code] : actions) {
        ASSERT_TRUE(announce("net/lo", word)) << word << ": " << strerror(errno);
    }
    ASSERT_TRUE(notifier->waitForCount(actions.size()));
    const std::vector<sp<Uevent>> events = notifier->events();
    ASSERT_EQ(actions.size(), events.size());
    for (size_t i = 0; i < actions.size(); ++i) {
        EXPECT_EQ(actions[i].second, events[i]->getAction()) << actions[i].first;
        EXPECT_STREQ("net", events[i]->getSubsystem());
        EXPECT_STREQ("/devices/virtual/net/lo", events[i]->getPath());
        EXPECT_STREQ("/devices/virtual/net/lo", events[i]->FindParam("DEVPATH"));
        EXPECT_STREQ("lo", events[i]->FindParam("INTERFACE"));
        EXPECT_GT(events[i]->getSeqnum(), i == 0 ? 0 : events[i - 1]->getSeqnum());
    }
}

TEST_F(UeventIntakeTest, HearsTheKernelAboutABlockDevice) {
    ASSERT_EQ(0, access("/sys/class/block/loop0/uevent", W_OK)) << "no loop device on this machine";
    const sp<KeepingNotifier> notifier = new KeepingNotifier("/block/loop0");
    mObserver->registerNotifier(notifier);
    mObserver->start();
    ASSERT_TRUE(announce("block/loop0", "change"));
    ASSERT_TRUE(notifier->waitForCount(1));
    const sp<Uevent> event = notifier->events()[0];
    EXPECT_EQ(3, event->getAction());
    EXPECT_STREQ("block", event->getSubsystem());
    EXPECT_STREQ("loop0", event->FindParam("DEVNAME"));
    EXPECT_STREQ("disk", event->FindParam("DEVTYPE"));
    EXPECT_STREQ("7", event->FindParam("MAJOR"));
}

TEST_F(UeventIntakeTest, DropsForeignSendersWithALineEach) {
    mObserver->start();
    UeventSender sender;
    const std::string forged = UeventInjector::compose("remove", kPath, "block");
    ASSERT_EQ(0, sender.multicast(forged));
    ASSERT_EQ(0, sender.multicastAs(1000, forged));
    ASSERT_EQ(0, inject("add"));
    ASSERT_TRUE(mNotifier->waitForCount(1));
    const LogLine refused = errorLine("event[1] receive fail[Input/output error], drop it");
    EXPECT_THAT(mLog.take("UeventObserver"), ElementsAre(refused, refused));
    ASSERT_EQ(1U, mNotifier->events().size());
    EXPECT_EQ(1, mNotifier->events()[0]->getAction());
}

TEST_F(UeventIntakeTest, DropsWhatIsNoUeventWithALine) {
    mObserver->start();
    const std::string noHeader = std::string("no header") + '\0' + "ACTION=add" + '\0';
    ASSERT_EQ(0, mInjector.send(noHeader));
    ASSERT_EQ(0, inject("add"));
    ASSERT_TRUE(mNotifier->waitForCount(1));
    // The kernel appended its sequence number, one less than the next event's and of as many digits.
    const int seqnum = mNotifier->events()[0]->getSeqnum() - 1;
    const size_t size = noHeader.size() + strlen("SEQNUM=") + std::to_string(seqnum).size() + 1;
    EXPECT_THAT(mLog.take("UeventObserver"),
                ElementsAre(errorLine("receive invalidate uevent[0x00000001] , event data size[" +
                                      std::to_string(size) + "], drop it")));
    EXPECT_EQ(1U, mNotifier->events().size());
}

TEST_F(UeventIntakeTest, AnEmptyRequestHasNoHeader) {
    mObserver->start();
    ASSERT_EQ(0, mInjector.send(std::string()));
    ASSERT_EQ(0, inject("add"));
    ASSERT_TRUE(mNotifier->waitForCount(1));
    EXPECT_EQ(1U, mLog.take("UeventObserver").size());
}

TEST_F(UeventIntakeTest, SurvivesPropertiesWithoutEquals) {
    mObserver->start();
    ASSERT_EQ(0, mInjector.send("add@" + kPath + '\0' + "LONE" + '\0' + "LONELY" + '\0'));
    ASSERT_EQ(0, inject("remove"));
    ASSERT_TRUE(mNotifier->waitForCount(2));
    // Ran on to the kernel's own "SEQNUM=".
    EXPECT_EQ(0, mNotifier->events()[0]->getSeqnum());
    EXPECT_EQ(1, mNotifier->events()[0]->getParamSize());
    EXPECT_STREQ("LONE", mNotifier->events()[0]->paramName(0));
    EXPECT_EQ(2, mNotifier->events()[1]->getAction());
    EXPECT_THAT(mLog.take("UeventObserver"), IsEmpty());
}

TEST_F(UeventIntakeTest, KeepsThe32FirstOf40Properties) {
    mObserver->start();
    std::vector<std::string> properties;
    properties.reserve(40);
    for (int i = 0; i < 40; ++i) {
        properties.push_back("KEY" + std::to_string(i) + "=" + std::to_string(i));
    }
    ASSERT_EQ(0, inject("add", properties));
    ASSERT_TRUE(mNotifier->waitForCount(1));
    const sp<Uevent> event = mNotifier->events()[0];
    ASSERT_EQ(32, event->getParamSize());
    EXPECT_STREQ("DEVPATH", event->paramName(0));
    EXPECT_STREQ("KEY30", event->paramName(31));
    EXPECT_GT(event->getSeqnum(), 0);
}

TEST_F(UeventIntakeTest, TakesTheLargestUeventOfTheKernel) {
    mObserver->start();
    // Within its limit the kernel counts the request's header and its own sequence number, too.
    const size_t taken = UeventInjector::compose("add", kPath, "test", {"BIG="}).size() + NLMSG_HDRLEN +
                         strlen("SEQNUM=18446744073709551615") + 1;
    const size_t room = UeventInjector::kMaxSize - taken;
    ASSERT_EQ(0, inject("add", {"BIG=" + std::string(room, 'x')}));
    ASSERT_TRUE(mNotifier->waitForCount(1));
    EXPECT_EQ(std::string(room, 'x'), mNotifier->events()[0]->FindParam("BIG"));
}

TEST_F(UeventIntakeTest, WhatComesBeforeTheStartIsReadAfterIt) {
    for (int i = 0; i < 50; ++i) {
        ASSERT_EQ(0, inject("add", {"N=" + std::to_string(i)}));
    }
    EXPECT_THAT(mNotifier->events(), IsEmpty());
    mObserver->start();
    ASSERT_TRUE(mNotifier->waitForCount(50));
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(std::to_string(i), mNotifier->events()[static_cast<size_t>(i)]->FindParam("N"));
    }
}

TEST_F(UeventIntakeTest, AnOverrunIsOneLineAndLaterUeventsCome) {
    constexpr int kBurst = 1000;
    for (int i = 0; i < kBurst; ++i) {
        ASSERT_EQ(0, inject("add", {"N=" + std::to_string(i)}));
    }
    mObserver->start();
    ASSERT_TRUE(mNotifier->waitForCount(1));
    const sp<KeepingNotifier> last = new KeepingNotifier(kPath + "/later");
    mObserver->registerNotifier(last);
    // The kernel sends again once all that it kept has been read.
    ASSERT_TRUE(eventually([this, &last] {
        mInjector.send("add", kPath + "/later", "test");
        return !last->events().empty();
    }));

    const std::vector<LogLine> lines = mLog.take("UeventObserver");
    ASSERT_EQ(1U, lines.size());
    EXPECT_EQ(ANDROID_LOG_ERROR, lines[0].priority);
    // EVENT_INPUT and EVENT_ERROR.
    EXPECT_EQ("event[5] receive fail[No buffer space available], drop it", lines[0].text);

    const std::vector<sp<Uevent>> kept = mNotifier->events();
    EXPECT_GT(kept.size(), 100U);
    EXPECT_LT(kept.size(), static_cast<size_t>(kBurst));
    for (size_t i = 0; i < kept.size(); ++i) {
        ASSERT_EQ(std::to_string(i), kept[i]->FindParam("N"));
    }
}

/** Counts numbered uevents and what is wrong with their order. */
class StormNotifier : public UeventObserverNotifier {
  public:
    int onUevent(const sp<Uevent>& event) override {
        if (!mPrioritised) {
            // The socket's buffer holds a few milliseconds: on a busy machine, an equal share is too late.
            const sched_param first = {1};
            sched_setscheduler(0, SCHED_FIFO, &first);
            mPrioritised = true;
        }
        if (event->getPath() != kPath) {
            return 0;
        }
        const int number = atoi(event->FindParam("N"));
        if (number != mExpected) {
            ++mOutOfOrder;
        }
        mExpected = number + 1;
        ++mCount;
        return 0;
    }

    int count() const { return mCount; }
    int outOfOrder() const { return mOutOfOrder; }

  private:
    bool mPrioritised = false;
    int mExpected = 0;
    std::atomic<int> mCount{0};
    std::atomic<int> mOutOfOrder{0};
};

/** Sends at a rate, as the machine allows, and notes what it did not allow. */
class Storm {
  public:
    static constexpr int kPerSecond = 20000;
    // A sender behind its schedule catches up, but never has more unheard than the socket's buffer can hold,
    // which is about 150: a machine that gives the uevent thread no time shows in the rate.
    static constexpr int kMaxUnheard = 100;

    Storm(UeventInjector* injector, const StormNotifier* listener)
        : mInjector(injector), mListener(listener) {
        // Sleeps of 50 us need a timer that is not rounded to as much.
        prctl(PR_SET_TIMERSLACK, 1);
    }

    bool send(const std::vector<std::string>& datagrams) {
        constexpr auto kInterval = std::chrono::nanoseconds(std::chrono::seconds(1)) / kPerSecond;
        const Clock::time_point start = Clock::now();
        Clock::time_point due = start;
        int sent = 0;
        for (const std::string& datagram : datagrams) {
            std::this_thread::sleep_until(due);
            due += kInterval;
            if (sent - mListener->count() >= kMaxUnheard) {
                ++mHeldBack;
                if (!eventually([&] { return sent - mListener->count() < kMaxUnheard / 2; })) {
                    return false;
                }
            }
            if (mInjector->send(datagram) != 0) {
                return false;
            }
            ++sent;
        }
        mRate = sent / std::chrono::duration<double>(Clock::now() - start).count();
        return true;
    }

    double rate() const { return mRate; }
    int heldBack() const { return mHeldBack; }

  private:
    UeventInjector* const mInjector;
    const StormNotifier* const mListener;
    double mRate = 0;
    int mHeldBack = 0;
};

TEST_F(UeventIntakeTest, LosesNoneOf20000At20000PerSecond) {
    constexpr int kCount = 20000;
    std::vector<std::string> datagrams;
    datagrams.reserve(kCount);
    for (int i = 0; i < kCount; ++i) {
        datagrams.push_back(
            UeventInjector::compose("add", kPath, "block",
                                    {"DEVNAME=sda1", "DEVTYPE=partition", "MAJOR=8", "MINOR=1", "DISKSEQ=12",
                                     "PARTN=1", "N=" + std::to_string(i)}));
    }
    const sp<StormNotifier> listener = new StormNotifier();
    mObserver->unregisterNotifier(mNotifier);
    mObserver->registerNotifier(listener);
    mObserver->start();

    Storm storm(&mInjector, listener.get());
    const bool sent = storm.send(datagrams);
    const bool heard = eventually([&listener] { return listener->count() == kCount; });

    // What the machine could do is told, not judged; what was lost is the observer's.
    printf("%d of %d uevents heard; sent at %.0f per second, held back %d times\n", listener->count(), kCount,
           storm.rate(), storm.heldBack());
    RecordProperty("sent_per_second", static_cast<int>(storm.rate()));
    RecordProperty("held_back", storm.heldBack());
    EXPECT_TRUE(sent);
    EXPECT_TRUE(heard) << kCount - listener->count() << " lost";
    EXPECT_EQ(0, listener->outOfOrder());
    EXPECT_THAT(mLog.take("UeventObserver"), IsEmpty());
}

}  // namespace
