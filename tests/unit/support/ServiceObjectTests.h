// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * What every service object does, whichever manager it serves: the frame of its transactions, its registry of
 * clients, its dump. A program instantiates both suites for its service with a class like
 *
 *     struct DeviceKind : device::DeviceNotifierTraits {  // for the service's types
 *         using Core = ...;               // of the test's: has mNotifier, and its startup() is kStarted
 *         using NotifierInterface = ...;  // the clients' binder interface,
 *         using NativeNotifier = ...;     // its native side,
 *         using Recorder = ...;           // and a notifier behind that, with calls() and mInside
 *         static constexpr const char* kToken = ...;          // of the service's interface
 *         static constexpr const char* kNotifierToken = ...;  // of NotifierInterface
 *         static constexpr const char* kName = ...;           // under which the service is registered
 *         static constexpr const char* kFile = ...;           // in its assertions
 *         static constexpr const char* kClass = ...;          // its own name there,
 *         static constexpr const char* kCoreClass = ...;      // that of its core's interface,
 *         static constexpr const char* kWapperFile = ...;     // the file of its wrapper
 *         static constexpr const char* kNotifierFile = ...;   // and that of NativeNotifier
 *         static constexpr const char* kCoreDump = ...;       // what Core dumps
 *         static constexpr uint32_t kLastCode = ...;
 *         static constexpr int kStarted = ...;
 *         static std::vector<std::string> callsOf(Core& core);  // what it was asked; "dump COUNT"
 *     };
 */

#include <android/log.h>
#include <gmock/gmock.h>

#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "tests/unit/support/ServiceFixture.h"

template <typename Kind>
class ServiceObjectTest
    : public ServiceFixture<typename Kind::Manager, typename Kind::Interface, typename Kind::Core> {
  protected:
    using Fixture = ServiceFixture<typename Kind::Manager, typename Kind::Interface, typename Kind::Core>;
    using Recorder = typename Kind::Recorder;
    using NativeNotifier = typename Kind::NativeNotifier;

    android::status_t transact(uint32_t code, const typename Fixture::Writer& write, android::Parcel* reply,
                               const char* token = Kind::kToken) {
        return Fixture::transact(code, write, reply, token);
    }

    /** A client's notifier as the service sees it from another process. */
    static android::sp<LoopbackBinder> remoteNotifier(const android::sp<Recorder>& recorder) {
        return new LoopbackBinder(new NativeNotifier(recorder), getpid());
    }

    /** One of nobody's. */
    static android::sp<LoopbackBinder> remoteNotifier() { return remoteNotifier(new Recorder()); }

    static std::string escaped(const std::string& text) {
        static const std::regex kSpecial(R"([.\[\](){}*+?^$|\\])");
        return std::regex_replace(text, kSpecial, R"(\$&)");
    }

    /** The line of a failed assertion, as a regular expression. */
    static std::string assertion(const std::string& condition, const std::string& file,
                                 const std::string& function = "") {
        const std::string head = "assertion \"" + escaped(condition) + "\" failed: file \"" + file + "\"";
        return function.empty() ? head : head + ", line [0-9]+, function \"" + escaped(function) + "\"";
    }

    static std::string assertionOf(const std::string& operation, const std::string& condition) {
        return assertion(condition, Kind::kFile,
                         std::string("virtual int ") + Kind::kClass + "::" + operation +
                             "(const android::sp<android::IBinder>&)");
    }

    android::sp<Recorder> mRecorder = new Recorder(77);
};

template <typename Kind>
class ServiceObjectDeathTest : public ServiceObjectTest<Kind> {};

TYPED_TEST_SUITE_P(ServiceObjectTest);
TYPED_TEST_SUITE_P(ServiceObjectDeathTest);

TYPED_TEST_P(ServiceObjectTest, ProxiesAndDescriptors) {
    using Interface = typename TypeParam::Interface;
    const android::sp<android::IBinder> local = this->mService;
    EXPECT_EQ(android::String16(TypeParam::kToken), Interface::descriptor);
    EXPECT_EQ(android::String16(TypeParam::kNotifierToken), TypeParam::NotifierInterface::descriptor);
    EXPECT_STREQ(TypeParam::kName, Interface::kServiceName);
    EXPECT_NE(this->mService.get(), static_cast<Interface*>(this->mProxy.get()));
    EXPECT_EQ(this->mService, android::interface_cast<Interface>(local));
    EXPECT_EQ(nullptr, android::interface_cast<Interface>(nullptr));
    EXPECT_EQ(android::sp<android::IBinder>(this->mRemote), android::IInterface::asBinder(this->mProxy));
    EXPECT_NE(nullptr, this->mCore->mNotifier);
}

