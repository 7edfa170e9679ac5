// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The service object on its wire: parcels field by field, the registry, the dump.
 */
#include <android/log.h>
#include <binder/Parcel.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <thread>

#include "device/BnDeviceManager.h"
#include "device/BnDeviceManagerNotifier.h"
#include "device/BpDeviceManager.h"
#include "device/BpDeviceManagerNotifier.h"
#include "device/Device.h"
#include "device/DeviceParcel.h"
#include "tests/unit/device/Recorder.h"
#include "tests/unit/support/LoopbackBinder.h"
#include "tests/unit/support/ServiceFixture.h"

using android::BBinder;
using android::IBinder;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using android::String8;
using android::UNKNOWN_TRANSACTION;
using android::Vector;
using android::wp;
using device::BnDeviceManager;
using device::BnDeviceManagerNotifier;
using device::BpDeviceManager;
using device::BpDeviceManagerNotifier;
using device::Device;
using device::DeviceItf;
using device::IDeviceManager;
using device::IDeviceManagerNotifier;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

/** A core that remembers what it is asked and answers what the test says. */
class FakeCore : public device::DeviceManagerImplItf {
  public:
    int startup() override { return note("startup", 11); }
    int shutdown() override { return note("shutdown", 12); }
    int setNotifier(const sp<device::DeviceManagerNotifierItf>& notifier) override {
        mNotifier = notifier;
        return 0;
    }
    sp<DeviceItf> getDevice(const String8& subsystem, const String8& devName) override {
        note(std::string("getDevice ") + subsystem.string() + " " + devName.string(), 0);
        return mDevice;
    }
    Vector<sp<DeviceItf>> getDevices(const String8& path) override {
        note(std::string("getDevices ") + path.string(), 0);
        return mDevices;
    }
    String8 getDevicePath(int type, int id) override {
        note("getDevicePath " + std::to_string(type) + " " + std::to_string(id), 0);
        return String8("/devices/controller");
    }
    int dump(const Vector<String16>& args, String8& result) override {
        result.append("core dump\n");
        return note("dump " + std::to_string(args.size()), 0);
    }

    sp<device::DeviceManagerNotifierItf> mNotifier;
    sp<DeviceItf> mDevice;
    Vector<sp<DeviceItf>> mDevices;
    std::vector<std::string> mCalls;

  private:
    int note(const std::string& call, int result) {
        mCalls.push_back(call);
        return result;
    }
};

sp<DeviceItf> makeDevice(const std::string& path, int params) {
    const sp<DeviceItf> device = new Device();
    device->setPath(path.c_str());
    device->setSubsystem("block");
    for (int i = 0; i < params; ++i) {
        device->addParam(("KEY" + std::to_string(i)).c_str(), ("value " + std::to_string(i)).c_str());
    }
    return device;
}

void expectEqual(const sp<DeviceItf>& expected, const sp<DeviceItf>& actual) {
    ASSERT_NE(nullptr, actual);
    EXPECT_NE(expected, actual);
    EXPECT_EQ(expected->getPath(), actual->getPath());
    EXPECT_EQ(expected->getSubsystem(), actual->getSubsystem());
    ASSERT_EQ(expected->getParamSize(), actual->getParamSize());
    for (size_t i = 0; i < expected->getParamSize(); ++i) {
        EXPECT_EQ(expected->getParamName(i), actual->getParamName(i));
        EXPECT_EQ(expected->getParamValue(i), actual->getParamValue(i));
    }
}

class DeviceServiceTest : public ServiceFixture<BnDeviceManager, IDeviceManager, FakeCore> {
  protected:
    status_t transact(uint32_t code, const Writer& write, Parcel* reply,
                      const char* token = "device.DeviceManager") {
        return ServiceFixture::transact(code, write, reply, token);
    }

    /** A client's notifier as the service sees it from another process. */
    static sp<LoopbackBinder> remoteNotifier(const sp<Recorder>& recorder) {
        return new LoopbackBinder(new BnDeviceManagerNotifier(recorder), getpid());
    }

