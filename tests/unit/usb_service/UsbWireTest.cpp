// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The USB service and its notifiers on the wire: parcels field by field.
 */
#include <android/log.h>
#include <gmock/gmock.h>

#include <utility>

#include "tests/unit/usb_service/UsbServiceFixture.h"
#include "usb/BnUsbHostNotifier.h"
#include "usb/BnUsbManagerNotifier.h"
#include "usb/UsbDeviceParcel.h"

using android::IBinder;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using android::UNKNOWN_TRANSACTION;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using usb::BnUsbHostNotifier;
using usb::BnUsbManagerNotifier;
using usb::IUsbHostNotifier;
using usb::IUsbManager;
using usb::IUsbManagerNotifier;
using usb::UsbDeviceItf;

namespace {

constexpr const char* kTag = "IUsbManager";

using UsbWireTest = UsbServiceFixture;

/** One transaction whose reply is the leading 0 and one int32. */
struct IntRow {
    uint32_t code;
    std::function<void(Parcel&)> request;
    /** What the core is to be asked. */
    const char* call;
    int32_t result;
};

std::function<void(Parcel&)> ints(std::vector<int32_t> values) {
    return [values = std::move(values)](Parcel& request) {
        for (const int32_t value : values) {
            request.writeInt32(value);
        }
    };
}

/** The bytes up to and with the NUL, padded to a multiple of four: what a text is on the wire. */
std::function<void(Parcel&)> text(std::string value) {
    return [value = std::move(value)](Parcel& request) { request.write(value.c_str(), value.size() + 1); };
}

const std::vector<IntRow>& intRows() {
    static const auto* const sRows = new std::vector<IntRow>{
        {3, ints({}), "startup", 103},
        {4, ints({}), "shutdown", 104},
        {7, ints({1}), "configUsbEnumerateScheme 1", 107},
        {7, ints({0}), "configUsbEnumerateScheme 0", 107},
        {7, ints({-4}), "configUsbEnumerateScheme 1", 107},
        {8, ints({6, 1}), "configDefaultMode 6 1", 108},
        {8, ints({-1, 0}), "configDefaultMode -1 0", 108},
        {8, ints({1, 256}), "configDefaultMode 1 1", 108},
        {9, ints({-1}), "checkAoaModeSupport 4294967295", 1},
        {10, text("/etc/aoa.xml"), "configAoaDescription /etc/aoa.xml", 110},
        {11, text("SERIAL 1"), "aoaModeSwitchFilter SERIAL 1", 111},
        {12, ints({2}), "configAoaTimeoutAction 1", 112},
        {12, ints({0}), "configAoaTimeoutAction 0", 112},
        {13, ints({7}), "switchUsbState 7", 113},
        {14, text("a"), "configAppleIapNodeName a", 114},
        {15, text(""), "configAppleEanNodeName ", 115},
        {16, ints({1}), "configKernelAutoRoleSwitch 1", 116},
        {16, ints({0}), "configKernelAutoRoleSwitch 0", 116},
        {17, ints({5}), "appleDeviceRoleSwitch 5", -117},
        {18, ints({6}), "isAppleCarplaySupport 6", 1},
        {19, text("com.unit.app"), "configAppleEanStringName com.unit.app", 119},
        {20, ints({2}), "resetUsbPort 2", 120},
        {21, ints({-1, 1}), "setUsbPortPower -1 1", 121},
        {21, ints({2, 0}), "setUsbPortPower 2 0", 121},
        {22, ints({}), "getUsbDeviceCount", 122},
        {24, ints({1}), "usbDeviceIsActived 1", 1},
        {25, ints({7}), "postTestMessage 7", 125},
        {26, ints({1, 2}), "switchPortChargingMode 1 2", 126},
        {27, ints({2}), "getPortChargingMode 2", 127},
        {28, ints({5}), "setMaxHubTier 5", 128},
        {29, ints({8}), "addUnsupportedClass 8", 129},
        {30, ints({8}), "removeUnsupportedClass 8", 130},
        {31, ints({84}), "setCertificationMode 84", 131},
        {32, ints({}), "getCertificationMode", 132},
    };
    return *sRows;
}

}  // namespace

