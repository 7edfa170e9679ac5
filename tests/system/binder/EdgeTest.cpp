// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What happens at the edges: errors that look like deaths, replies that are written into, full receive areas,
 * threads that come and go, calls from a notice of death.
 */
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/system/binder/DriverFixture.h"
#include "tests/system/binder/EchoService.h"

using android::DEAD_OBJECT;
using android::defaultServiceManager;
using android::FAILED_TRANSACTION;
using android::IBinder;
using android::IPCThreadState;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using android::String8;
using android::UNKNOWN_TRANSACTION;
using android::wp;
using ::testing::Contains;

namespace {

class EdgeTest : public DriverTest {
  protected:
    status_t askForStatus(status_t status) {
        Parcel request;
        Parcel reply;
        request.writeInt32(status);
        return mEcho->transact(EchoService::kStatus, request, &reply);
    }

    /** What this process holds, with what this thread has yet to give back given back. */
    static DriverCounts ownCounts() {
        IPCThreadState::self()->flushCommands();
        return countsOf(getpid());
    }
};

/** Calls from inside the notice, as a client that looks for the next service does. */
class CallingObituary : public Obituary {
  public:
    void binderDied(const wp<IBinder>& who) override {
        mNames = defaultServiceManager()->listServices().size();
        mAgain = who.promote() != nullptr ? who.promote()->pingBinder() : OK;
        Obituary::binderDied(who);
    }
    std::atomic<size_t> mNames{0};
    std::atomic<status_t> mAgain{OK};
};

/** Whether this thread is inside of a request. */
thread_local bool sIsBusy = false;

/** Notes whether it is told by a thread that is inside of a request. */
class IdleObituary : public Obituary {
  public:
    void binderDied(const wp<IBinder>& who) override {
        mWasBusy = sIsBusy;
        Obituary::binderDied(who);
    }
    std::atomic<bool> mWasBusy{false};
};

/** Links to an object in the middle of a request, then calls another, as one does that holds a lock. */
class LinkingCallee : public android::BBinder {
  public:
    LinkingCallee(const sp<IBinder>& linked, const sp<IBinder>& called, const sp<IdleObituary>& obituary)
        : mLinked(linked), mCalled(called), mObituary(obituary) {}

    status_t onTransact(uint32_t /*code*/, const Parcel& /*data*/, Parcel* reply,
                        uint32_t /*flags*/) override {
        sIsBusy = true;
        mLinkStatus = mLinked->linkToDeath(mObituary);
        for (int i = 0; i < 100; ++i) {
            mFailures += mCalled->pingBinder() == OK ? 0 : 1;
        }
        sIsBusy = false;
        mIsDone = true;
        return reply->writeInt32(0);
    }

    std::atomic<bool> mIsDone{false};
    std::atomic<status_t> mLinkStatus{OK};
    std::atomic<int> mFailures{0};

  private:
    const sp<IBinder> mLinked;
    const sp<IBinder> mCalled;
    const sp<IdleObituary> mObituary;
};

}  // namespace

// A service that talks of somebody else's death lives itself.
TEST_F(EdgeTest, TheCalleesStatusIsNotItsDeath) {
    EXPECT_EQ(DEAD_OBJECT, askForStatus(DEAD_OBJECT));
    EXPECT_TRUE(mEcho->isBinderAlive());
    expectEcho();
    const sp<Obituary> obituary = new Obituary();
    EXPECT_EQ(OK, mEcho->linkToDeath(obituary));
    for (const status_t status : {-1, 1, INT32_MIN, INT32_MAX, static_cast<status_t>(UNKNOWN_TRANSACTION)}) {
        EXPECT_EQ(status, askForStatus(status));
    }
    EXPECT_EQ(OK, askForStatus(OK));
    EXPECT_EQ(0, obituary->mCount);
}

TEST_F(EdgeTest, AFailedCallLeavesNothingOfTheFormerReply) {
    Parcel request;
    request.writeInt32(4711);
    Parcel reply;
    ASSERT_EQ(OK, mEcho->transact(EchoService::kEcho, request, &reply));
    ASSERT_EQ(4U, reply.dataSize());
    EXPECT_EQ(UNKNOWN_TRANSACTION, mEcho->transact(4711, request, &reply));
    EXPECT_EQ(0U, reply.dataSize());
    EXPECT_EQ(0, reply.readInt32());
}