    sp<Recorder> mRecorder = new Recorder(77);
};

using DeviceServiceDeathTest = DeviceServiceTest;

}  // namespace

TEST_F(DeviceServiceTest, ProxiesAndDescriptors) {
    EXPECT_EQ(String16("device.DeviceManager"), IDeviceManager::descriptor);
    EXPECT_EQ(String16("device.DeviceManagerNotifier"), IDeviceManagerNotifier::descriptor);
    EXPECT_NE(mService.get(), static_cast<IDeviceManager*>(mProxy.get()));
    EXPECT_EQ(mService, android::interface_cast<IDeviceManager>(sp<IBinder>(mService)));
    EXPECT_EQ(nullptr, android::interface_cast<IDeviceManager>(nullptr));
    EXPECT_EQ(sp<IBinder>(mRemote), android::IInterface::asBinder(mProxy));
    EXPECT_NE(nullptr, mCore->mNotifier);
}

TEST_F(DeviceServiceTest, RepliesFieldByField) {
    Parcel startup;
    EXPECT_EQ(OK, transact(3, nullptr, &startup));
    EXPECT_EQ(0, startup.readInt32());
    EXPECT_EQ(11, startup.readInt32());
    EXPECT_EQ(0U, startup.dataAvail());

    Parcel shutdown;
    EXPECT_EQ(OK, transact(4, nullptr, &shutdown));
    EXPECT_EQ(0, shutdown.readInt32());
    EXPECT_EQ(12, shutdown.readInt32());
    EXPECT_EQ(0U, shutdown.dataAvail());

    Parcel path;
    EXPECT_EQ(OK, transact(
                      7, [](Parcel& request) { request.writeInt32(2), request.writeInt32(-1); }, &path));
    EXPECT_EQ(0, path.readInt32());
    EXPECT_EQ(String8("/devices/controller"), path.readString8());
    EXPECT_EQ(0U, path.dataAvail());
    EXPECT_THAT(mCore->mCalls, ElementsAre("startup", "shutdown", "getDevicePath 2 -1"));
}

TEST_F(DeviceServiceTest, RepliesADeviceFieldByField) {
    const auto request = [](Parcel& data) {
        data.writeString8(String8("block"));
        data.writeString8(String8("sda"));
    };
    Parcel none;
    EXPECT_EQ(OK, transact(5, request, &none));
    EXPECT_EQ(0, none.readInt32());
    EXPECT_EQ(0, none.readInt32());
    EXPECT_EQ(0U, none.dataAvail());

    mCore->mDevice = makeDevice("/devices/x", 2);
    Parcel reply;
    EXPECT_EQ(OK, transact(5, request, &reply));
    EXPECT_EQ(0, reply.readInt32());
    EXPECT_EQ(1, reply.readInt32());
    EXPECT_EQ(String8("/devices/x"), reply.readString8());
    EXPECT_EQ(String8("block"), reply.readString8());
    EXPECT_EQ(2, reply.readInt32());
    EXPECT_EQ(String8("KEY0"), reply.readString8());
    EXPECT_EQ(String8("value 0"), reply.readString8());
    EXPECT_EQ(String8("KEY1"), reply.readString8());
    EXPECT_EQ(String8("value 1"), reply.readString8());
    EXPECT_EQ(0U, reply.dataAvail());
    EXPECT_THAT(mCore->mCalls, ElementsAre("getDevice block sda", "getDevice block sda"));
}