TEST_F(UsbWireTest, ProxiesAndDescriptors) {
    EXPECT_EQ(String16("usb.UsbManager"), IUsbManager::descriptor);
    EXPECT_EQ(String16("usb.UsbManagerNotifier"), IUsbManagerNotifier::descriptor);
    EXPECT_EQ(String16("usb.UsbHostNotifier"), IUsbHostNotifier::descriptor);
    EXPECT_STREQ("UsbManager", IUsbManager::kServiceName);
    EXPECT_NE(mService.get(), static_cast<IUsbManager*>(mProxy.get()));
    EXPECT_EQ(mService, android::interface_cast<IUsbManager>(sp<IBinder>(mService)));
    EXPECT_EQ(nullptr, android::interface_cast<IUsbManager>(nullptr));
    EXPECT_NE(nullptr, mCore->mNotifier);
    EXPECT_NE(nullptr, mCore->mHostNotifier);
}

TEST_F(UsbWireTest, AnswersEveryNumberFieldByField) {
    for (const IntRow& row : intRows()) {
        Parcel reply;
        EXPECT_EQ(OK, transact(row.code, row.request, &reply)) << row.call;
        EXPECT_EQ(0, reply.readInt32()) << row.call;
        EXPECT_EQ(row.result, reply.readInt32()) << row.call;
        EXPECT_EQ(0U, reply.dataAvail()) << row.call;
        EXPECT_THAT(mCore->takeCalls(), ElementsAre(row.call));
    }
}

TEST_F(UsbWireTest, AnswersNoSupportWithZero) {
    mCore->mSupport = false;
    for (const uint32_t code : {9U, 18U, 24U}) {
        Parcel reply;
        EXPECT_EQ(OK, transact(code, ints({1}), &reply));
        EXPECT_EQ(0, reply.readInt32());
        EXPECT_EQ(0, reply.readInt32());
        EXPECT_EQ(0U, reply.dataAvail());
    }
}

TEST_F(UsbWireTest, AnswersADeviceFieldByField) {
    mCore->mDevice = makeUsbDevice(7, 2);
    Parcel reply;
    EXPECT_EQ(OK, transact(23, ints({3}), &reply));
    EXPECT_THAT(mCore->takeCalls(), ElementsAre("queryUsbDevice 3"));
    EXPECT_EQ(0, reply.readInt32());
    EXPECT_EQ(7, reply.readInt32());
    EXPECT_EQ(2, reply.readInt32());
    EXPECT_EQ(0xf1f2f3f0U, reply.readUint32());
    EXPECT_EQ(9, reply.readInt32());
    EXPECT_EQ(10, reply.readInt32());
    EXPECT_EQ(0x05ac, reply.readInt32());
    EXPECT_EQ(0x12a8, reply.readInt32());
    EXPECT_EQ(11, reply.readInt32());
    EXPECT_EQ(250, reply.readInt32());
    EXPECT_EQ(2, reply.readInt32());
    for (size_t i = 0; i < 2; ++i) {
        const sp<usb::UsbInterfaceItf> interface = mCore->mDevice->getInterface(i);
        EXPECT_EQ(interface->getInterfaceClass(), reply.readUint32());
        EXPECT_EQ(interface->getInterfaceSubClass(), reply.readUint32());
        EXPECT_EQ(interface->getInterfaceProtocol(), reply.readUint32());
    }
    EXPECT_EQ(0U, reply.dataAvail());
}

TEST_F(UsbWireTest, AnswersADeviceWithoutInterfaces) {
    mCore->mDevice = makeUsbDevice(1, 0);
    Parcel reply;
    EXPECT_EQ(OK, transact(23, ints({0}), &reply));
    EXPECT_EQ(11 * sizeof(int32_t), reply.dataSize());
    reply.setDataPosition(10 * sizeof(int32_t));
    EXPECT_EQ(0, reply.readInt32());
    const sp<UsbDeviceItf> read = mProxy->queryUsbDevice(0);
    expectSameUsbDevice(mCore->mDevice, read);
    EXPECT_EQ(0U, read->getInterfaceCount());
}