TYPED_TEST_P(ServiceObjectTest, RegistersAndRemovesOverTheWire) {
    const android::sp<android::IBinder> notifier = new typename TypeParam::NativeNotifier(this->mRecorder);
    for (const uint32_t code : {1U, 2U}) {
        android::Parcel reply;
        const auto write = [&](android::Parcel& request) { request.writeStrongBinder(notifier); };
        EXPECT_EQ(android::OK, this->transact(code, write, &reply));
        EXPECT_EQ(0, reply.readInt32());
        EXPECT_EQ(0, reply.readInt32());
        EXPECT_EQ(0U, reply.dataAvail());
        EXPECT_THAT(this->dump({"notifier"}),
                    ::testing::HasSubstr(code == 1 ? "notifier size[1]" : "notifier size[0]"));
    }
}

TYPED_TEST_P(ServiceObjectTest, RefusesAnotherInterfacesToken) {
    for (uint32_t code = 1; code <= TypeParam::kLastCode; ++code) {
        for (const char* token : {TypeParam::kNotifierToken, "some.OtherManager", ""}) {
            android::Parcel reply;
            EXPECT_EQ(-1, this->transact(code, nullptr, &reply, token));
            EXPECT_EQ(0, reply.readInt32());
            EXPECT_EQ(0U, reply.dataAvail());
        }
        android::Parcel empty;
        android::Parcel answer;
        EXPECT_EQ(-1, this->mService->transact(code, empty, &answer));
        EXPECT_EQ(sizeof(int32_t), answer.dataSize());
    }
    EXPECT_THAT(TypeParam::callsOf(*this->mCore), ::testing::IsEmpty());
}

TYPED_TEST_P(ServiceObjectTest, LeavesOtherCodesToTheBaseClassBehindAZero) {
    for (const uint32_t code : {0U, TypeParam::kLastCode + 1, 4711U, 0xffffffffU}) {
        android::Parcel reply;
        EXPECT_EQ(android::UNKNOWN_TRANSACTION, this->transact(code, nullptr, &reply)) << code;
        EXPECT_EQ(0, reply.readInt32());
        EXPECT_EQ(0U, reply.dataAvail());
    }
    android::Parcel ping;
    EXPECT_EQ(android::OK, this->transact(android::IBinder::PING_TRANSACTION, nullptr, &ping));
    EXPECT_EQ(0, ping.readInt32());
    android::Parcel interface;
    EXPECT_EQ(android::OK, this->transact(android::IBinder::INTERFACE_TRANSACTION, nullptr, &interface));
    EXPECT_EQ(0, interface.readInt32());
    EXPECT_EQ(android::String16(TypeParam::kToken), interface.readString16());
}

TYPED_TEST_P(ServiceObjectTest, NeedsNoReplyParcel) {
    EXPECT_EQ(android::OK, this->transact(3, nullptr, nullptr));
    EXPECT_EQ(android::UNKNOWN_TRANSACTION, this->transact(TypeParam::kLastCode + 1, nullptr, nullptr));
}

TYPED_TEST_P(ServiceObjectTest, StartsOverTheWireWhateverTheExceptionCode) {
    EXPECT_EQ(TypeParam::kStarted, this->mProxy->startup());
    this->mRemote->onReply([](android::status_t* /*status*/, android::Parcel* reply) {
        reply->freeData();
        reply->writeInt32(-5);
        reply->writeInt32(123);
        reply->setDataPosition(0);
    });
    EXPECT_EQ(123, this->mProxy->startup());
}

