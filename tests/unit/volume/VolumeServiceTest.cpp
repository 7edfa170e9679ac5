// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The volume service on its wire: parcels field by field, the registry, the dump.
 */
#include <android/log.h>
#include <binder/Parcel.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <thread>

#include "tests/unit/support/LoopbackBinder.h"
#include "tests/unit/support/ServiceObjectTests.h"
#include "tests/unit/volume/VolumeRecorder.h"
#include "volume/BnVolumeManager.h"
#include "volume/BnVolumeManagerNotifier.h"
#include "volume/BpVolumeManager.h"
#include "volume/BpVolumeManagerNotifier.h"
#include "volume/Volume.h"
#include "volume/VolumeParcel.h"

using android::IBinder;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using android::String8;
using android::UNKNOWN_TRANSACTION;
using android::Vector;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using volume::BnVolumeManager;
using volume::BnVolumeManagerNotifier;
using volume::IVolumeManager;
using volume::IVolumeManagerNotifier;
using volume::Volume;
using volume::VolumeItf;

namespace {

constexpr const char* kToken = "volume.VolumeManager";
constexpr const char* kNotifierToken = "volume.VolumeManagerNotifier";

/** A core that remembers what it is asked and answers what the test says; null past the end. */
class FakeCore : public volume::VolumeManagerImplItf {
  public:
    int startup() override { return note("startup", 11); }
    int shutdown() override { return note("shutdown", 12); }
    int setNotifier(const sp<volume::VolumeManagerNotifierItf>& notifier) override {
        mNotifier = notifier;
        return 0;
    }
    int getVolumeCount() override { return note("count", static_cast<int>(mVolumes.size())); }
    sp<VolumeItf> queryVolume(int index) override {
        note("query " + std::to_string(index), 0);
        const size_t position = static_cast<unsigned>(index);
        return position < mVolumes.size() ? mVolumes[position] : nullptr;
    }
    int dump(const Vector<String16>& args, String8& result) override {
        result.append("dump volume sample\n");
        return note("dump " + std::to_string(args.size()), 0);
    }

    sp<volume::VolumeManagerNotifierItf> mNotifier;
    std::vector<sp<VolumeItf>> mVolumes;
    std::vector<std::string> mCalls;

  private:
    int note(const std::string& call, int result) {
        mCalls.push_back(call);
        return result;
    }
};

/** The eight texts of a record in the order of the wire. */
std::array<String8, 8> textsOf(const VolumeItf& record) {
    return {record.getName(),       record.getUuid(),       record.getLabel(),     record.getFormat(),
            record.getAccessPath(), record.getDevicePath(), record.getMountPath(), record.getMbrPath()};
}

sp<VolumeItf> volumeOf(const std::array<String8, 8>& texts) {
    return new Volume(texts[0], texts[1], texts[2], texts[3], texts[4], texts[5], texts[6], texts[7]);
}

sp<VolumeItf> makeVolume(const std::string& name) {
    return volumeOf({String8(name.c_str()), String8("55AA-0F0F"), String8("MUSIC"), String8("vfat"),
                     String8(("/media/" + name).c_str()), String8(("/dev/" + name).c_str()),
                     String8(("/mnt/" + name).c_str()), String8("/dev/sda")});
}

void expectPlaceholder(const sp<VolumeItf>& record) {
    ASSERT_NE(nullptr, record);
    for (const String8& text : textsOf(*record)) {
        EXPECT_EQ(String8("unknown"), text);
    }
}

void expectEqual(const sp<VolumeItf>& expected, const sp<VolumeItf>& actual) {
    ASSERT_NE(nullptr, actual);
    EXPECT_NE(expected, actual);
    EXPECT_EQ(textsOf(*expected), textsOf(*actual));
}

}  // namespace

/** The volume service, for what every service does. */
struct VolumeKind : volume::VolumeNotifierTraits {
    using Core = FakeCore;
    using NotifierInterface = volume::IVolumeManagerNotifier;
    using NativeNotifier = BnVolumeManagerNotifier;
    using Recorder = VolumeRecorder;
    static constexpr const char* kToken = "volume.VolumeManager";
    static constexpr const char* kNotifierToken = "volume.VolumeManagerNotifier";
    static constexpr const char* kName = "VolumeManager";
    static constexpr const char* kFile = "IVolumeManager";
    static constexpr const char* kClass = "volume::BnVolumeManager";
    static constexpr const char* kCoreClass = "volume::VolumeManagerImplItf";
    static constexpr const char* kWapperFile = "VolumeManagerNotifierWapper";
    static constexpr const char* kNotifierFile = "IVolumeManagerNotifier";
    static constexpr const char* kCoreDump = "dump volume sample\n";
    static constexpr uint32_t kLastCode = 6;
    static constexpr int kStarted = 11;
    static std::vector<std::string> callsOf(Core& core) { return core.mCalls; }
};

