// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * libbinder on the real driver. Runs in the virtual head unit beside a service manager; the other processes
 * are this program again, in another role.
 */
#include <binder/BpBinder.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/system/binder/DriverFixture.h"
#include "tests/system/binder/EchoService.h"
#include "tests/system/binder/ManagerOutliver.h"

using android::BBinder;
using android::DEAD_OBJECT;
using android::defaultServiceManager;
using android::IBinder;
using android::IPCThreadState;
using android::IServiceManager;
using android::OK;
using android::Parcel;
using android::ProcessState;
using android::sp;
using android::status_t;
using android::String16;
using android::String8;
using android::UNKNOWN_TRANSACTION;
using android::wp;
using namespace std::chrono_literals;

namespace {

/** The other side of kCallBack; notes the thread on which the call arrives. */
class Caller : public EchoService {
  public:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        mThread = gettid();
        return EchoService::onTransact(code, data, reply, flags);
    }
    std::atomic<pid_t> mThread{0};
};

}  // namespace

TEST_F(DriverTest, ServesAHundredThousandCallsWithoutALeak) {
    for (int i = 0; i < 100; ++i) {
        expectEcho();
    }
    const DriverCounts client = countsOf(getpid());
    const DriverCounts server = countsOf(mServer->pid());
    for (int32_t i = 0; i < 100'000; ++i) {
        int32_t back = 0;
        ASSERT_EQ(OK, echo(i, &back));
        ASSERT_EQ(i, back);
    }
    EXPECT_EQ(client.references, countsOf(getpid()).references);
    EXPECT_EQ(client.nodes, countsOf(getpid()).nodes);
    EXPECT_LE(countsOf(getpid()).buffers, client.buffers + 1);
    EXPECT_EQ(server.references, countsOf(mServer->pid()).references);
    EXPECT_EQ(server.nodes, countsOf(mServer->pid()).nodes);
    EXPECT_LE(countsOf(mServer->pid()).buffers, server.buffers + 1);
}

TEST_F(DriverTest, GivesHandlesAndObjectsBack) {
    const DriverCounts client = countsOf(getpid());
    const DriverCounts server = countsOf(mServer->pid());
    std::vector<wp<IBinder>> sent;
    for (int i = 0; i < 500; ++i) {
        const sp<IBinder> object = new BBinder();
        sent.emplace_back(object);
        Parcel request;
        Parcel reply;
        request.writeStrongBinder(object);
        ASSERT_EQ(OK, mEcho->transact(EchoService::kKeep, request, &reply));
    }
    // Held from over there alone.
    for (const wp<IBinder>& object : sent) {
        EXPECT_NE(nullptr, object.promote());
    }
    EXPECT_GE(countsOf(mServer->pid()).references, server.references + 500);
    ask(EchoService::kForget);
    EXPECT_TRUE(waitUntil([&] {
        for (const wp<IBinder>& object : sent) {
            if (object.promote() != nullptr) {
                // This thread is no looper: the driver's word reaches it, or the pool, with the next call.
                expectEcho();
                return false;
            }
        }
        return true;
    }));
    EXPECT_TRUE(waitUntil([&] {
        return countsOf(mServer->pid()).references == server.references &&
               countsOf(getpid()).nodes == client.nodes;
    }));
}

TEST_F(DriverTest, GivesAHandleBackFromAThreadThatNeverCallsAgain) {
    const int before = countsOf(getpid()).references;
    sp<IBinder> service = mEcho;
    mEcho.clear();
    std::thread([&service] { service.clear(); }).join();
    EXPECT_TRUE(waitUntil([&] { return countsOf(getpid()).references == before - 1; }));
}

TEST_F(DriverTest, SharesOneProxyForAHandle) {
    const sp<IBinder> again = defaultServiceManager()->checkService(String16(EchoService::kName));
    EXPECT_EQ(mEcho, again);
    EXPECT_NE(nullptr, mEcho->remoteBinder());
    EXPECT_EQ(nullptr, mEcho->localBinder());
}

