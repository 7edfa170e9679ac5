// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The USB service's two registries of clients, and its dump.
 */
#include <android/log.h>
#include <gmock/gmock.h>

#include <thread>

#include "tests/unit/support/ServiceObjectTests.h"
#include "tests/unit/usb_service/UsbServiceFixture.h"
#include "usb/BnUsbHostNotifier.h"
#include "usb/BnUsbManagerNotifier.h"

using android::IBinder;
using android::Parcel;
using android::sp;
using android::wp;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using usb::BnUsbManager;

namespace {

constexpr const char* kTag = "IUsbManager";

using UsbRegistryTest = UsbServiceFixture;
using UsbRegistryDeathTest = UsbServiceFixture;

}  // namespace

/** The USB service and its manager notifiers, for what every service does. */
struct UsbKind : usb::UsbManagerNotifierTraits {
    using Core = FakeUsbCore;
    using NotifierInterface = usb::IUsbManagerNotifier;
    using NativeNotifier = usb::BnUsbManagerNotifier;
    using Recorder = EventRecorder;
    static constexpr const char* kToken = "usb.UsbManager";
    static constexpr const char* kNotifierToken = "usb.UsbManagerNotifier";
    static constexpr const char* kName = "UsbManager";
    static constexpr const char* kFile = "IUsbManager";
    static constexpr const char* kClass = "usb::BnUsbManager";
    static constexpr const char* kCoreClass = "usb::UsbManagerImplItf";
    static constexpr const char* kWapperFile = "UsbManagerNotifierWapper";
    static constexpr const char* kNotifierFile = "IUsbManagerNotifier";
    static constexpr const char* kCoreDump = "core dump\n";
    static constexpr uint32_t kLastCode = 32;
    static constexpr int kStarted = 103;
    static std::vector<std::string> callsOf(Core& core) { return core.takeCalls(); }
};

INSTANTIATE_TYPED_TEST_SUITE_P(UsbServiceTest, ServiceObjectTest, UsbKind);
INSTANTIATE_TYPED_TEST_SUITE_P(UsbServiceDeathTest, ServiceObjectDeathTest, UsbKind);

TEST_F(UsbRegistryTest, AProcessMayHaveOneNotifierOfEachKind) {
    add(remote(mEvents), kClient);
    addHost(remote(mHosts), kClient);
    const sp<EventRecorder> otherEvents = new EventRecorder(7);
    const sp<HostRecorder> otherHosts = new HostRecorder(8);
    add(remote(otherEvents), kOther);
    addHost(remote(otherHosts), kOther);
    mCore->mNotifier->onEvent(9, 0);
    mCore->mHostNotifier->onUsbDeviceAttached(makeUsbDevice(1, 3));
    mCore->mHostNotifier->onUsbDeviceDetached(makeUsbDevice(1, 3));
    mCore->mHostNotifier->onEvent(5, 6);
    for (const sp<EventRecorder>& events : {mEvents, otherEvents}) {
        EXPECT_THAT(events->calls(), ElementsAre("event 9 0"));
    }
    for (const sp<HostRecorder>& hosts : {mHosts, otherHosts}) {
        EXPECT_THAT(hosts->calls(), ElementsAre("attached 1", "detached 1", "event 5 6"));
    }
}

TEST_F(UsbRegistryTest, ResultsAreTheLastClients) {
    EXPECT_EQ(0, mCore->mNotifier->onEvent(1, 0));
    EXPECT_EQ(0, mCore->mHostNotifier->onUsbDeviceAttached(makeUsbDevice(1, 0)));
    add(remote(mEvents), kClient);
    addHost(remote(mHosts), kClient);
    EXPECT_EQ(77, mCore->mNotifier->onEvent(1, 0));
    EXPECT_EQ(78, mCore->mHostNotifier->onUsbDeviceAttached(makeUsbDevice(1, 0)));
    EXPECT_EQ(78, mCore->mHostNotifier->onUsbDeviceDetached(makeUsbDevice(1, 0)));
    EXPECT_EQ(78, mCore->mHostNotifier->onEvent(1, 0));
}