using VolumeServiceTest = ServiceObjectTest<VolumeKind>;

INSTANTIATE_TYPED_TEST_SUITE_P(VolumeServiceTest, ServiceObjectTest, VolumeKind);
INSTANTIATE_TYPED_TEST_SUITE_P(VolumeServiceDeathTest, ServiceObjectDeathTest, VolumeKind);

TEST_F(VolumeServiceTest, RepliesFieldByField) {
    for (const auto& [code, result] : {std::pair(3U, 11), std::pair(4U, 12), std::pair(5U, 0)}) {
        Parcel reply;
        EXPECT_EQ(OK, transact(code, nullptr, &reply));
        EXPECT_EQ(0, reply.readInt32());
        EXPECT_EQ(result, reply.readInt32());
        EXPECT_EQ(0U, reply.dataAvail());
    }
    EXPECT_THAT(mCore->mCalls, ElementsAre("startup", "shutdown", "count"));
}

TEST_F(VolumeServiceTest, RepliesAVolumeFieldByField) {
    mCore->mVolumes = {makeVolume("sda1"), makeVolume("sda2")};
    Parcel reply;
    EXPECT_EQ(OK, transact(
                      6, [](Parcel& request) { request.writeInt32(1); }, &reply));
    EXPECT_EQ(0, reply.readInt32());
    for (const char* text :
         {"sda2", "55AA-0F0F", "MUSIC", "vfat", "/media/sda2", "/dev/sda2", "/mnt/sda2", "/dev/sda"}) {
        EXPECT_EQ(String8(text), reply.readString8());
    }
    EXPECT_EQ(0U, reply.dataAvail());
    EXPECT_THAT(mCore->mCalls, ElementsAre("query 1"));
}

TEST_F(VolumeServiceTest, AppliesTheRulesOfIdentityAndLabel) {
    const sp<Volume> record = new Volume();
    record->setUuid(String8("55AA-0F0F"));
    record->setPartitionUuid(String8("1234-AB"));
    record->setPartitionLabel(String8("part"));
    mCore->mVolumes = {record};
    const sp<VolumeItf> read = mProxy->queryVolume(0);
    ASSERT_NE(nullptr, read);
    EXPECT_EQ(String8("1234-AB-55AA-0F0F"), read->getUuid());
    EXPECT_EQ(String8("part"), read->getLabel());
}

TEST_F(VolumeServiceTest, AnswersAnyIndexOutsideOfTheListWithThePlaceholder) {
    mCore->mVolumes = {makeVolume("sda1")};
    for (const int index : {1, 2, -1, INT_MIN, INT_MAX}) {
        expectPlaceholder(mProxy->queryVolume(index));
        expectPlaceholder(mService->queryVolume(index));
    }
    expectEqual(mCore->mVolumes[0], mProxy->queryVolume(0));
}

TEST_F(VolumeServiceTest, AQueryNeedsNoReplyParcel) {
    EXPECT_EQ(OK, transact(
                      6, [](Parcel& request) { request.writeInt32(0); }, nullptr));
}

TEST_F(VolumeServiceTest, AnswersAQueryThatIsCutShortWithAnError) {
    Parcel whole;
    writeToken(whole, kToken);
    const size_t head = whole.dataSize();
    whole.writeInt32(0);
    for (size_t size = 0; size < whole.dataSize(); ++size) {
        Parcel cut;
        cut.setData(whole.data(), size);
        Parcel reply;
        const status_t status = mService->transact(6, cut, &reply);
        EXPECT_LT(status, 0) << "cut to " << size;
        if (size < head) {
            EXPECT_EQ(-1, status);
        }
        EXPECT_EQ(sizeof(int32_t), reply.dataSize());
    }
    EXPECT_TRUE(mCore->mCalls.empty());
}

TEST_F(VolumeServiceTest, ProxyCallsEveryOperation) {
    mCore->mVolumes = {makeVolume("mmcblk0p1"), makeVolume("sda1")};
    EXPECT_EQ(11, mProxy->startup());
    EXPECT_EQ(12, mProxy->shutdown());
    EXPECT_EQ(2, mProxy->getVolumeCount());
    expectEqual(mCore->mVolumes[0], mProxy->queryVolume(0));
    expectEqual(mCore->mVolumes[1], mProxy->queryVolume(1));
    const sp<BnVolumeManagerNotifier> notifier = new BnVolumeManagerNotifier(mRecorder);
    EXPECT_EQ(0, mProxy->addNotifier(notifier));
    EXPECT_THAT(dump({"notifier"}), HasSubstr("pid[1001] \n"));
    EXPECT_EQ(0, mProxy->removeNotifier(notifier));
    EXPECT_THAT(dump({"notifier"}), HasSubstr("notifier size[0]\n"));
    EXPECT_THAT(mCore->mCalls, ElementsAre("startup", "shutdown", "count", "query 0", "query 1"));
}