TEST_F(DeviceServiceTest, RepliesDevicesFieldByField) {
    mCore->mDevices.add(makeDevice("/devices/1", 0));
    mCore->mDevices.add(makeDevice("/devices/2", 0));
    Parcel reply;
    EXPECT_EQ(OK, transact(
                      6, [](Parcel& request) { request.writeString8(String8("/devices/1/2")); }, &reply));
    EXPECT_EQ(0, reply.readInt32());
    EXPECT_EQ(2, reply.readInt32());
    for (const char* path : {"/devices/1", "/devices/2"}) {
        EXPECT_EQ(String8(path), reply.readString8());
        EXPECT_EQ(String8("block"), reply.readString8());
        EXPECT_EQ(0, reply.readInt32());
    }
    EXPECT_EQ(0U, reply.dataAvail());
    EXPECT_THAT(mCore->mCalls, ElementsAre("getDevices /devices/1/2"));
}

TEST_F(DeviceServiceTest, RegistersAndRemovesOverTheWire) {
    const sp<BnDeviceManagerNotifier> notifier = new BnDeviceManagerNotifier(mRecorder);
    for (const uint32_t code : {1U, 2U}) {
        Parcel reply;
        EXPECT_EQ(OK, transact(
                          code, [&](Parcel& request) { request.writeStrongBinder(notifier); }, &reply));
        EXPECT_EQ(0, reply.readInt32());
        EXPECT_EQ(0, reply.readInt32());
        EXPECT_EQ(0U, reply.dataAvail());
        EXPECT_THAT(dump({"notifier"}), HasSubstr(code == 1 ? "notifier size[1]" : "notifier size[0]"));
    }
}

TEST_F(DeviceServiceTest, RefusesAnotherInterfacesToken) {
    for (uint32_t code = 1; code <= 7; ++code) {
        Parcel reply;
        EXPECT_EQ(-1, transact(code, nullptr, &reply, "device.DeviceManagerNotifier"));
        EXPECT_EQ(0, reply.readInt32());
        EXPECT_EQ(0U, reply.dataAvail());
        Parcel empty;
        Parcel answer;
        EXPECT_EQ(-1, mService->transact(code, empty, &answer));
        EXPECT_EQ(sizeof(int32_t), answer.dataSize());
    }
    EXPECT_TRUE(mCore->mCalls.empty());
}

TEST_F(DeviceServiceTest, LeavesOtherCodesToTheBaseClassBehindAZero) {
    for (const uint32_t code : {0U, 8U, 4711U, 0xffffffffU}) {
        Parcel reply;
        EXPECT_EQ(UNKNOWN_TRANSACTION, transact(code, nullptr, &reply)) << code;
        EXPECT_EQ(0, reply.readInt32());
        EXPECT_EQ(0U, reply.dataAvail());
    }
    Parcel ping;
    EXPECT_EQ(OK, transact(IBinder::PING_TRANSACTION, nullptr, &ping));
    EXPECT_EQ(0, ping.readInt32());
    Parcel interface;
    EXPECT_EQ(OK, transact(IBinder::INTERFACE_TRANSACTION, nullptr, &interface));
    EXPECT_EQ(0, interface.readInt32());
    EXPECT_EQ(String16("device.DeviceManager"), interface.readString16());
}

TEST_F(DeviceServiceTest, NeedsNoReplyParcel) {
    EXPECT_EQ(OK, transact(3, nullptr, nullptr));
    EXPECT_EQ(UNKNOWN_TRANSACTION, transact(8, nullptr, nullptr));
}

TEST_F(DeviceServiceTest, AnswersRequestsThatAreCutShortWithAnError) {
    const std::vector<std::pair<uint32_t, std::function<void(Parcel&)>>> requests = {
        {5, [](Parcel& data) { data.writeString8(String8("block")), data.writeString8(String8("sda")); }},
        {6, [](Parcel& data) { data.writeString8(String8("/devices/1")); }},
        {7, [](Parcel& data) { data.writeInt32(1), data.writeInt32(2); }},
    };
    for (const auto& [code, write] : requests) {
        Parcel whole;
        writeToken(whole, "device.DeviceManager");
        const size_t head = whole.dataSize();
        write(whole);
        for (size_t size = 0; size < whole.dataSize(); ++size) {
            Parcel cut;
            cut.setData(whole.data(), size);
            Parcel reply;
            const status_t status = mService->transact(code, cut, &reply);
            EXPECT_LT(status, 0) << "code " << code << " cut to " << size;
            if (size < head) {
                EXPECT_EQ(-1, status);
            }
        }
    }
    EXPECT_TRUE(mCore->mCalls.empty());
}