TEST_F(UsbWireTest, AnswersNoDeviceWithTheLeadingZeroAlone) {
    for (const int32_t index : {0, 1, -1, INT32_MAX, INT32_MIN}) {
        Parcel reply;
        EXPECT_EQ(OK, transact(23, ints({index}), &reply));
        EXPECT_EQ(0, reply.readInt32());
        EXPECT_EQ(sizeof(int32_t), reply.dataSize());
        EXPECT_EQ(nullptr, mProxy->queryUsbDevice(index));
    }
}

TEST_F(UsbWireTest, RegistersAndRemovesOverTheWire) {
    const sp<BnUsbManagerNotifier> events = new BnUsbManagerNotifier(mEvents);
    const sp<BnUsbHostNotifier> hosts = new BnUsbHostNotifier(mHosts);
    const auto request = [&](uint32_t code, const sp<IBinder>& object) {
        Parcel reply;
        EXPECT_EQ(OK, transact(
                          code, [&](Parcel& data) { data.writeStrongBinder(object); }, &reply));
        EXPECT_EQ(0, reply.readInt32());
        EXPECT_EQ(0, reply.readInt32());
        EXPECT_EQ(0U, reply.dataAvail());
    };
    request(1, events);
    EXPECT_THAT(dump({"notifier"}), HasSubstr("notifier size[1]"));
    request(5, hosts);
    EXPECT_THAT(dump({"notifier"}), HasSubstr("notifier size[1]"));
    mCore->mNotifier->onEvent(1, 0);
    mCore->mHostNotifier->onUsbDeviceAttached(makeUsbDevice(3, 1));
    EXPECT_THAT(mEvents->calls(), ElementsAre("event 1 0"));
    EXPECT_THAT(mHosts->calls(), ElementsAre("attached 3"));
    request(2, events);
    EXPECT_THAT(dump({"notifier"}), HasSubstr("notifier size[0]"));
    mCore->mNotifier->onEvent(9, 0);
    EXPECT_EQ(1U, mEvents->calls().size());
}

TEST_F(UsbWireTest, RemovingAHostNotifierRemovesTheManagerNotifier) {
    add(remote(mEvents), kClient);
    addHost(remote(mHosts), kClient);
    Parcel reply;
    EXPECT_EQ(OK,
              transact(
                  6, [&](Parcel& data) { data.writeStrongBinder(new BnUsbHostNotifier(mHosts)); }, &reply));
    EXPECT_EQ(0, reply.readInt32());
    EXPECT_EQ(0, reply.readInt32());
    EXPECT_EQ(0U, reply.dataAvail());
    EXPECT_THAT(dump({"notifier"}), HasSubstr("notifier size[0]"));
    mCore->mNotifier->onEvent(1, 0);
    EXPECT_THAT(mEvents->calls(), IsEmpty());
    mCore->mHostNotifier->onUsbDeviceAttached(makeUsbDevice(4, 0));
    mCore->mHostNotifier->onUsbDeviceDetached(makeUsbDevice(4, 0));
    EXPECT_THAT(mHosts->calls(), ElementsAre("attached 4", "detached 4"));
}

TEST_F(UsbWireTest, AQueryNeedsNoReplyParcel) {
    mCore->mDevice = makeUsbDevice(1, 1);
    EXPECT_EQ(OK, transact(23, ints({0}), nullptr));
}

