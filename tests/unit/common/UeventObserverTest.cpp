// SPDX-License-Identifier: Apache-2.0
#include "common/UeventObserver.h"

#include <android/log.h>
#include <cutils/uevent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "common/Uevent.h"
#include "tests/unit/common/ThreadProbe.h"
#include "tests/unit/support/LogCapture.h"

using android::Looper;
using android::sp;
using android::wp;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

/** What stands for the kernel: the functions below serve from here. */
struct FakeKernel {
    int openError = 0;
    int receiveError = 0;
    std::atomic<int> reads{0};
    int askedBufferSize = 0;
    bool askedCredentials = false;
    size_t askedLength = 0;
    int receiver = -1;
    int sender = -1;
};

FakeKernel* sKernel = nullptr;

}  // namespace

extern "C" int uevent_open_socket(int bufferSize, bool passCredentials) {
    sKernel->askedBufferSize = bufferSize;
    sKernel->askedCredentials = passCredentials;
    if (sKernel->openError != 0) {
        errno = sKernel->openError;
        return -1;
    }
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair) != 0) {
        return -1;
    }
    sKernel->receiver = pair[0];
    sKernel->sender = pair[1];
    return pair[0];
}

extern "C" ssize_t uevent_kernel_multicast_recv(int socket, void* buffer, size_t length) {
    ++sKernel->reads;
    sKernel->askedLength = length;
    if (sKernel->receiveError != 0) {
        errno = sKernel->receiveError;
        return -1;
    }
    return recv(socket, buffer, length, 0);
}

namespace {

constexpr int kInput = Looper::EVENT_INPUT;
constexpr char kAddTokens[] = "add@/devices/x\0ACTION=add\0SUBSYSTEM=usb";
const std::string kAdd(kAddTokens, sizeof(kAddTokens));

class CountingNotifier : public UeventObserverNotifier {
  public:
    explicit CountingNotifier(std::function<void(const sp<Uevent>&)> onEvent = nullptr)
        : mOnEvent(std::move(onEvent)) {}

    int onUevent(const sp<Uevent>& event) override {
        if (mOnEvent) {
            mOnEvent(event);
        }
        ++mCount;
        return 0;
    }

    int count() const { return mCount; }

  private:
    const std::function<void(const sp<Uevent>&)> mOnEvent;
    std::atomic<int> mCount{0};
};

class UeventObserverTest : public ::testing::Test {
  protected:
    UeventObserverTest() {
        sKernel = &mKernel;
        mObserver = new UeventObserver();
    }

    ~UeventObserverTest() override {
        mObserver.clear();
        close(mKernel.sender);
        sKernel = nullptr;
    }

    void send(const std::string& datagram) {
        ASSERT_EQ(static_cast<ssize_t>(datagram.size()),
                  ::send(mKernel.sender, datagram.data(), datagram.size(), 0));
    }

    /** One readiness of the socket, on this thread. */
    int ready(int events = kInput) { return LooperListenser(mKernel.receiver, events, mObserver.get()); }

    static LogLine errorLine(const std::string& text) { return {ANDROID_LOG_ERROR, "UeventObserver", text}; }

    FakeKernel mKernel;
    sp<UeventObserver> mObserver;
};

TEST_F(UeventObserverTest, OpensTheSocketWith64KiBAndCredentials) {
    EXPECT_EQ(65536, mKernel.askedBufferSize);
    EXPECT_TRUE(mKernel.askedCredentials);
}

TEST_F(UeventObserverTest, ReadsOneDatagramForEachReadiness) {
    const sp<CountingNotifier> notifier = new CountingNotifier();
    mObserver->registerNotifier(notifier);
    send(kAdd);
    send(kAdd);
    EXPECT_EQ(1, ready());
    EXPECT_EQ(1, mKernel.reads);
    EXPECT_EQ(1, notifier->count());
    EXPECT_EQ(65536U, mKernel.askedLength);
    EXPECT_EQ(1, ready());
    EXPECT_EQ(2, notifier->count());
}

/** Notes who heard what. */
class NotingNotifier : public UeventObserverNotifier {
  public:
    using Heard = std::vector<std::pair<const UeventObserverNotifier*, sp<Uevent>>>;

    explicit NotingNotifier(Heard* heard) : mHeard(heard) {}

    int onUevent(const sp<Uevent>& event) override {
        mHeard->emplace_back(this, event);
        return 0;
    }