TEST_F(DeviceServiceTest, ProxyCallsEveryOperation) {
    mCore->mDevice = makeDevice("/devices/x", 31);
    mCore->mDevices.add(makeDevice("/devices/1", 0));
    mCore->mDevices.add(makeDevice("/devices/2", 3));
    EXPECT_EQ(11, mProxy->startup());
    EXPECT_EQ(12, mProxy->shutdown());
    expectEqual(mCore->mDevice, mProxy->getDevice(String8("block"), String8("sda")));
    const Vector<sp<DeviceItf>> devices = mProxy->getDevices(String8("/devices/1/2"));
    ASSERT_EQ(2U, devices.size());
    expectEqual(mCore->mDevices[0], devices[0]);
    expectEqual(mCore->mDevices[1], devices[1]);
    EXPECT_EQ(String8("/devices/controller"), mProxy->getDevicePath(1, 2));
    const sp<BnDeviceManagerNotifier> notifier = new BnDeviceManagerNotifier(mRecorder);
    EXPECT_EQ(0, mProxy->addNotifier(notifier));
    EXPECT_THAT(dump({"notifier"}), HasSubstr("pid[1001] \n"));
    EXPECT_EQ(0, mProxy->removeNotifier(notifier));
    EXPECT_THAT(mCore->mCalls, ElementsAre("startup", "shutdown", "getDevice block sda",
                                           "getDevices /devices/1/2", "getDevicePath 1 2"));
}

TEST_F(DeviceServiceTest, ProxyReadsZerosWhenTheCallFails) {
    mCore->mDevice = makeDevice("/devices/x", 1);
    mRemote->die();
    EXPECT_EQ(0, mProxy->startup());
    EXPECT_EQ(nullptr, mProxy->getDevice(String8("block"), String8("sda")));
    EXPECT_TRUE(mProxy->getDevices(String8("/devices")).isEmpty());
    EXPECT_EQ(String8(), mProxy->getDevicePath(1, 0));
}

TEST_F(DeviceServiceTest, ProxyIgnoresTheExceptionCode) {
    mRemote->onReply([](status_t* /*status*/, Parcel* reply) {
        reply->freeData();
        reply->writeInt32(-5);
        reply->writeInt32(123);
        reply->setDataPosition(0);
    });
    EXPECT_EQ(123, mProxy->startup());
}

TEST_F(DeviceServiceTest, ProxySurvivesHostileReplies) {
    mCore->mDevice = makeDevice("/devices/x", 2);
    mCore->mDevices.add(mCore->mDevice);
    size_t size = 0;
    mRemote->onReply([&size](status_t* /*status*/, Parcel* reply) {
        const std::vector<uint8_t> whole(reply->data(), reply->data() + reply->dataSize());
        reply->setData(whole.data(), std::min(size, whole.size()));
    });
    for (size = 0; size < 8; ++size) {
        EXPECT_EQ(nullptr, mProxy->getDevice(String8("block"), String8("sda")));
    }
    for (size = 0; size < 100; ++size) {
        mProxy->getDevice(String8("block"), String8("sda"));
        EXPECT_LE(mProxy->getDevices(String8("/devices/x/y")).size(), 1U);
    }
    // Counts that the parcel cannot hold.
    mRemote->onReply([](status_t* /*status*/, Parcel* reply) {
        reply->freeData();
        reply->writeInt32(0);
        reply->writeInt32(INT32_MAX);
        reply->setDataPosition(0);
    });
    EXPECT_TRUE(mProxy->getDevices(String8("/devices/x")).isEmpty());
    EXPECT_EQ(nullptr, mProxy->getDevice(String8("block"), String8("sda")));
}

