// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The service object on its wire: parcels field by field, the registry, the dump.
 */
#include <binder/Parcel.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "device/BnDeviceManager.h"
#include "device/BnDeviceManagerNotifier.h"
#include "device/BpDeviceManager.h"
#include "device/BpDeviceManagerNotifier.h"
#include "device/Device.h"
#include "device/DeviceParcel.h"
#include "tests/unit/device/Recorder.h"
#include "tests/unit/support/LoopbackBinder.h"
#include "tests/unit/support/ServiceObjectTests.h"

using android::IBinder;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using android::String8;
using android::UNKNOWN_TRANSACTION;
using android::Vector;
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

}  // namespace

/** The device service, for what every service does. */
struct DeviceKind : device::DeviceNotifierTraits {
    using Core = FakeCore;
    using NotifierInterface = device::IDeviceManagerNotifier;
    using NativeNotifier = BnDeviceManagerNotifier;
    using Recorder = ::Recorder;
    static constexpr const char* kToken = "device.DeviceManager";
    static constexpr const char* kNotifierToken = "device.DeviceManagerNotifier";
    static constexpr const char* kName = "DeviceManager";
    static constexpr const char* kFile = "IDeviceManager";
    static constexpr const char* kClass = "device::BnDeviceManager";
    static constexpr const char* kCoreClass = "device::DeviceManagerImplItf";
    static constexpr const char* kWapperFile = "DeviceManagerNotifierWapper";
    static constexpr const char* kNotifierFile = "IDeviceManagerNotifier";
    static constexpr const char* kCoreDump = "core dump\n";
    static constexpr uint32_t kLastCode = 7;
    static constexpr int kStarted = 11;
    static std::vector<std::string> callsOf(Core& core) { return core.mCalls; }
};

using DeviceServiceTest = ServiceObjectTest<DeviceKind>;

INSTANTIATE_TYPED_TEST_SUITE_P(DeviceServiceTest, ServiceObjectTest, DeviceKind);
INSTANTIATE_TYPED_TEST_SUITE_P(DeviceServiceDeathTest, ServiceObjectDeathTest, DeviceKind);

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