TYPED_TEST_P(ServiceObjectTest, DumpsTheRegistryOrTheCore) {
    this->add(this->remoteNotifier(), this->kOther);
    this->add(this->remoteNotifier(this->mRecorder), this->kClient);
    const std::string head = std::string("-[") + TypeParam::kToken + "]-\n";
    EXPECT_THAT(
        this->dump({"notifier"}),
        ::testing::MatchesRegex(this->escaped(head) + "notifier size\\[2\\]\n"
                                                      "notifier\\[0x[0-9a-f]{8}\\] pid\\[1001\\] \n"
                                                      "notifier\\[0x[0-9a-f]{8}\\] pid\\[1002\\] \n"));
    EXPECT_EQ(head + TypeParam::kCoreDump, this->dump({}));
    EXPECT_EQ(head + TypeParam::kCoreDump, this->dump({"other", "notifier"}));
    EXPECT_THAT(TypeParam::callsOf(*this->mCore), ::testing::ElementsAre("dump 0", "dump 2"));
}

TYPED_TEST_P(ServiceObjectTest, RemovesTheCallersEntryWhateverBinderItPasses) {
    const android::sp<LoopbackBinder> registered = this->remoteNotifier(this->mRecorder);
    this->add(registered, this->kClient);
    EXPECT_EQ(1U, registered->linkCount());
    this->remove(this->remoteNotifier(), this->kClient);
    // The link was to be taken from the binder that was passed.
    EXPECT_EQ(1U, registered->linkCount());
    EXPECT_THAT(this->dump({"notifier"}), ::testing::HasSubstr("notifier size[0]\n"));
    this->mCore->mNotifier->onEvent(1, 2);
    EXPECT_THAT(this->mRecorder->calls(), ::testing::IsEmpty());
}

TYPED_TEST_P(ServiceObjectTest, RemovalTakesTheDeathLinkBack) {
    const android::sp<LoopbackBinder> notifier = this->remoteNotifier(this->mRecorder);
    this->add(notifier, this->kClient);
    this->remove(notifier, this->kClient);
    EXPECT_EQ(0U, notifier->linkCount());
    notifier->die();
    EXPECT_THAT(this->mLog.take(TypeParam::kFile), ::testing::IsEmpty());
}

// Entries that stayed would be few in a test and many in years of clients that come and go.
TYPED_TEST_P(ServiceObjectTest, WhoGoesLeavesNothingInTheFanOut) {
    auto* const fanOut = dynamic_cast<typename TypeParam::Proxy*>(this->mCore->mNotifier.get());
    ASSERT_NE(nullptr, fanOut);
    const android::sp<LoopbackBinder> dies = this->remoteNotifier();
    const android::sp<LoopbackBinder> leaves = this->remoteNotifier(this->mRecorder);
    const android::sp<LoopbackBinder> dead = this->remoteNotifier();
    dead->die();
    this->add(dies, this->kClient);
    this->add(leaves, this->kOther);
    this->add(dead, this->kOther + 1);
    EXPECT_EQ(2U, fanOut->size());
    dies->die();
    EXPECT_EQ(1U, fanOut->size());
    this->remove(leaves, this->kOther);
    EXPECT_EQ(0U, fanOut->size());
}

TYPED_TEST_P(ServiceObjectTest, DropsAClientThatDies) {
    const android::sp<LoopbackBinder> dies = this->remoteNotifier(this->mRecorder);
    const android::sp<typename TypeParam::Recorder> other = new typename TypeParam::Recorder();
    this->add(dies, this->kClient);
    this->add(this->remoteNotifier(other), this->kOther);
    dies->die();
    EXPECT_THAT(
        this->mLog.take(TypeParam::kFile),
        ::testing::ElementsAre(LogLine{ANDROID_LOG_WARN, TypeParam::kFile, "Application PID[1001] die"}));
    EXPECT_THAT(this->dump({"notifier"}), ::testing::HasSubstr("notifier size[1]\n"));
    EXPECT_THAT(this->dump({"notifier"}), ::testing::HasSubstr("pid[1002] \n"));
    this->mCore->mNotifier->onEvent(1, 2);
    EXPECT_THAT(other->calls(), ::testing::ElementsAre("event 1 2"));
    EXPECT_THAT(this->mRecorder->calls(), ::testing::IsEmpty());
    // The pid may be used again.
    this->add(this->remoteNotifier(this->mRecorder), this->kClient);
}