TEST(DeviceParcelTest, ReadsBackWhatWasWritten) {
    for (const int params : {0, 1, 32}) {
        Parcel parcel;
        const sp<DeviceItf> device = makeDevice("/devices/x", params);
        EXPECT_EQ(OK, device::writeDevice(parcel, *device));
        parcel.setDataPosition(0);
        expectEqual(device, device::readDevice(parcel));
        EXPECT_EQ(0U, parcel.dataAvail());
    }
}

TEST(DeviceParcelTest, ReadsNothingFromACutRecord) {
    Parcel whole;
    device::writeDevice(whole, *makeDevice("/devices/x", 3));
    for (size_t size = 0; size < whole.dataSize(); ++size) {
        Parcel cut;
        cut.setData(whole.data(), size);
        EXPECT_EQ(nullptr, device::readDevice(cut)) << size;
    }
}

TEST(DeviceNotifierWireTest, RequestsFieldByField) {
    const sp<Recorder> recorder = new Recorder(77);
    const sp<LoopbackBinder> remote = new LoopbackBinder(new BnDeviceManagerNotifier(recorder), 1);
    const sp<IDeviceManagerNotifier> proxy =
        android::interface_cast<IDeviceManagerNotifier>(sp<IBinder>(remote));
    std::vector<uint32_t> codes;
    remote->onRequest([&](uint32_t code, const Parcel& request) {
        codes.push_back(code);
        request.readInt32();
        EXPECT_EQ(String16("device.DeviceManagerNotifier"), request.readString16());
        if (code == 1) {
            EXPECT_EQ(3, request.readInt32());
            EXPECT_EQ(-4, request.readInt32());
        } else {
            EXPECT_EQ(String8("/devices/x"), request.readString8());
            EXPECT_EQ(String8("block"), request.readString8());
            EXPECT_EQ(1, request.readInt32());
            EXPECT_EQ(String8("KEY0"), request.readString8());
            EXPECT_EQ(String8("value 0"), request.readString8());
        }
        EXPECT_EQ(0U, request.dataAvail());
    });
    remote->onReply(
        [](status_t* /*status*/, Parcel* reply) { EXPECT_EQ(sizeof(int32_t), reply->dataSize()); });
    EXPECT_EQ(77, proxy->onEvent(3, -4));
    EXPECT_EQ(77, proxy->onDeviceAdded(makeDevice("/devices/x", 1)));
    EXPECT_EQ(77, proxy->onDeviceRemoved(makeDevice("/devices/x", 1)));
    EXPECT_THAT(codes, ElementsAre(1U, 2U, 3U));
    EXPECT_THAT(recorder->calls(), ElementsAre("event 3 -4", "added /devices/x", "removed /devices/x"));
    remote->die();
    EXPECT_EQ(0, proxy->onEvent(3, -4));
}

TEST(DeviceNotifierWireTest, RefusesForeignAndBrokenRequests) {
    const sp<Recorder> recorder = new Recorder();
    const sp<BnDeviceManagerNotifier> notifier = new BnDeviceManagerNotifier(recorder);
    for (uint32_t code = 1; code <= 3; ++code) {
        Parcel foreign;
        writeToken(foreign, "device.DeviceManager");
        Parcel reply;
        EXPECT_EQ(-1, notifier->transact(code, foreign, &reply));
        Parcel cut;
        writeToken(cut, "device.DeviceManagerNotifier");
        EXPECT_LT(notifier->transact(code, cut, &reply), 0);
        EXPECT_EQ(0U, reply.dataSize());
    }
    for (const uint32_t code : {0U, 4U}) {
        Parcel request;
        Parcel reply;
        EXPECT_EQ(UNKNOWN_TRANSACTION, notifier->transact(code, request, &reply));
    }
    EXPECT_TRUE(recorder->calls().empty());
}