TEST_F(UsbWireTest, RefusesRequestsWhoseNumbersAreCutShort) {
    size_t cuts = 0;
    for (const IntRow& row : intRows()) {
        const bool isText =
            row.code == 10 || row.code == 11 || row.code == 14 || row.code == 15 || row.code == 19;
        Parcel whole;
        writeToken(whole, "usb.UsbManager");
        const size_t head = whole.dataSize();
        row.request(whole);
        for (size_t size = isText ? 0 : head; !isText && size < whole.dataSize(); ++size) {
            Parcel cut;
            cut.setData(whole.data(), size);
            Parcel reply;
            EXPECT_LT(mService->transact(row.code, cut, &reply), 0) << row.call << " cut to " << size;
            EXPECT_EQ(sizeof(int32_t), reply.dataSize());
            ++cuts;
        }
    }
    EXPECT_GT(cuts, 100U);
    EXPECT_THAT(mCore->takeCalls(), IsEmpty());
}

TEST_F(UsbWireTest, ATextThatTheRequestLacksIsNull) {
    const std::vector<std::pair<uint32_t, const char*>> rows = {
        {10, "configAoaDescription null"},     {11, "aoaModeSwitchFilter null"},
        {14, "configAppleIapNodeName null"},   {15, "configAppleEanNodeName null"},
        {19, "configAppleEanStringName null"},
    };
    for (const auto& [code, call] : rows) {
        Parcel reply;
        EXPECT_EQ(OK, transact(code, nullptr, &reply));
        EXPECT_THAT(mCore->takeCalls(), ElementsAre(call));
        // Bytes without an end are no text.
        EXPECT_EQ(OK, transact(
                          code, [](Parcel& data) { data.writeInt32(0x41414141); }, &reply));
        EXPECT_THAT(mCore->takeCalls(), ElementsAre(call));
    }
}

TEST_F(UsbWireTest, TextsOfAMegabyteArriveWhole) {
    const std::string long_(1 << 20, 'x');
    EXPECT_EQ(114, mProxy->configAppleIapNodeName(long_.c_str()));
    EXPECT_THAT(mCore->takeCalls(), ElementsAre("configAppleIapNodeName " + long_));
}