// The notice of a death that crossed a removal found nothing, and ended the daemon.
TYPED_TEST_P(ServiceObjectTest, LateNoticeAfterRemovalDoesNothing) {
    const android::sp<LoopbackBinder> registered = this->remoteNotifier(this->mRecorder);
    this->add(registered, this->kClient);
    this->remove(this->remoteNotifier(), this->kClient);
    registered->die();
    EXPECT_THAT(this->dump({"notifier"}), ::testing::HasSubstr("notifier size[0]\n"));
}

// The notice of a dead client took the entry of a newer one with the same pid.
TYPED_TEST_P(ServiceObjectTest, LateNoticeSparesANewClientWithTheSamePid) {
    const android::sp<LoopbackBinder> former = this->remoteNotifier();
    this->add(former, this->kClient);
    this->remove(this->remoteNotifier(), this->kClient);
    this->add(this->remoteNotifier(this->mRecorder), this->kClient);
    former->die();
    EXPECT_THAT(this->dump({"notifier"}), ::testing::HasSubstr("notifier size[1]\n"));
    this->mCore->mNotifier->onEvent(1, 2);
    EXPECT_EQ(1U, this->mRecorder->calls().size());
}

// As above, with the notice under way already as the first registration goes: its recipient lives still.
TYPED_TEST_P(ServiceObjectTest, ANoticeUnderWaySparesANewClientWithTheSamePid) {
    this->add(this->remoteNotifier(this->mRecorder), this->kClient);
    const android::sp<android::IBinder::DeathRecipient> former =
        new typename TypeParam::DeathRecipient(this->mService, this->kClient);
    former->binderDied(android::wp<android::IBinder>());
    EXPECT_THAT(
        this->mLog.take(TypeParam::kFile),
        ::testing::ElementsAre(LogLine{ANDROID_LOG_WARN, TypeParam::kFile, "Application PID[1001] die"}));
    EXPECT_THAT(this->dump({"notifier"}), ::testing::HasSubstr("notifier size[1]\n"));
    this->mCore->mNotifier->onEvent(1, 2);
    EXPECT_EQ(1U, this->mRecorder->calls().size());
}

// The entry of a client that was dead before it was linked stayed for ever, and its pid with it.
TYPED_TEST_P(ServiceObjectTest, DropsAClientThatIsDeadAlready) {
    const android::sp<LoopbackBinder> notifier = this->remoteNotifier(this->mRecorder);
    notifier->die();
    this->add(notifier, this->kClient);
    EXPECT_THAT(this->dump({"notifier"}), ::testing::HasSubstr("notifier size[0]\n"));
    this->add(this->remoteNotifier(this->mRecorder), this->kClient);
}

TYPED_TEST_P(ServiceObjectTest, ANotifierMayBeRemovedAndDumpedWhileAClientIsCalled) {
    const android::sp<LoopbackBinder> notifier = this->remoteNotifier(this->mRecorder);
    this->mRecorder->mInside = [&] {
        std::thread([&] {
            this->remove(notifier, this->kClient);
            this->add(this->remoteNotifier(), this->kOther);
            EXPECT_THAT(this->dump({"notifier"}), ::testing::HasSubstr("notifier size[1]\n"));
        }).join();
    };
    this->add(notifier, this->kClient);
    this->mCore->mNotifier->onEvent(1, 2);
    EXPECT_THAT(this->mRecorder->calls(), ::testing::ElementsAre("event 1 2"));
}

TYPED_TEST_P(ServiceObjectTest, ManyClientsComeGoAndDieAtOnce) {
    constexpr int kClients = 4;
    constexpr int kRounds = 100;
    std::vector<std::thread> clients;
    clients.reserve(kClients);
    for (int client = 0; client < kClients; ++client) {
        clients.emplace_back([this, pid = this->kClient + client] {
            for (int round = 0; round < kRounds; ++round) {
                const android::sp<LoopbackBinder> notifier = this->remoteNotifier(this->mRecorder);
                this->add(notifier, pid);
                if (round % 2 == 0) {
                    notifier->die();
                } else {
                    this->remove(notifier, pid);
                }
            }
        });
    }
    for (int round = 0; round < kRounds; ++round) {
        this->mCore->mNotifier->onEvent(1, round);
        EXPECT_THAT(this->dump({"notifier"}), ::testing::HasSubstr("notifier size["));
    }
    for (std::thread& client : clients) {
        client.join();
    }
    EXPECT_THAT(this->dump({"notifier"}), ::testing::HasSubstr("notifier size[0]\n"));
    const size_t heard = this->mRecorder->calls().size();
    this->mCore->mNotifier->onEvent(1, 2);
    EXPECT_EQ(heard, this->mRecorder->calls().size());
}