TEST_F(VolumeServiceTest, ProxyReadsZerosWhenTheCallFails) {
    mCore->mVolumes = {makeVolume("sda1")};
    mRemote->die();
    EXPECT_EQ(0, mProxy->startup());
    EXPECT_EQ(0, mProxy->getVolumeCount());
    EXPECT_EQ(nullptr, mProxy->queryVolume(0));
}

TEST_F(VolumeServiceTest, ProxySurvivesHostileReplies) {
    mCore->mVolumes = {makeVolume("sda1")};
    size_t size = 0;
    size_t whole = 0;
    mRemote->onReply([&](status_t* /*status*/, Parcel* reply) {
        const std::vector<uint8_t> all(reply->data(), reply->data() + reply->dataSize());
        whole = all.size();
        reply->setData(all.data(), std::min(size, all.size()));
    });
    // On its way a reply is filled up to whole words: less than one of padding is no loss.
    for (size = 0; whole == 0 || size + sizeof(int32_t) <= whole; ++size) {
        EXPECT_EQ(nullptr, mProxy->queryVolume(0)) << size;
    }
    // Lengths that the parcel does not hold, and a text without its end.
    for (const int32_t length : {INT_MAX, INT_MIN, -1, 1 << 20}) {
        mRemote->onReply([&](status_t* /*status*/, Parcel* reply) {
            reply->freeData();
            reply->writeInt32(0);
            reply->writeInt32(length);
            reply->writeInt32(0x41414141);
            reply->setDataPosition(0);
        });
        EXPECT_EQ(nullptr, mProxy->queryVolume(0));
    }
}

TEST(VolumeParcelTest, ReadsBackWhatWasWritten) {
    const std::string longLabel(255, 'L');
    for (const char* label : {"", "MUSIC", "\x01\n\"'`$(reboot)/../..", "\xff\xfe\x80", longLabel.c_str()}) {
        Parcel parcel;
        const sp<VolumeItf> record =
            volumeOf({String8("sda1"), String8(label), String8(label), String8("ext4"), String8(),
                      String8("/dev/sda1"), String8("unknown"), String8()});
        EXPECT_EQ(OK, volume::writeVolume(parcel, *record));
        parcel.setDataPosition(0);
        expectEqual(record, volume::readVolume(parcel));
        EXPECT_EQ(0U, parcel.dataAvail());
    }
}

TEST(VolumeParcelTest, EmptyTextsTravelAsEightEmptyStrings) {
    Parcel parcel;
    const sp<VolumeItf> record = volumeOf({});
    EXPECT_EQ(OK, volume::writeVolume(parcel, *record));
    parcel.setDataPosition(0);
    String8 text("other");
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(OK, parcel.readString8(&text));
        EXPECT_EQ(String8(), text);
    }
    EXPECT_EQ(0U, parcel.dataAvail());
    parcel.setDataPosition(0);
    expectEqual(record, volume::readVolume(parcel));
}

TEST(VolumeParcelTest, ReadsNothingFromACutRecord) {
    Parcel whole;
    volume::writeVolume(whole, *makeVolume("sda1"));
    for (size_t size = 0; size < whole.dataSize(); ++size) {
        Parcel cut;
        cut.setData(whole.data(), size);
        EXPECT_EQ(nullptr, volume::readVolume(cut)) << size;
    }
}