TEST_F(UsbWireTest, TheProxySendsEveryRequestFieldByField) {
    std::vector<uint8_t> sent;
    uint32_t code = 0;
    mRemote->onRequest([&](uint32_t requested, const Parcel& request) {
        code = requested;
        // Behind the token's policy word, which is the library's own.
        sent.assign(request.data() + sizeof(int32_t), request.data() + request.dataSize());
    });
    const auto expectSent = [&](const IntRow& row, int result) {
        Parcel expected;
        writeToken(expected, "usb.UsbManager");
        row.request(expected);
        EXPECT_EQ(row.code, code) << row.call;
        EXPECT_EQ(
            std::vector<uint8_t>(expected.data() + sizeof(int32_t), expected.data() + expected.dataSize()),
            sent)
            << row.call;
        EXPECT_EQ(row.result, result) << row.call;
        EXPECT_THAT(mCore->takeCalls(), ElementsAre(row.call));
    };
    const std::vector<std::pair<IntRow, std::function<int()>>> calls = {
        {{3, ints({}), "startup", 103}, [&] { return mProxy->startup(); }},
        {{4, ints({}), "shutdown", 104}, [&] { return mProxy->shutdown(); }},
        {{7, ints({1}), "configUsbEnumerateScheme 1", 107},
         [&] { return mProxy->configUsbEnumerateScheme(true); }},
        {{8, ints({5, 0}), "configDefaultMode 5 0", 108},
         [&] { return mProxy->configDefaultMode(5, false); }},
        {{9, ints({-2}), "checkAoaModeSupport 4294967294", 1},
         [&] { return mProxy->checkAoaModeSupport(0xfffffffe); }},
        {{10, text("/f"), "configAoaDescription /f", 110},
         [&] { return mProxy->configAoaDescription("/f"); }},
        {{11, text("s"), "aoaModeSwitchFilter s", 111}, [&] { return mProxy->aoaModeSwitchFilter("s"); }},
        {{12, ints({1}), "configAoaTimeoutAction 1", 112},
         [&] { return mProxy->configAoaTimeoutAction(true); }},
        {{13, ints({2}), "switchUsbState 2", 113}, [&] { return mProxy->switchUsbState(2); }},
        {{14, text("i"), "configAppleIapNodeName i", 114},
         [&] { return mProxy->configAppleIapNodeName("i"); }},
        {{15, text("e"), "configAppleEanNodeName e", 115},
         [&] { return mProxy->configAppleEanNodeName("e"); }},
        {{16, ints({0}), "configKernelAutoRoleSwitch 0", 116},
         [&] { return mProxy->configKernelAutoRoleSwitch(false); }},
        {{17, ints({3}), "appleDeviceRoleSwitch 3", -117}, [&] { return mProxy->appleDeviceRoleSwitch(3); }},
        {{18, ints({4}), "isAppleCarplaySupport 4", 1}, [&] { return mProxy->isAppleCarplaySupport(4); }},
        {{19, text("n"), "configAppleEanStringName n", 119},
         [&] { return mProxy->configAppleEanStringName("n"); }},
        {{20, ints({1}), "resetUsbPort 1", 120}, [&] { return mProxy->resetUsbPort(1); }},
        {{21, ints({1, 1}), "setUsbPortPower 1 1", 121}, [&] { return mProxy->setUsbPortPower(1, true); }},
        {{22, ints({}), "getUsbDeviceCount", 122}, [&] { return mProxy->getUsbDeviceCount(); }},
        {{24, ints({0}), "usbDeviceIsActived 0", 1}, [&] { return mProxy->usbDeviceIsActived(0); }},
        {{25, ints({9}), "postTestMessage 9", 125}, [&] { return mProxy->postTestMessage(9); }},
        {{26, ints({1, 2}), "switchPortChargingMode 1 2", 126},
         [&] { return mProxy->switchPortChargingMode(1, 2); }},
        {{27, ints({1}), "getPortChargingMode 1", 127}, [&] { return mProxy->getPortChargingMode(1); }},
        {{28, ints({4}), "setMaxHubTier 4", 128}, [&] { return mProxy->setMaxHubTier(4); }},
        {{29, ints({3}), "addUnsupportedClass 3", 129}, [&] { return mProxy->addUnsupportedClass(3); }},
        {{30, ints({3}), "removeUnsupportedClass 3", 130}, [&] { return mProxy->removeUnsupportedClass(3); }},
        {{31, ints({77}), "setCertificationMode 77", 131}, [&] { return mProxy->setCertificationMode(77); }},
        {{32, ints({}), "getCertificationMode", 132}, [&] { return mProxy->getCertificationMode(); }},
    };
    for (const auto& [row, call] : calls) {
        expectSent(row, call());
    }
    mCore->mDevice = makeUsbDevice(12, 3);
    expectSameUsbDevice(mCore->mDevice, mProxy->queryUsbDevice(2));
    EXPECT_EQ(23U, code);
    EXPECT_THAT(mCore->takeCalls(), ElementsAre("queryUsbDevice 2"));
    EXPECT_THAT(mLog.take(kTag), IsEmpty());
}

TEST_F(UsbWireTest, TheProxySendsTheNotifiers) {
    std::vector<uint32_t> codes;
    mRemote->onRequest([&](uint32_t code, const Parcel& request) {
        codes.push_back(code);
        request.readInt32();
        EXPECT_EQ(String16("usb.UsbManager"), request.readString16());
        EXPECT_NE(nullptr, request.readStrongBinder());
        EXPECT_EQ(0U, request.dataAvail());
    });
    const sp<BnUsbManagerNotifier> events = new BnUsbManagerNotifier(mEvents);
    const sp<BnUsbHostNotifier> hosts = new BnUsbHostNotifier(mHosts);
    EXPECT_EQ(0, mProxy->addNotifier(events));
    EXPECT_EQ(0, mProxy->addHostNotifier(hosts));
    EXPECT_EQ(0, mProxy->removeNotifier(events));
    EXPECT_EQ(0, mProxy->addNotifier(events));
    EXPECT_EQ(0, mProxy->removeHostNotifier(hosts));
    EXPECT_THAT(codes, ElementsAre(1U, 5U, 2U, 1U, 6U));
    EXPECT_THAT(dump({"notifier"}), HasSubstr("notifier size[0]"));
}