TEST_F(EdgeTest, WritingIntoAReplyCopiesIt) {
    const size_t descriptors = descriptorsOf(getpid());
    const DriverCounts counts = ownCounts();
    {
        Parcel request;
        Parcel reply;
        ASSERT_EQ(OK, mEcho->transact(EchoService::kGive, request, &reply));
        EXPECT_EQ(descriptors + 1, descriptorsOf(getpid()));
        EXPECT_EQ(counts.buffers + 1, countsOf(getpid()).buffers);
        reply.setDataPosition(reply.dataSize());
        EXPECT_EQ(OK, reply.writeInt32(8));
        // With its buffer gone back, once.
        EXPECT_EQ(descriptors + 1, descriptorsOf(getpid()));
        EXPECT_EQ(counts.buffers, countsOf(getpid()).buffers);
        reply.setDataPosition(0);
        EXPECT_EQ(String8("given"), reply.readString8());
        const sp<IBinder> object = reply.readStrongBinder();
        ASSERT_NE(nullptr, object);
        EXPECT_EQ(OK, object->pingBinder());
        EXPECT_EQ(5, write(reply.readFileDescriptor(), "bytes", 5));
        EXPECT_EQ(4711, reply.readInt32());
        EXPECT_EQ(8, reply.readInt32());
    }
    EXPECT_EQ(descriptors, descriptorsOf(getpid()));
    EXPECT_EQ(counts.references, countsOf(getpid()).references);
    EXPECT_EQ(counts.buffers, countsOf(getpid()).buffers);
}

// Nobody reads the reply; its object and its descriptor go all the same, without another call of this thread.
TEST_F(EdgeTest, AReplyThatNobodyReadsGoesAtOnce) {
    const size_t descriptors = descriptorsOf(getpid());
    const DriverCounts client = ownCounts();
    const int nodes = countsOf(mServer->pid()).nodes;
    for (int i = 0; i < 20; ++i) {
        Parcel request;
        Parcel reply;
        ASSERT_EQ(OK, mEcho->transact(EchoService::kGive, request, &reply));
    }
    EXPECT_EQ(descriptors, descriptorsOf(getpid()));
    EXPECT_EQ(client.references, countsOf(getpid()).references);
    EXPECT_EQ(client.buffers, countsOf(getpid()).buffers);
    EXPECT_TRUE(waitUntil([&] { return countsOf(mServer->pid()).nodes == nodes; }));
}

TEST_F(EdgeTest, AFullReceiveAreaIsAnErrorAndPasses) {
    Parcel nap;
    nap.writeInt32(1000);
    ASSERT_EQ(OK, mEcho->transact(EchoService::kSleep, nap, nullptr, IBinder::FLAG_ONEWAY));
    // Oneway calls of one object wait for each other: none of these is served before the nap is over.
    Parcel large;
    ASSERT_NE(nullptr, large.writeInplace(size_t{32} * 1024));
    status_t status = OK;
    int sent = 0;
    while (status == OK && sent < 1000) {
        status = mEcho->transact(EchoService::kRecord, large, nullptr, IBinder::FLAG_ONEWAY);
        sent += status == OK ? 1 : 0;
    }
    EXPECT_EQ(FAILED_TRANSACTION, status);
    EXPECT_GT(sent, 8);
    EXPECT_TRUE(mEcho->isBinderAlive());
    expectEcho();
    EXPECT_TRUE(waitUntil([&] { return ask(EchoService::kRecorded) == sent; }));
    EXPECT_EQ(OK, mEcho->transact(EchoService::kRecord, large, nullptr, IBinder::FLAG_ONEWAY));
    EXPECT_TRUE(waitUntil([&] { return ask(EchoService::kRecorded) == sent + 1; }));
}

TEST_F(EdgeTest, ThreadsThatEndLeaveNothing) {
    const DriverCounts before = countsOf(getpid());
    for (int i = 0; i < 200; ++i) {
        std::thread([&] {
            expectEcho();
            Parcel request;
            Parcel reply;
            EXPECT_EQ(OK, mEcho->transact(EchoService::kGive, request, &reply));
        }).join();
    }
    const DriverCounts after = countsOf(getpid());
    EXPECT_EQ(before.references, after.references);
    // The pool may have grown meanwhile, for what the driver let go of.
    EXPECT_LE(after.threads, before.threads + 2);
    EXPECT_LE(after.buffers, before.buffers + 1);
}