TEST_F(DeviceServiceTest, NotifiesClientsThroughTheWire) {
    const sp<Recorder> second = new Recorder();
    add(remoteNotifier(mRecorder), kClient);
    add(remoteNotifier(second), kOther);
    mCore->mNotifier->onDeviceAdded(makeDevice("/devices/x", 5));
    mCore->mNotifier->onDeviceRemoved(makeDevice("/devices/x", 0));
    mCore->mNotifier->onEvent(1, 2);
    for (const sp<Recorder>& recorder : {mRecorder, second}) {
        EXPECT_THAT(recorder->calls(), ElementsAre("added /devices/x", "removed /devices/x", "event 1 2"));
    }
}

TEST_F(DeviceServiceTest, DumpsTheRegistryOrTheCore) {
    const sp<LoopbackBinder> first = remoteNotifier(mRecorder);
    add(remoteNotifier(new Recorder()), kOther);
    add(first, kClient);
    EXPECT_THAT(dump({"notifier"}),
                ::testing::MatchesRegex("-\\[device\\.DeviceManager\\]-\nnotifier size\\[2\\]\n"
                                        "notifier\\[0x[0-9a-f]{8}\\] pid\\[1001\\] \n"
                                        "notifier\\[0x[0-9a-f]{8}\\] pid\\[1002\\] \n"));
    EXPECT_EQ("-[device.DeviceManager]-\ncore dump\n", dump({}));
    EXPECT_EQ("-[device.DeviceManager]-\ncore dump\n", dump({"other", "notifier"}));
    EXPECT_THAT(mCore->mCalls, ElementsAre("dump 0", "dump 2"));
}

TEST_F(DeviceServiceTest, RemovesTheCallersEntryWhateverBinderItPasses) {
    const sp<LoopbackBinder> registered = remoteNotifier(mRecorder);
    const sp<LoopbackBinder> passed = remoteNotifier(new Recorder());
    add(registered, kClient);
    EXPECT_EQ(1U, registered->linkCount());
    remove(passed, kClient);
    // The link was to be taken from the binder that was passed.
    EXPECT_EQ(1U, registered->linkCount());
    EXPECT_THAT(dump({"notifier"}), HasSubstr("notifier size[0]\n"));
    mCore->mNotifier->onEvent(1, 2);
    EXPECT_TRUE(mRecorder->calls().empty());
}

TEST_F(DeviceServiceTest, RemovalTakesTheDeathLinkBack) {
    const sp<LoopbackBinder> notifier = remoteNotifier(mRecorder);
    add(notifier, kClient);
    remove(notifier, kClient);
    EXPECT_EQ(0U, notifier->linkCount());
    notifier->die();
    EXPECT_TRUE(mLog.take("IDeviceManager").empty());
}

// Entries that stayed would be few in a test and many in years of clients that come and go.
TEST_F(DeviceServiceTest, WhoGoesLeavesNothingInTheFanOut) {
    auto* const fanOut = dynamic_cast<device::DeviceManagerNotifierProxy*>(mCore->mNotifier.get());
    ASSERT_NE(nullptr, fanOut);
    const sp<LoopbackBinder> dies = remoteNotifier(new Recorder());
    const sp<LoopbackBinder> leaves = remoteNotifier(mRecorder);
    const sp<LoopbackBinder> dead = remoteNotifier(new Recorder());
    dead->die();
    add(dies, kClient);
    add(leaves, kOther);
    add(dead, kOther + 1);
    EXPECT_EQ(2U, fanOut->size());
    dies->die();
    EXPECT_EQ(1U, fanOut->size());
    remove(leaves, kOther);
    EXPECT_EQ(0U, fanOut->size());
}