TEST_F(UsbWireTest, TheProxySendsANullTextAsNull) {
    EXPECT_EQ(110, mProxy->configAoaDescription(nullptr));
    EXPECT_EQ(114, mProxy->configAppleIapNodeName(nullptr));
    EXPECT_EQ(115, mProxy->configAppleEanNodeName(nullptr));
    EXPECT_EQ(119, mProxy->configAppleEanStringName(nullptr));
    EXPECT_THAT(mCore->takeCalls(),
                ElementsAre("configAoaDescription null", "configAppleIapNodeName null",
                            "configAppleEanNodeName null", "configAppleEanStringName null"));
}

TEST_F(UsbWireTest, TheProxyReadsZerosWhenTheCallFails) {
    mCore->mDevice = makeUsbDevice(1, 1);
    mRemote->die();
    EXPECT_EQ(0, mProxy->startup());
    EXPECT_EQ(0, mProxy->setUsbPortPower(1, true));
    EXPECT_EQ(0, mProxy->configAppleIapNodeName("x"));
    EXPECT_EQ(0, mProxy->getUsbDeviceCount());
    EXPECT_EQ(nullptr, mProxy->queryUsbDevice(0));
    EXPECT_THAT(mLog.take(kTag), IsEmpty());
}

TEST_F(UsbWireTest, FiveOperationsLogEachStepThatFails) {
    const auto line = [](const char* text) { return LogLine{ANDROID_LOG_ERROR, kTag, text}; };
    mRemote->die();
    EXPECT_EQ(0, mProxy->configUsbEnumerateScheme(true));
    EXPECT_THAT(mLog.take(kTag), ElementsAre(line("configUsbEnumerateScheme 118:check return value failed"),
                                             line("configUsbEnumerateScheme 119:check return value failed")));
    EXPECT_EQ(0, mProxy->checkAoaModeSupport(1));
    EXPECT_THAT(mLog.take(kTag), ElementsAre(line("checkAoaModeSupport 142:check return value failed"),
                                             line("checkAoaModeSupport 143:check return value failed")));
    EXPECT_EQ(0, mProxy->aoaModeSwitchFilter("x"));
    EXPECT_THAT(mLog.take(kTag), ElementsAre(line("aoaModeSwitchFilter 162:check return value failed"),
                                             line("aoaModeSwitchFilter 163:check return value failed")));
    EXPECT_EQ(0, mProxy->configAoaTimeoutAction(true));
    EXPECT_THAT(mLog.take(kTag), ElementsAre(line("configAoaTimeoutAction 172:check return value failed"),
                                             line("configAoaTimeoutAction 173:check return value failed")));
    EXPECT_EQ(0, mProxy->usbDeviceIsActived(1));
    EXPECT_THAT(mLog.take(kTag), ElementsAre(line("usbDeviceIsActived 304:check return value failed"),
                                             line("usbDeviceIsActived 305:check return value failed")));
}

TEST_F(UsbWireTest, AnArgumentThatCannotBeWrittenIsAFailedStep) {
    EXPECT_EQ(0, mProxy->aoaModeSwitchFilter(nullptr));
    const auto line = [](const char* text) { return LogLine{ANDROID_LOG_ERROR, kTag, text}; };
    EXPECT_THAT(mLog.take(kTag), ElementsAre(line("aoaModeSwitchFilter 161:check return value failed"),
                                             line("aoaModeSwitchFilter 162:check return value failed"),
                                             line("aoaModeSwitchFilter 163:check return value failed")));
    EXPECT_THAT(mCore->takeCalls(), IsEmpty());
}

TEST_F(UsbWireTest, AnExceptionCodeIsLoggedByTheFiveAndTheResultReadAllTheSame) {
    mRemote->onReply([](status_t* /*status*/, Parcel* reply) {
        reply->freeData();
        reply->writeInt32(-5);
        reply->writeInt32(123);
        reply->setDataPosition(0);
    });
    EXPECT_EQ(123, mProxy->usbDeviceIsActived(0));
    EXPECT_EQ(123, mProxy->switchUsbState(0));
    EXPECT_THAT(mLog.take(kTag), ElementsAre(LogLine{ANDROID_LOG_ERROR, kTag,
                                                     "usbDeviceIsActived 305:check return value failed"}));
}