TEST_F(DriverTest, ServesEightThreadsAtOnce) {
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    threads.reserve(8);
    for (int32_t thread = 0; thread < 8; ++thread) {
        threads.emplace_back([&, thread] {
            for (int32_t i = 0; i < 1000; ++i) {
                int32_t back = -1;
                wrong += echo(thread * 10'000 + i, &back) == OK && back == thread * 10'000 + i ? 0 : 1;
                // Proxies of one handle come and go on all of them.
                wrong +=
                    defaultServiceManager()->checkService(String16(EchoService::kName)) != nullptr ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, wrong);
}

TEST_F(DriverTest, TakesCallsBackOnTheThreadThatWaits) {
    const sp<Caller> caller = new Caller();
    for (const int32_t depth : {0, 1, 2, 3, 10, 21}) {
        Parcel request;
        Parcel reply;
        request.writeStrongBinder(caller);
        request.writeInt32(depth);
        ASSERT_EQ(OK, mEcho->transact(EchoService::kCallBack, request, &reply));
        EXPECT_EQ(depth, reply.readInt32());
        if (depth > 0) {
            EXPECT_EQ(gettid(), caller->mThread);
        }
        EXPECT_EQ(getpid(), IPCThreadState::self()->getCallingPid());
    }
}

TEST_F(DriverTest, KeepsTheOrderOfOnewayCalls) {
    constexpr int32_t kCalls = 500;
    for (int32_t i = 0; i < kCalls; ++i) {
        Parcel request;
        request.writeInt32(i);
        ASSERT_EQ(OK, mEcho->transact(EchoService::kRecord, request, nullptr, IBinder::FLAG_ONEWAY)) << i;
        if (i % 50 == 49) {
            // Half of the receive area is for oneway calls; a sender that never waits would fill it.
            EXPECT_TRUE(waitUntil([&] { return ask(EchoService::kRecorded) == i + 1; }));
        }
    }
    Parcel request;
    Parcel reply;
    ASSERT_EQ(OK, mEcho->transact(EchoService::kRecorded, request, &reply));
    ASSERT_EQ(kCalls, reply.readInt32());
    for (int32_t i = 0; i < kCalls; ++i) {
        EXPECT_EQ(i, reply.readInt32());
    }
}

TEST_F(DriverTest, TellsOfADeathByKill) {
    const sp<Obituary> obituary = new Obituary();
    ASSERT_EQ(OK, mEcho->linkToDeath(obituary));
    EXPECT_TRUE(mEcho->isBinderAlive());
    mServer->end(SIGKILL);
    EXPECT_TRUE(waitUntil([&] { return obituary->mCount == 1; }));
    EXPECT_EQ(mEcho.get(), obituary->mWho.load());
    EXPECT_FALSE(mEcho->isBinderAlive());
    EXPECT_EQ(DEAD_OBJECT, mEcho->linkToDeath(obituary));
    EXPECT_EQ(DEAD_OBJECT, mEcho->unlinkToDeath(obituary));
    int32_t back = 0;
    EXPECT_EQ(DEAD_OBJECT, echo(1, &back));
    EXPECT_EQ(0, back);
}

TEST_F(DriverTest, TellsOfADeathByExitOnceToEachRecipient) {
    const std::vector<sp<Obituary>> obituaries = {new Obituary(), new Obituary(), new Obituary()};
    for (const sp<Obituary>& obituary : obituaries) {
        ASSERT_EQ(OK, mEcho->linkToDeath(obituary));
    }
    EXPECT_EQ(OK, mEcho->unlinkToDeath(obituaries[1]));
    EXPECT_EQ(android::NAME_NOT_FOUND, mEcho->unlinkToDeath(obituaries[1]));
    Parcel request;
    Parcel reply;
    EXPECT_EQ(DEAD_OBJECT, mEcho->transact(EchoService::kExit, request, &reply));
    EXPECT_TRUE(waitUntil([&] { return obituaries[0]->mCount == 1 && obituaries[2]->mCount == 1; }));
    EXPECT_EQ(0, obituaries[1]->mCount);
    mServer->wait();
}

TEST_F(DriverTest, TellsNobodyOfALinkTakenBack) {
    const sp<Obituary> taken = new Obituary();
    const sp<Obituary> stays = new Obituary();
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(OK, mEcho->linkToDeath(taken));
        ASSERT_EQ(OK, mEcho->unlinkToDeath(taken));
    }
    ASSERT_EQ(OK, mEcho->linkToDeath(stays));
    mServer->end(SIGKILL);
    EXPECT_TRUE(waitUntil([&] { return stays->mCount == 1; }));
    EXPECT_EQ(0, taken->mCount);
}

TEST_F(DriverTest, HoldsRecipientsWeakly) {
    wp<Obituary> gone;
    {
        const sp<Obituary> obituary = new Obituary();
        gone = obituary;
        ASSERT_EQ(OK, mEcho->linkToDeath(obituary));
    }
    EXPECT_EQ(nullptr, gone.promote());
    const sp<Obituary> stays = new Obituary();
    ASSERT_EQ(OK, mEcho->linkToDeath(stays));
    mServer->end(SIGKILL);
    EXPECT_TRUE(waitUntil([&] { return stays->mCount == 1; }));
}

// A notice for a proxy that was dropped in the meantime.
TEST_F(DriverTest, SurvivesProxiesThatGoWithTheirLinks) {
    const sp<Obituary> obituary = new Obituary();
    ASSERT_EQ(OK, mEcho->linkToDeath(obituary));
    mServer->end(SIGKILL);
    mEcho.clear();
    start();
    expectEcho();
}

TEST_F(DriverTest, PassesFileDescriptors) {
    const int fd = memfd_create("passed", MFD_CLOEXEC);
    const size_t before = descriptorsOf(mServer->pid());
    for (int i = 0; i < 50; ++i) {
        Parcel request;
        Parcel reply;
        request.writeFileDescriptor(fd);
        request.writeString8(String8("hello"));
        ASSERT_EQ(OK, mEcho->transact(EchoService::kWriteTo, request, &reply));
        EXPECT_EQ(5, reply.readInt32());
    }
    EXPECT_EQ(250, lseek(fd, 0, SEEK_END));
    close(fd);
    // The server closes the last one when its reply is on its way already.
    EXPECT_TRUE(waitUntil([&] { return descriptorsOf(mServer->pid()) == before; }));
}

TEST_F(DriverTest, RefusesWhatIsTooLargeAndGoesOn) {
    Parcel request;
    Parcel reply;
    ASSERT_NE(nullptr, request.writeInplace(size_t{2} * 1024 * 1024));
    EXPECT_EQ(android::FAILED_TRANSACTION, mEcho->transact(EchoService::kEcho, request, &reply));
    EXPECT_EQ(0U, reply.dataSize());
    expectEcho();
    Parcel order;
    order.writeInt32(2 * 1024 * 1024);
    EXPECT_EQ(android::FAILED_TRANSACTION, mEcho->transact(EchoService::kReplyOfSize, order, &reply));
    expectEcho();
    // Large ones that fit, one after the other, on many threads that end.
    for (int i = 0; i < 10; ++i) {
        std::thread([&] {
            Parcel large;
            Parcel answer;
            large.writeInt32(700 * 1024);
            EXPECT_EQ(OK, mEcho->transact(EchoService::kReplyOfSize, large, &answer));
            EXPECT_EQ(700U * 1024, answer.dataSize());
        }).join();
    }
}

TEST_F(DriverTest, ReportsUnknownCodes) {
    Parcel request;
    Parcel reply;
    EXPECT_EQ(UNKNOWN_TRANSACTION, mEcho->transact(4711, request, &reply));
    EXPECT_EQ(OK, mEcho->pingBinder());
    EXPECT_EQ(String16(), mEcho->getInterfaceDescriptor());
    EXPECT_EQ(String16("android.os.IServiceManager"),
              ProcessState::self()->getContextObject()->getInterfaceDescriptor());
}

TEST_F(DriverTest, GrowsThePoolUpToItsLimit) {
    const int32_t before = ask(EchoService::kThreads);
    std::vector<std::thread> sleepers;
    sleepers.reserve(30);
    for (int i = 0; i < 30; ++i) {
        sleepers.emplace_back([&] {
            Parcel request;
            Parcel reply;
            request.writeInt32(500);
            EXPECT_EQ(OK, mEcho->transact(EchoService::kSleep, request, &reply));
        });
    }
    for (std::thread& sleeper : sleepers) {
        sleeper.join();
    }
    const int32_t after = ask(EchoService::kThreads);
    EXPECT_GT(after, before);
    // The pool's first one joined by itself.
    EXPECT_LE(after, static_cast<int32_t>(ProcessState::kDefaultMaxThreads) + 1);
}

TEST_F(DriverTest, SurvivesAClientKilledInTheMiddleOfACall) {
    for (int i = 0; i < 5; ++i) {
        Process client({"--sleep", "300"});
        ASSERT_TRUE(waitUntil([&] { return ask(EchoService::kSleeping) == 1; }));
        client.end(SIGKILL);
        expectEcho();
        // Its reply has nobody to go to.
        EXPECT_TRUE(waitUntil([&] { return ask(EchoService::kSleeping) == 0; }));
        expectEcho();
    }
}

TEST_F(DriverTest, FindsARestartedService) {
    const sp<IBinder> former = mEcho;
    for (int i = 0; i < 3; ++i) {
        mServer->end(SIGKILL);
        start();
        expectEcho();
        EXPECT_NE(former, mEcho);
        EXPECT_EQ(DEAD_OBJECT, former->pingBinder());
    }
}

TEST_F(DriverTest, SurvivesRequestsOfNoise) {
    std::mt19937 random(20);
    for (int round = 0; round < 500; ++round) {
        Parcel request;
        Parcel reply;
        const size_t size = random() % 200;
        auto* const bytes = static_cast<uint8_t*>(request.writeInplace(size));
        for (size_t i = 0; i < size; ++i) {
            bytes[i] = static_cast<uint8_t>(random());
        }
        // Not those that sleep, size or end by what the request says.
        const uint32_t codes[] = {EchoService::kEcho, EchoService::kCallBack,    EchoService::kWriteTo,
                                  EchoService::kKeep, IBinder::DUMP_TRANSACTION, 4711};
        mEcho->transact(codes[random() % std::size(codes)], request, &reply);
    }
    expectEcho();
}

TEST_F(DriverTest, ServiceManagerSpeaksTheClassicProtocol) {
    const sp<IBinder> manager = ProcessState::self()->getContextObject();
    const auto call = [&](uint32_t code, const std::function<void(Parcel&)>& write, Parcel* reply) {
        Parcel request;
        request.writeInt32(0);
        request.writeString16(String16("android.os.IServiceManager"));
        write(request);
        return manager->transact(code, request, reply);
    };
    const sp<IBinder> mine = new BBinder();
    Parcel added;
    EXPECT_EQ(OK, call(
                      3,
                      [&](Parcel& data) {
                          data.writeString16(String16("test.mine"));
                          data.writeStrongBinder(mine);
                          data.writeInt32(0);
                      },
                      &added));
    EXPECT_EQ(0, added.readInt32());
    for (const uint32_t code : {1U, 2U}) {
        Parcel found;
        EXPECT_EQ(OK, call(
                          code, [](Parcel& data) { data.writeString16(String16("test.mine")); }, &found));
        EXPECT_EQ(mine, found.readStrongBinder());
        Parcel missing;
        EXPECT_EQ(OK, call(
                          code, [](Parcel& data) { data.writeString16(String16("test.none")); }, &missing));
        EXPECT_EQ(nullptr, missing.readStrongBinder());
    }
    std::vector<std::string> names;
    for (int32_t index = 0;; ++index) {
        Parcel name;
        if (call(
                4, [&](Parcel& data) { data.writeInt32(index); }, &name) != OK) {
            break;
        }
        names.emplace_back(String8(name.readString16()).string());
    }
    EXPECT_THAT(names, ::testing::ElementsAre("test.echo", "test.mine"));
    Parcel refused;
    Parcel foreign;
    foreign.writeInterfaceToken(String16("another"));
    EXPECT_LT(manager->transact(1, foreign, &refused), 0);
}

TEST_F(DriverTest, ServiceManagerRefusesReplacesAndForgets) {
    const sp<IServiceManager> manager = defaultServiceManager();
    EXPECT_LT(manager->addService(String16(), new BBinder()), 0);
    EXPECT_LT(manager->addService(String16(std::string(128, 'n').c_str()), new BBinder()), 0);
    EXPECT_LT(manager->addService(String16("test.null"), nullptr), 0);
    const sp<IBinder> mine = new BBinder();
    EXPECT_EQ(OK, manager->addService(String16(EchoService::kName), mine));
    EXPECT_EQ(mine, manager->checkService(String16(EchoService::kName)));
    // The former one's death is no news of the present one.
    mServer->end(SIGKILL);
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(mine, manager->checkService(String16(EchoService::kName)));
    start();
    mServer->end(SIGKILL);
    EXPECT_TRUE(waitUntil([&] { return manager->checkService(String16(EchoService::kName)) == nullptr; }));
}

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (!arguments.empty() && arguments[0] == "--serve") {
        return EchoService::serve();
    }
    if (arguments.size() == 2 && arguments[0] == "--sleep") {
        Parcel request;
        Parcel reply;
        request.writeInt32(atoi(arguments[1].c_str()));
        const sp<IBinder> echo = defaultServiceManager()->checkService(String16(EchoService::kName));
        return echo != nullptr && echo->transact(EchoService::kSleep, request, &reply) == OK ? 0 : 1;
    }
    if (!arguments.empty() && arguments[0] == "--outlive-manager") {
        return outliveManager();
    }
    ::testing::InitGoogleTest(&argc, argv);
    ProcessState::self()->startThreadPool();
    const int result = RUN_ALL_TESTS();
    fflush(stdout);
    // The binder threads still run: no destructor of a static object may meet them.
    _exit(result);
}