TEST_F(DeviceServiceTest, DropsAClientThatDies) {
    const sp<LoopbackBinder> dies = remoteNotifier(mRecorder);
    const sp<Recorder> other = new Recorder();
    add(dies, kClient);
    add(remoteNotifier(other), kOther);
    dies->die();
    EXPECT_THAT(mLog.take("IDeviceManager"),
                ElementsAre(LogLine{ANDROID_LOG_WARN, "IDeviceManager", "Application PID[1001] die"}));
    EXPECT_THAT(dump({"notifier"}), HasSubstr("notifier size[1]\n"));
    EXPECT_THAT(dump({"notifier"}), HasSubstr("pid[1002] \n"));
    mCore->mNotifier->onEvent(1, 2);
    EXPECT_THAT(other->calls(), ElementsAre("event 1 2"));
    EXPECT_TRUE(mRecorder->calls().empty());
    // The pid may be used again.
    add(remoteNotifier(mRecorder), kClient);
}

// The notice of a death that crossed a removal found nothing, and ended the daemon.
TEST_F(DeviceServiceTest, LateNoticeAfterRemovalDoesNothing) {
    const sp<LoopbackBinder> registered = remoteNotifier(mRecorder);
    add(registered, kClient);
    remove(remoteNotifier(new Recorder()), kClient);
    registered->die();
    EXPECT_THAT(dump({"notifier"}), HasSubstr("notifier size[0]\n"));
}

// The notice of a dead client took the entry of a newer one with the same pid.
TEST_F(DeviceServiceTest, LateNoticeSparesANewClientWithTheSamePid) {
    const sp<LoopbackBinder> former = remoteNotifier(new Recorder());
    add(former, kClient);
    remove(remoteNotifier(new Recorder()), kClient);
    add(remoteNotifier(mRecorder), kClient);
    former->die();
    EXPECT_THAT(dump({"notifier"}), HasSubstr("notifier size[1]\n"));
    mCore->mNotifier->onEvent(1, 2);
    EXPECT_EQ(1U, mRecorder->calls().size());
}

// As above, with the notice under way already as the first registration goes: its recipient lives still.
TEST_F(DeviceServiceTest, ANoticeUnderWaySparesANewClientWithTheSamePid) {
    add(remoteNotifier(mRecorder), kClient);
    const sp<IBinder::DeathRecipient> former =
        new device::DeviceManagerNotifierDeathRecipient(mService, kClient);
    former->binderDied(wp<IBinder>());
    EXPECT_THAT(mLog.take("IDeviceManager"),
                ElementsAre(LogLine{ANDROID_LOG_WARN, "IDeviceManager", "Application PID[1001] die"}));
    EXPECT_THAT(dump({"notifier"}), HasSubstr("notifier size[1]\n"));
    mCore->mNotifier->onEvent(1, 2);
    EXPECT_EQ(1U, mRecorder->calls().size());
}

// The entry of a client that was dead before it was linked stayed for ever, and its pid with it.
TEST_F(DeviceServiceTest, DropsAClientThatIsDeadAlready) {
    const sp<LoopbackBinder> notifier = remoteNotifier(mRecorder);
    notifier->die();
    add(notifier, kClient);
    EXPECT_THAT(dump({"notifier"}), HasSubstr("notifier size[0]\n"));
    add(remoteNotifier(mRecorder), kClient);
}

TEST_F(DeviceServiceTest, ANotifierMayBeRemovedAndDumpedWhileAClientIsCalled) {
    const sp<LoopbackBinder> notifier = remoteNotifier(mRecorder);
    mRecorder->mInside = [&] {
        std::thread([&] {
            remove(notifier, kClient);
            add(remoteNotifier(new Recorder()), kOther);
            EXPECT_THAT(dump({"notifier"}), HasSubstr("notifier size[1]\n"));
        }).join();
    };
    add(notifier, kClient);
    mCore->mNotifier->onEvent(1, 2);
    EXPECT_THAT(mRecorder->calls(), ElementsAre("event 1 2"));
}