TEST_F(UsbWireTest, TheProxySurvivesHostileReplies) {
    mCore->mDevice = makeUsbDevice(1, 2);
    size_t size = 0;
    mRemote->onReply([&size](status_t* /*status*/, Parcel* reply) {
        const std::vector<uint8_t> whole(reply->data(), reply->data() + reply->dataSize());
        reply->setData(whole.data(), std::min(size, whole.size()));
    });
    const size_t whole = (11 + 2 * 3) * sizeof(int32_t);
    for (size = 0; size < whole; size += sizeof(int32_t)) {
        EXPECT_EQ(nullptr, mProxy->queryUsbDevice(0)) << size;
    }
    EXPECT_NE(nullptr, mProxy->queryUsbDevice(0));
    // Counts that the parcel cannot hold.
    for (const int32_t count : {1, 3, INT32_MAX, INT32_MIN, -1}) {
        mRemote->onReply([count](status_t* /*status*/, Parcel* reply) {
            reply->setDataPosition(10 * sizeof(int32_t));
            reply->writeInt32(count);
            const std::vector<uint8_t> head(reply->data(), reply->data() + 11 * sizeof(int32_t));
            reply->setData(head.data(), head.size());
        });
        EXPECT_EQ(nullptr, mProxy->queryUsbDevice(0)) << count;
    }
}

TEST(UsbDeviceParcelTest, ReadsBackWhatWasWritten) {
    for (const uint32_t interfaces : {0U, 1U, 2U, 32U}) {
        Parcel parcel;
        const sp<UsbDeviceItf> device = makeUsbDevice(99, interfaces);
        EXPECT_EQ(OK, usb::writeUsbDevice(parcel, *device));
        EXPECT_EQ((10 + 3 * interfaces) * sizeof(int32_t), parcel.dataSize());
        parcel.setDataPosition(0);
        const sp<UsbDeviceItf> read = usb::readUsbDevice(parcel);
        expectSameUsbDevice(device, read);
        // The pointer comes back without a sign of its own.
        EXPECT_EQ(uintptr_t{0xf1f2f3f0}, reinterpret_cast<uintptr_t>(read->getDevice()));
        EXPECT_EQ(0U, parcel.dataAvail());
    }
}

TEST(UsbDeviceParcelTest, ReadsNothingFromACutRecord) {
    Parcel whole;
    usb::writeUsbDevice(whole, *makeUsbDevice(1, 3));
    for (size_t size = 0; size < whole.dataSize(); ++size) {
        Parcel cut;
        cut.setData(whole.data(), size);
        EXPECT_EQ(nullptr, usb::readUsbDevice(cut)) << size;
    }
}

TEST(UsbNotifierWireTest, ManagerRequestsFieldByField) {
    const sp<EventRecorder> recorder = new EventRecorder(77);
    const sp<LoopbackBinder> remote = new LoopbackBinder(new BnUsbManagerNotifier(recorder), 1);
    const sp<IUsbManagerNotifier> proxy = android::interface_cast<IUsbManagerNotifier>(sp<IBinder>(remote));
    remote->onRequest([&](uint32_t code, const Parcel& request) {
        EXPECT_EQ(1U, code);
        request.readInt32();
        EXPECT_EQ(String16("usb.UsbManagerNotifier"), request.readString16());
        EXPECT_EQ(3, request.readInt32());
        EXPECT_EQ(-4, request.readInt32());
        EXPECT_EQ(0U, request.dataAvail());
    });
    remote->onReply(
        [](status_t* /*status*/, Parcel* reply) { EXPECT_EQ(sizeof(int32_t), reply->dataSize()); });
    EXPECT_EQ(77, proxy->onEvent(3, -4));
    EXPECT_THAT(recorder->calls(), ElementsAre("event 3 -4"));
    remote->die();
    EXPECT_EQ(0, proxy->onEvent(3, -4));
}