TEST_F(EdgeTest, ANoticeOfDeathMayCall) {
    const sp<CallingObituary> first = new CallingObituary();
    const sp<CallingObituary> second = new CallingObituary();
    ASSERT_EQ(OK, mEcho->linkToDeath(first));
    ASSERT_EQ(OK, mEcho->linkToDeath(second));
    // A second object of the process, so that two notices come at once.
    Parcel request;
    Parcel reply;
    ASSERT_EQ(OK, mEcho->transact(EchoService::kGive, request, &reply));
    reply.readString8();
    const sp<IBinder> other = reply.readStrongBinder();
    ASSERT_NE(nullptr, other);
    const sp<CallingObituary> third = new CallingObituary();
    ASSERT_EQ(OK, other->linkToDeath(third));
    mServer->end(SIGKILL);
    EXPECT_TRUE(waitUntil([&] { return first->mCount == 1 && second->mCount == 1 && third->mCount == 1; }));
    EXPECT_EQ(DEAD_OBJECT, first->mAgain);
    EXPECT_EQ(DEAD_OBJECT, third->mAgain);
}

// A recipient may wait for a lock that a thread holds which waits for its call: it needs a thread that does
// not.
TEST_F(EdgeTest, ANoticeOfDeathComesToAnIdleThread) {
    const sp<IBinder> former = mEcho;
    const std::unique_ptr<Process> formerServer = std::move(mServer);
    start();
    // The former one answers until the new one has taken its name.
    ASSERT_TRUE(waitUntil([&] {
        mEcho = defaultServiceManager()->checkService(String16(EchoService::kName));
        return mEcho != former;
    }));
    const pid_t formerPid = formerServer->pid();
    formerServer->end(SIGKILL);
    // The driver cleans up after a process some time after its end.
    ASSERT_TRUE(waitUntil([&] {
        return !std::filesystem::exists("/sys/kernel/debug/binder/proc/" + std::to_string(formerPid));
    }));
    const sp<IdleObituary> obituary = new IdleObituary();
    const sp<LinkingCallee> callee = new LinkingCallee(former, mEcho, obituary);
    // Oneway, so that the call back comes to a thread of the pool.
    Parcel request;
    request.writeStrongBinder(callee);
    request.writeInt32(1);
    ASSERT_EQ(OK, mEcho->transact(EchoService::kCallBack, request, nullptr, IBinder::FLAG_ONEWAY));
    ASSERT_TRUE(waitUntil([&] { return callee->mIsDone && obituary->mCount == 1; }));
    EXPECT_EQ(OK, callee->mLinkStatus);
    EXPECT_EQ(0, callee->mFailures);
    EXPECT_FALSE(obituary->mWasBusy);
}

TEST_F(EdgeTest, ADeathThatACallRevealedIsNotLinkedTo) {
    mServer->end(SIGKILL);
    EXPECT_EQ(DEAD_OBJECT, mEcho->pingBinder());
    EXPECT_FALSE(mEcho->isBinderAlive());
    const sp<Obituary> obituary = new Obituary();
    EXPECT_EQ(DEAD_OBJECT, mEcho->linkToDeath(obituary));
}

TEST_F(EdgeTest, NamesTheThreadsOfThePool) {
    std::vector<std::string> names;
    for (const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(mServer->pid()) + "/task")) {
        std::string name;
        std::getline(std::ifstream(entry.path() / "comm"), name);
        names.push_back(name);
    }
    const std::string first = "Binder:" + std::to_string(mServer->pid()) + "_1";
    EXPECT_THAT(names, Contains(first.substr(0, 15)));
}

// A shell that a service starts must not get the driver's descriptor.
TEST_F(EdgeTest, TheDriversDescriptorStaysHere) {
    int drivers = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        if (std::filesystem::read_symlink(entry.path(), error) == "/dev/binder") {
            ++drivers;
            EXPECT_NE(0, fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC);
        }
    }
    EXPECT_EQ(1, drivers);
}

TEST_F(EdgeTest, WaitsForAServiceFiveSecondsAtMost) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(nullptr, defaultServiceManager()->getService(String16("test.never")));
    const auto waited = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(waited, std::chrono::seconds(3));
    EXPECT_LE(waited, std::chrono::seconds(10));
    EXPECT_EQ(nullptr, defaultServiceManager()->checkService(String16("test.never")));
}