TEST_F(DeviceServiceTest, ManyClientsComeGoAndDieAtOnce) {
    constexpr int kClients = 4;
    constexpr int kRounds = 100;
    std::vector<std::thread> clients;
    clients.reserve(kClients);
    for (int client = 0; client < kClients; ++client) {
        clients.emplace_back([this, pid = kClient + client] {
            for (int round = 0; round < kRounds; ++round) {
                const sp<LoopbackBinder> notifier = remoteNotifier(mRecorder);
                add(notifier, pid);
                if (round % 2 == 0) {
                    notifier->die();
                } else {
                    remove(notifier, pid);
                }
            }
        });
    }
    for (int round = 0; round < kRounds; ++round) {
        mCore->mNotifier->onEvent(1, round);
        EXPECT_THAT(dump({"notifier"}), HasSubstr("notifier size["));
    }
    for (std::thread& client : clients) {
        client.join();
    }
    EXPECT_EQ("-[device.DeviceManager]-\nnotifier size[0]\n", dump({"notifier"}));
    const size_t heard = mRecorder->calls().size();
    mCore->mNotifier->onEvent(1, 2);
    EXPECT_EQ(heard, mRecorder->calls().size());
}

TEST_F(DeviceServiceTest, GoesWithItsClients) {
    const wp<BnDeviceManager> service = mService;
    const wp<Recorder> recorder = mRecorder;
    const sp<LoopbackBinder> notifier = remoteNotifier(mRecorder);
    add(notifier, kClient);
    mRecorder.clear();
    mProxy.clear();
    mRemote.clear();
    mService.clear();
    EXPECT_EQ(nullptr, service.promote());
    // Nobody is there to hear of it.
    notifier->die();
}

TEST_F(DeviceServiceDeathTest, SecondRegistrationOfAProcess) {
    EXPECT_DEATH(
        {
            add(remoteNotifier(mRecorder), kClient);
            add(remoteNotifier(mRecorder), kClient);
        },
        "assertion \"index < 0\" failed: file \"IDeviceManager\", line [0-9]+, function \"virtual int "
        "device::BnDeviceManager::addNotifier\\(const android::sp<android::IBinder>&\\)\"");
}

TEST_F(DeviceServiceDeathTest, RemovalByAnUnregisteredProcess) {
    EXPECT_DEATH(
        {
            add(remoteNotifier(mRecorder), kOther);
            remove(remoteNotifier(mRecorder), kClient);
        },
        "assertion \"index >= 0\" failed: file \"IDeviceManager\", line [0-9]+, function \"virtual int "
        "device::BnDeviceManager::removeNotifier\\(const android::sp<android::IBinder>&\\)\"");
}

TEST_F(DeviceServiceDeathTest, NullBinders) {
    EXPECT_DEATH(mService->addNotifier(nullptr),
                 "assertion \"notifier.get\\(\\)\" failed: file \"IDeviceManager\"");
    EXPECT_DEATH(mService->removeNotifier(nullptr),
                 "assertion \"notifier.get\\(\\)\" failed: file \"IDeviceManager\"");
    EXPECT_DEATH(new device::DeviceManagerNotifierWapper(nullptr),
                 "assertion \"notifier.get\\(\\)\" failed: file \"DeviceManagerNotifierWapper\"");
}

TEST_F(DeviceServiceDeathTest, NullImplementations) {
    EXPECT_DEATH(new BnDeviceManager(nullptr),
                 "assertion \"impl.get\\(\\)\" failed: file \"IDeviceManager\", line [0-9]+, function "
                 "\"device::BnDeviceManager::BnDeviceManager\\(const "
                 "android::sp<device::DeviceManagerImplItf>&\\)\"");
    EXPECT_DEATH(new BnDeviceManagerNotifier(nullptr), "assertion \"impl.get\\(\\)\" failed");
    EXPECT_DEATH(new device::DeviceManagerNotifierDeathRecipient(wp<BnDeviceManager>(), 1),
                 "assertion \"manager.get\\(\\)\" failed: file \"IDeviceManager\"");
}