TEST_F(UsbRegistryTest, TheObjectItselfRemovesEachKindAlone) {
    const sp<LoopbackBinder> events = remote(mEvents);
    const sp<LoopbackBinder> hosts = remote(mHosts);
    add(events, kClient);
    addHost(hosts, kClient);
    removeHost(hosts, kClient);
    EXPECT_EQ(0U, hosts->linkCount());
    EXPECT_EQ(1U, events->linkCount());
    EXPECT_THAT(dump({"notifier"}), HasSubstr("notifier size[1]\n"));
    mCore->mHostNotifier->onEvent(1, 2);
    EXPECT_THAT(mHosts->calls(), IsEmpty());
    addHost(hosts, kClient);
    remove(events, kClient);
    EXPECT_EQ(0U, events->linkCount());
    EXPECT_EQ(1U, hosts->linkCount());
    mCore->mNotifier->onEvent(1, 2);
    mCore->mHostNotifier->onEvent(3, 4);
    EXPECT_THAT(mEvents->calls(), IsEmpty());
    EXPECT_THAT(mHosts->calls(), ElementsAre("event 3 4"));
}

TEST_F(UsbRegistryTest, DumpsTheManagerNotifiersOrTheCore) {
    add(remote(sp<EventRecorder>(new EventRecorder())), kOther);
    add(remote(mEvents), kClient);
    addHost(remote(mHosts), kClient);
    EXPECT_THAT(dump({"notifier"}), ::testing::MatchesRegex("-\\[usb\\.UsbManager\\]-\nnotifier size\\[2\\]\n"
                                                            "notifier\\[0x[0-9a-f]{8}\\] pid\\[1001\\] \n"
                                                            "notifier\\[0x[0-9a-f]{8}\\] pid\\[1002\\] \n"));
    EXPECT_EQ("-[usb.UsbManager]-\ncore dump\n", dump({}));
    EXPECT_EQ("-[usb.UsbManager]-\ncore dump\n", dump({"other", "notifier"}));
    EXPECT_THAT(mCore->takeCalls(), ElementsAre("dump 0", "dump 2"));
}

TEST_F(UsbRegistryTest, AManagerNotifiersDeathSparesTheHostNotifier) {
    const sp<LoopbackBinder> dies = remote(mEvents);
    add(dies, kClient);
    addHost(remote(mHosts), kClient);
    dies->die();
    EXPECT_THAT(mLog.take(kTag), ElementsAre(LogLine{ANDROID_LOG_WARN, kTag, "Application PID[1001] die"}));
    EXPECT_THAT(dump({"notifier"}), HasSubstr("notifier size[0]\n"));
    mCore->mNotifier->onEvent(1, 2);
    mCore->mHostNotifier->onEvent(3, 4);
    EXPECT_THAT(mEvents->calls(), IsEmpty());
    EXPECT_THAT(mHosts->calls(), ElementsAre("event 3 4"));
    add(remote(mEvents), kClient);
}

TEST_F(UsbRegistryTest, AHostNotifiersDeathSparesTheManagerNotifier) {
    const sp<LoopbackBinder> dies = remote(mHosts);
    add(remote(mEvents), kClient);
    addHost(dies, kClient);
    dies->die();
    EXPECT_THAT(mLog.take(kTag), ElementsAre(LogLine{ANDROID_LOG_WARN, kTag, "Application PID[1001] die"}));
    EXPECT_THAT(dump({"notifier"}), HasSubstr("notifier size[1]\n"));
    mCore->mNotifier->onEvent(1, 2);
    mCore->mHostNotifier->onEvent(3, 4);
    EXPECT_THAT(mEvents->calls(), ElementsAre("event 1 2"));
    EXPECT_THAT(mHosts->calls(), IsEmpty());
    addHost(remote(mHosts), kClient);
}

TEST_F(UsbRegistryTest, AClientMayDoAnythingToTheRegistryWhileItIsCalled) {
    const sp<LoopbackBinder> events = remote(mEvents);
    mEvents->mInside = [&] {
        std::thread([&] {
            remove(events, kClient);
            addHost(remote(mHosts), kClient);
            EXPECT_THAT(dump({"notifier"}), HasSubstr("notifier size[0]\n"));
        }).join();
    };
    add(events, kClient);
    mCore->mNotifier->onEvent(1, 2);
    EXPECT_THAT(mEvents->calls(), ElementsAre("event 1 2"));
}