TYPED_TEST_P(ServiceObjectTest, GoesWithItsClients) {
    const android::wp<typename TypeParam::Manager> service = this->mService;
    const android::sp<LoopbackBinder> notifier = this->remoteNotifier(this->mRecorder);
    this->add(notifier, this->kClient);
    this->mRecorder.clear();
    this->mProxy.clear();
    this->mRemote.clear();
    this->mService.clear();
    EXPECT_EQ(nullptr, service.promote());
    // Nobody is there to hear of it.
    notifier->die();
}

REGISTER_TYPED_TEST_SUITE_P(ServiceObjectTest, ProxiesAndDescriptors, RegistersAndRemovesOverTheWire,
                            RefusesAnotherInterfacesToken, LeavesOtherCodesToTheBaseClassBehindAZero,
                            NeedsNoReplyParcel, StartsOverTheWireWhateverTheExceptionCode,
                            DumpsTheRegistryOrTheCore, RemovesTheCallersEntryWhateverBinderItPasses,
                            RemovalTakesTheDeathLinkBack, DropsAClientThatDies,
                            LateNoticeAfterRemovalDoesNothing, LateNoticeSparesANewClientWithTheSamePid,
                            DropsAClientThatIsDeadAlready, ANotifierMayBeRemovedAndDumpedWhileAClientIsCalled,
                            WhoGoesLeavesNothingInTheFanOut, ANoticeUnderWaySparesANewClientWithTheSamePid,
                            ManyClientsComeGoAndDieAtOnce, GoesWithItsClients);

TYPED_TEST_P(ServiceObjectDeathTest, SecondRegistrationOfAProcess) {
    EXPECT_DEATH(
        {
            this->add(this->remoteNotifier(this->mRecorder), this->kClient);
            this->add(this->remoteNotifier(this->mRecorder), this->kClient);
        },
        this->assertionOf("addNotifier", "index < 0"));
}

TYPED_TEST_P(ServiceObjectDeathTest, RemovalByAnUnregisteredProcess) {
    EXPECT_DEATH(
        {
            this->add(this->remoteNotifier(this->mRecorder), this->kOther);
            this->remove(this->remoteNotifier(this->mRecorder), this->kClient);
        },
        this->assertionOf("removeNotifier", "index >= 0"));
}

TYPED_TEST_P(ServiceObjectDeathTest, NullBinders) {
    EXPECT_DEATH(this->mService->addNotifier(nullptr), this->assertionOf("addNotifier", "notifier.get()"));
    EXPECT_DEATH(this->mService->removeNotifier(nullptr),
                 this->assertionOf("removeNotifier", "notifier.get()"));
    EXPECT_DEATH(new typename TypeParam::Wapper(nullptr),
                 this->assertion("notifier.get()", TypeParam::kWapperFile));
}

TYPED_TEST_P(ServiceObjectDeathTest, NullImplementations) {
    const std::string name = TypeParam::kClass;
    EXPECT_DEATH(new typename TypeParam::Manager(nullptr),
                 this->assertion("impl.get()", TypeParam::kFile,
                                 name + "::" + name.substr(name.rfind(':') + 1) + "(const android::sp<" +
                                     TypeParam::kCoreClass + ">&)"));
    EXPECT_DEATH(new typename TypeParam::NativeNotifier(nullptr),
                 this->assertion("impl.get()", TypeParam::kNotifierFile));
    EXPECT_DEATH(new typename TypeParam::DeathRecipient(android::wp<typename TypeParam::Manager>(), 1),
                 this->assertion("manager.get()", TypeParam::kFile));
}

REGISTER_TYPED_TEST_SUITE_P(ServiceObjectDeathTest, SecondRegistrationOfAProcess,
                            RemovalByAnUnregisteredProcess, NullBinders, NullImplementations);