  private:
    Heard* const mHeard;
};

TEST_F(UeventObserverTest, NotifiersHearTheSameRecordInAscendingOrderOfAddress) {
    NotingNotifier::Heard heard;
    std::vector<sp<UeventObserverNotifier>> notifiers;
    notifiers.reserve(8);
    for (int i = 0; i < 8; ++i) {
        notifiers.push_back(new NotingNotifier(&heard));
    }
    std::sort(notifiers.begin(), notifiers.end());
    // Registered in another order than that of the calls.
    for (auto notifier = notifiers.rbegin(); notifier != notifiers.rend(); ++notifier) {
        mObserver->registerNotifier(*notifier);
    }
    send(kAdd);
    ready();
    ASSERT_EQ(notifiers.size(), heard.size());
    for (size_t i = 0; i < heard.size(); ++i) {
        EXPECT_EQ(notifiers[i].get(), heard[i].first);
        EXPECT_EQ(heard[0].second, heard[i].second);
    }
}

TEST_F(UeventObserverTest, HandsOnTheDecodedRecord) {
    std::string path;
    int action = 0;
    mObserver->registerNotifier(new CountingNotifier([&](const sp<Uevent>& event) {
        path = event->getPath();
        action = event->getAction();
    }));
    send(kAdd);
    ready();
    EXPECT_EQ("/devices/x", path);
    EXPECT_EQ(1, action);
}

TEST_F(UeventObserverTest, RegistersANotifierOnce) {
    const sp<CountingNotifier> notifier = new CountingNotifier();
    mObserver->registerNotifier(notifier);
    mObserver->registerNotifier(notifier);
    send(kAdd);
    ready();
    EXPECT_EQ(1, notifier->count());
    mObserver->unregisterNotifier(notifier);
    send(kAdd);
    ready();
    EXPECT_EQ(1, notifier->count());
}

TEST_F(UeventObserverTest, UnregisteringAStrangerDoesNothing) {
    const sp<CountingNotifier> notifier = new CountingNotifier();
    mObserver->registerNotifier(notifier);
    mObserver->unregisterNotifier(new CountingNotifier());
    send(kAdd);
    ready();
    EXPECT_EQ(1, notifier->count());
}

TEST_F(UeventObserverTest, LogsADatagramThatIsNoUevent) {
    const sp<CountingNotifier> notifier = new CountingNotifier();
    mObserver->registerNotifier(notifier);
    LogCapture log;
    send("no header");
    EXPECT_EQ(1, ready());
    EXPECT_THAT(
        log.take(),
        ElementsAre(errorLine("receive invalidate uevent[0x00000001] , event data size[9], drop it")));
    EXPECT_EQ(0, notifier->count());
    send(kAdd);
    ready();
    EXPECT_EQ(1, notifier->count());
}

TEST_F(UeventObserverTest, LogsAnEmptyDatagramWithSizeZero) {
    LogCapture log;
    // What a peer's shutdown reads as; a netlink datagram may be empty too.
    shutdown(mKernel.sender, SHUT_WR);
    EXPECT_EQ(1, ready(kInput | Looper::EVENT_HANGUP));
    EXPECT_THAT(
        log.take(),
        ElementsAre(errorLine("receive invalidate uevent[0x00000009] , event data size[0], drop it")));
}

TEST_F(UeventObserverTest, TakesADatagramOf64KiB) {
    int size = 0;
    mObserver->registerNotifier(new CountingNotifier(
        [&size](const sp<Uevent>& event) { size = static_cast<int>(strlen(event->FindParam("BIG"))); }));
    std::string datagram = kAdd + "BIG=";
    datagram.resize(65536, 'x');
    send(datagram);
    ready();
    EXPECT_EQ(65536 - static_cast<int>(kAdd.size()) - 4 - 1, size);
}

TEST_F(UeventObserverTest, LogsAReceiveErrorWithTheEventsValue) {
    LogCapture log;
    mKernel.receiveError = ENOBUFS;
    EXPECT_EQ(1, ready());
    mKernel.receiveError = EIO;
    EXPECT_EQ(1, ready(kInput | Looper::EVENT_ERROR));
    EXPECT_THAT(log.take(),
                ElementsAre(errorLine("event[1] receive fail[No buffer space available], drop it"),
                            errorLine("event[5] receive fail[Input/output error], drop it")));
}

TEST_F(UeventObserverTest, IgnoresWhatIsNoInput) {
    LogCapture log;
    send(kAdd);
    for (const int events : {0, static_cast<int>(Looper::EVENT_OUTPUT), static_cast<int>(Looper::EVENT_ERROR),
                             static_cast<int>(Looper::EVENT_HANGUP)}) {
        EXPECT_EQ(1, ready(events));
    }
    EXPECT_EQ(0, mKernel.reads);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(UeventObserverTest, ReadsOnlyBetweenStartAndStop) {
    std::string thread;
    Gate heard;
    const sp<CountingNotifier> notifier = new CountingNotifier([&](const sp<Uevent>&) {
        thread = currentThreadName();
        heard.open();
    });
    mObserver->registerNotifier(notifier);
    send(kAdd);
    EXPECT_FALSE(heard.wait(std::chrono::milliseconds(20)));
    mObserver->start();
    ASSERT_TRUE(heard.wait());
    mObserver->stop();
    EXPECT_EQ("EventLooper", thread);
    EXPECT_EQ(1, notifier->count());

    send(kAdd);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(1, notifier->count());
    mObserver->start();
    EXPECT_TRUE(eventually([&notifier] { return notifier->count() == 2; }));
}

TEST_F(UeventObserverTest, StartAndStopMayBeRepeated) {
    mObserver->stop();
    mObserver->start();
    mObserver->start();
    const sp<CountingNotifier> notifier = new CountingNotifier();
    mObserver->registerNotifier(notifier);
    send(kAdd);
    EXPECT_TRUE(eventually([&notifier] { return notifier->count() == 1; }));
    mObserver->stop();
    mObserver->stop();
}

TEST_F(UeventObserverTest, StopWaitsForADispatchInProgress) {
    Gate entered;
    std::atomic<bool> left{false};
    mObserver->registerNotifier(new CountingNotifier([&](const sp<Uevent>&) {
        entered.open();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        left = true;
    }));
    mObserver->start();
    send(kAdd);
    ASSERT_TRUE(entered.wait());
    mObserver->stop();
    EXPECT_TRUE(left);
}

// A notifier whose owner goes must not be running any more once it is unregistered.
TEST_F(UeventObserverTest, UnregisteringWaitsForADispatchInProgress) {
    Gate entered;
    std::atomic<bool> left{false};
    const sp<CountingNotifier> notifier = new CountingNotifier([&](const sp<Uevent>&) {
        entered.open();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        left = true;
    });
    mObserver->registerNotifier(notifier);
    mObserver->start();
    send(kAdd);
    ASSERT_TRUE(entered.wait());
    mObserver->unregisterNotifier(notifier);
    EXPECT_TRUE(left);
    mObserver->stop();
}

TEST_F(UeventObserverTest, StopFromInsideANotifierEndsAfterIt) {
    Gate stopped;
    const sp<CountingNotifier> notifier = new CountingNotifier([&](const sp<Uevent>&) {
        mObserver->stop();
        stopped.open();
    });
    mObserver->registerNotifier(notifier);
    mObserver->start();
    send(kAdd);
    ASSERT_TRUE(stopped.wait());
    mObserver->start();
    send(kAdd);
    EXPECT_TRUE(eventually([&notifier] { return notifier->count() == 2; }));
}

TEST_F(UeventObserverTest, RegistersAndUnregistersUnderFire) {
    const sp<CountingNotifier> constant = new CountingNotifier();
    mObserver->registerNotifier(constant);
    mObserver->start();
    std::thread registrar([this] {
        for (int i = 0; i < 500; ++i) {
            const sp<CountingNotifier> notifier = new CountingNotifier();
            mObserver->registerNotifier(notifier);
            mObserver->unregisterNotifier(notifier);
        }
    });
    for (int i = 0; i < 500; ++i) {
        send(kAdd);
    }
    registrar.join();
    EXPECT_TRUE(eventually([&constant] { return constant->count() == 500; }));
}

TEST_F(UeventObserverTest, DestructionClosesTheSocketAndDropsTheNotifiers) {
    for (const bool running : {false, true}) {
        sp<CountingNotifier> notifier = new CountingNotifier();
        const wp<CountingNotifier> watch = notifier;
        mObserver->registerNotifier(notifier);
        notifier.clear();
        if (running) {
            mObserver->start();
            ASSERT_TRUE(eventually([] { return countThreads("EventLooper") == 1; }));
        }
        const int fd = mKernel.receiver;
        const wp<UeventObserver> observer = mObserver;
        mObserver.clear();
        EXPECT_EQ(nullptr, observer.promote());
        EXPECT_EQ(nullptr, watch.promote());
        EXPECT_EQ(-1, fcntl(fd, F_GETFD));
        EXPECT_TRUE(eventually([] { return countThreads("EventLooper") == 0; }));
        close(mKernel.sender);
        mObserver = new UeventObserver();
    }
}

using UeventObserverDeathTest = UeventObserverTest;

TEST_F(UeventObserverDeathTest, AbortsWithoutSocket) {
    mKernel.openError = EACCES;
    EXPECT_DEATH(
        sp<UeventObserver>(new UeventObserver()),
        AllOf(HasSubstr("uevent socket fd [-1] error[Permission denied]"), HasSubstr("UeventObserver F "),
              HasSubstr("assertion \"0\" failed: file \"UeventObserver\", line 74, "
                        "function \"UeventObserver::UeventObserver()\"")));
}

TEST_F(UeventObserverDeathTest, AbortsWithoutObserver) {
    EXPECT_DEATH(LooperListenser(mKernel.receiver, kInput, nullptr),
                 AllOf(HasSubstr("UeventObserver F "),
                       HasSubstr("assertion \"observer\" failed: file \"UeventObserver\", line 41, "
                                 "function \"int LooperListenser(int, int, void*)\"")));
}

}  // namespace