TEST_F(UsbRegistryTest, ProxiesLogTheirSizes) {
    const sp<usb::UsbManagerNotifierProxy> events = new usb::UsbManagerNotifierProxy();
    const sp<usb::UsbHostNotifierProxy> hosts = new usb::UsbHostNotifierProxy();
    events->addNotifier(wp<usb::UsbManagerNotifierItf>(mEvents));
    EXPECT_EQ(1U, events->size());
    EXPECT_EQ(0U, hosts->size());
    EXPECT_THAT(mLog.take(),
                ElementsAre(LogLine{ANDROID_LOG_INFO, "UsbManagerNotifierProxy", "notifier size[1]"},
                            LogLine{ANDROID_LOG_INFO, "UsbHostNotifierProxy", "notifier size[0]"}));
}

TEST_F(UsbRegistryTest, GoesWithItsClients) {
    const wp<BnUsbManager> service = mService;
    const sp<LoopbackBinder> events = remote(mEvents);
    const sp<LoopbackBinder> hosts = remote(mHosts);
    add(events, kClient);
    addHost(hosts, kClient);
    mProxy.clear();
    mRemote.clear();
    mService.clear();
    EXPECT_EQ(nullptr, service.promote());
    // Nobody is there to hear of it.
    events->die();
    hosts->die();
}

TEST_F(UsbRegistryDeathTest, SecondHostRegistrationOfAProcess) {
    EXPECT_DEATH(
        {
            addHost(remote(mHosts), kClient);
            addHost(remote(mHosts), kClient);
        },
        "assertion \"index < 0\" failed: file \"IUsbManager\", line [0-9]+, function \"virtual int "
        "usb::BnUsbManager::addHostNotifier\\(const android::sp<android::IBinder>&\\)\"");
}

TEST_F(UsbRegistryDeathTest, RemovalByAnUnregisteredProcess) {
    EXPECT_DEATH(
        {
            addHost(remote(mHosts), kClient);
            remove(remote(mEvents), kClient);
        },
        "assertion \"index >= 0\" failed: file \"IUsbManager\", line [0-9]+, function \"virtual int "
        "usb::BnUsbManager::removeNotifier\\(const android::sp<android::IBinder>&\\)\"");
    EXPECT_DEATH(
        {
            add(remote(mEvents), kClient);
            removeHost(remote(mHosts), kClient);
        },
        "assertion \"index >= 0\" failed: file \"IUsbManager\", line [0-9]+, function \"virtual int "
        "usb::BnUsbManager::removeHostNotifier\\(const android::sp<android::IBinder>&\\)\"");
}

TEST_F(UsbRegistryDeathTest, RemovingAHostNotifierOverTheWireWithoutAManagerNotifier) {
    EXPECT_DEATH(
        {
            addHost(remote(mHosts), kClient);
            mProxy->removeHostNotifier(new usb::BnUsbHostNotifier(mHosts));
        },
        "assertion \"index >= 0\" failed: file \"IUsbManager\", line [0-9]+, function \"virtual int "
        "usb::BnUsbManager::removeNotifier\\(const android::sp<android::IBinder>&\\)\"");
}

TEST_F(UsbRegistryDeathTest, NullHostBinders) {
    const char* const message = "assertion \"notifier.get\\(\\)\" failed: file \"IUsbManager\"";
    EXPECT_DEATH(mService->addHostNotifier(nullptr), message);
    EXPECT_DEATH(mService->removeHostNotifier(nullptr), message);
    EXPECT_DEATH(new usb::UsbHostNotifierWapper(nullptr),
                 "assertion \"notifier.get\\(\\)\" failed: file \"UsbHostNotifierWapper\"");
}

TEST_F(UsbRegistryDeathTest, ARequestWithoutItsBinderCountsAsANullOne) {
    for (const uint32_t code : {1U, 2U, 5U, 6U}) {
        Parcel reply;
        EXPECT_DEATH(transact(code, nullptr, &reply),
                     "assertion \"notifier.get\\(\\)\" failed: file \"IUsbManager\"");
    }
}

TEST_F(UsbRegistryDeathTest, NullHostImplementations) {
    EXPECT_DEATH(new usb::BnUsbHostNotifier(nullptr),
                 "assertion \"impl.get\\(\\)\" failed: file \"IUsbHostNotifier\"");
    EXPECT_DEATH(new usb::UsbHostNotifierDeathRecipient(wp<BnUsbManager>(), 1),
                 "assertion \"manager.get\\(\\)\" failed: file \"IUsbManager\"");
}