TEST(UsbNotifierWireTest, HostRequestsFieldByField) {
    const sp<HostRecorder> recorder = new HostRecorder(78);
    const sp<LoopbackBinder> remote = new LoopbackBinder(new BnUsbHostNotifier(recorder), 1);
    const sp<IUsbHostNotifier> proxy = android::interface_cast<IUsbHostNotifier>(sp<IBinder>(remote));
    std::vector<uint32_t> codes;
    remote->onRequest([&](uint32_t code, const Parcel& request) {
        codes.push_back(code);
        request.readInt32();
        EXPECT_EQ(String16("usb.UsbHostNotifier"), request.readString16());
        if (code == 1) {
            EXPECT_EQ(3, request.readInt32());
            EXPECT_EQ(-4, request.readInt32());
        } else {
            for (const uint32_t value :
                 {5U, 2U, 0xf1f2f3f0U, 9U, 10U, 0x05acU, 0x12a8U, 11U, 250U, 1U, 40U, 50U, 60U}) {
                EXPECT_EQ(value, request.readUint32());
            }
        }
        EXPECT_EQ(0U, request.dataAvail());
    });
    remote->onReply(
        [](status_t* /*status*/, Parcel* reply) { EXPECT_EQ(sizeof(int32_t), reply->dataSize()); });
    const sp<UsbDeviceItf> device = makeUsbDevice(5, 1);
    EXPECT_EQ(78, proxy->onEvent(3, -4));
    EXPECT_EQ(78, proxy->onUsbDeviceAttached(device));
    expectSameUsbDevice(device, recorder->lastDevice());
    EXPECT_EQ(78, proxy->onUsbDeviceDetached(device));
    EXPECT_THAT(codes, ElementsAre(1U, 2U, 3U));
    EXPECT_THAT(recorder->calls(), ElementsAre("event 3 -4", "attached 5", "detached 5"));
    remote->die();
    EXPECT_EQ(0, proxy->onUsbDeviceAttached(device));
}

TEST(UsbNotifierWireTest, RefuseForeignAndBrokenRequests) {
    const sp<EventRecorder> events = new EventRecorder();
    const sp<HostRecorder> hosts = new HostRecorder();
    const auto refuse = [](const sp<android::BBinder>& notifier, const char* name, uint32_t last) {
        for (uint32_t code = 1; code <= last; ++code) {
            Parcel foreign;
            writeToken(foreign, "usb.UsbManager");
            Parcel reply;
            EXPECT_EQ(-1, notifier->transact(code, foreign, &reply));
            Parcel cut;
            writeToken(cut, name);
            cut.writeInt32(1);
            EXPECT_LT(notifier->transact(code, cut, &reply), 0);
            EXPECT_EQ(0U, reply.dataSize());
        }
        for (const uint32_t code : {0U, last + 1}) {
            Parcel request;
            Parcel reply;
            EXPECT_EQ(UNKNOWN_TRANSACTION, notifier->transact(code, request, &reply));
        }
    };
    refuse(new BnUsbManagerNotifier(events), "usb.UsbManagerNotifier", 1);
    refuse(new BnUsbHostNotifier(hosts), "usb.UsbHostNotifier", 3);
    EXPECT_THAT(events->calls(), IsEmpty());
    EXPECT_THAT(hosts->calls(), IsEmpty());
}

TEST(UsbNotifierWireTest, NeedNoReplyParcel) {
    const sp<HostRecorder> hosts = new HostRecorder();
    const sp<BnUsbHostNotifier> notifier = new BnUsbHostNotifier(hosts);
    Parcel request;
    writeToken(request, "usb.UsbHostNotifier");
    usb::writeUsbDevice(request, *makeUsbDevice(6, 2));
    EXPECT_EQ(OK, notifier->transact(2, request, nullptr));
    EXPECT_THAT(hosts->calls(), ElementsAre("attached 6"));
}