TEST(VolumeNotifierWireTest, RequestsFieldByField) {
    const sp<VolumeRecorder> recorder = new VolumeRecorder(77);
    const sp<LoopbackBinder> remote = new LoopbackBinder(new BnVolumeManagerNotifier(recorder), 1);
    const sp<IVolumeManagerNotifier> proxy =
        android::interface_cast<IVolumeManagerNotifier>(sp<IBinder>(remote));
    const sp<VolumeItf> record = makeVolume("sda1");
    std::vector<uint32_t> codes;
    remote->onRequest([&](uint32_t code, const Parcel& request) {
        codes.push_back(code);
        request.readInt32();
        EXPECT_EQ(String16(kNotifierToken), request.readString16());
        if (code == 1) {
            EXPECT_EQ(3, request.readInt32());
            EXPECT_EQ(-4, request.readInt32());
        } else {
            for (const String8& text : textsOf(*record)) {
                EXPECT_EQ(text, request.readString8());
            }
        }
        EXPECT_EQ(0U, request.dataAvail());
    });
    remote->onReply(
        [](status_t* /*status*/, Parcel* reply) { EXPECT_EQ(sizeof(int32_t), reply->dataSize()); });
    EXPECT_EQ(77, proxy->onEvent(3, -4));
    EXPECT_EQ(77, proxy->onVolumeAdded(record));
    expectEqual(record, recorder->lastVolume());
    EXPECT_EQ(77, proxy->onVolumeRemoved(record));
    expectEqual(record, recorder->lastVolume());
    EXPECT_THAT(codes, ElementsAre(1U, 2U, 3U));
    EXPECT_THAT(recorder->calls(), ElementsAre("event 3 -4", "added sda1", "removed sda1"));
    remote->die();
    EXPECT_EQ(0, proxy->onEvent(3, -4));
    EXPECT_EQ(0, proxy->onVolumeAdded(record));
}

TEST(VolumeNotifierWireTest, RefusesForeignAndBrokenRequests) {
    const sp<VolumeRecorder> recorder = new VolumeRecorder();
    const sp<BnVolumeManagerNotifier> notifier = new BnVolumeManagerNotifier(recorder);
    for (uint32_t code = 1; code <= 3; ++code) {
        Parcel foreign;
        writeToken(foreign, kToken);
        Parcel reply;
        EXPECT_EQ(-1, notifier->transact(code, foreign, &reply));
        Parcel whole;
        writeToken(whole, kNotifierToken);
        const size_t head = whole.dataSize();
        if (code == 1) {
            whole.writeInt32(1);
            whole.writeInt32(2);
        } else {
            volume::writeVolume(whole, *makeVolume("sda1"));
        }
        for (size_t size = head; size < whole.dataSize(); ++size) {
            Parcel cut;
            cut.setData(whole.data(), size);
            EXPECT_LT(notifier->transact(code, cut, &reply), 0) << code << " cut to " << size;
        }
        EXPECT_EQ(0U, reply.dataSize());
    }
    for (const uint32_t code : {0U, 4U}) {
        Parcel request;
        Parcel reply;
        EXPECT_EQ(UNKNOWN_TRANSACTION, notifier->transact(code, request, &reply));
    }
    EXPECT_TRUE(recorder->calls().empty());
}

TEST_F(VolumeServiceTest, NotifiesClientsThroughTheWire) {
    const sp<VolumeRecorder> second = new VolumeRecorder();
    EXPECT_EQ(0, mCore->mNotifier->onVolumeAdded(makeVolume("sda1")));
    add(remoteNotifier(mRecorder), kClient);
    EXPECT_EQ(77, mCore->mNotifier->onVolumeAdded(makeVolume("sda2")));
    add(remoteNotifier(second), kOther);
    mCore->mNotifier->onVolumeRemoved(makeVolume("sda2"));
    mCore->mNotifier->onEvent(1, 2);
    EXPECT_THAT(mRecorder->calls(), ElementsAre("added sda2", "removed sda2", "event 1 2"));
    EXPECT_THAT(second->calls(), ElementsAre("removed sda2", "event 1 2"));
}

TEST_F(VolumeServiceTest, ProxyCountsItsNotifiersAndLogsIt) {
    const sp<volume::VolumeManagerNotifierProxy> proxy = new volume::VolumeManagerNotifierProxy();
    const sp<volume::VolumeManagerNotifierItf> target = mRecorder;
    proxy->addNotifier(target);
    proxy->addNotifier(target);
    EXPECT_EQ(1U, proxy->size());
    EXPECT_THAT(mLog.take("VolumeManagerNotifierProxy"),
                ElementsAre(LogLine{ANDROID_LOG_INFO, "VolumeManagerNotifierProxy", "notifier size[1]"}));
}

TEST_F(VolumeServiceTest, AClientMayBeRemovedAndAskWhileItIsCalled) {
    const sp<LoopbackBinder> notifier = remoteNotifier(mRecorder);
    mCore->mVolumes = {makeVolume("sda1")};
    mRecorder->mInside = [&] {
        std::thread([&] {
            remove(notifier, kClient);
            EXPECT_EQ(1, mProxy->getVolumeCount());
            EXPECT_THAT(dump({"notifier"}), HasSubstr("notifier size[0]\n"));
        }).join();
    };
    add(notifier, kClient);
    mCore->mNotifier->onVolumeAdded(mCore->mVolumes[0]);
    EXPECT_THAT(mRecorder->calls(), ElementsAre("added sda1"));
}
