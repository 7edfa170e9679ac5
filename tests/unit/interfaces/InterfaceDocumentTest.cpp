// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * docs/interfaces.md says what the code does: names and codes, every request and reply field by field, the
 * records. The services answer requests made from the tables; the proxies are answered from the tables.
 */
#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <functional>
#include <regex>
#include <set>
#include <sstream>

#include "device/BnDeviceManager.h"
#include "device/BnDeviceManagerNotifier.h"
#include "device/BpDeviceManager.h"
#include "device/BpDeviceManagerNotifier.h"
#include "device/Device.h"
#include "device/DeviceParcel.h"
#include "tests/unit/device/Recorder.h"
#include "tests/unit/interfaces/InterfaceDocument.h"
#include "tests/unit/support/LogCapture.h"
#include "tests/unit/support/LoopbackBinder.h"
#include "tests/unit/usb_service/UsbServiceFixture.h"
#include "tests/unit/volume/VolumeRecorder.h"
#include "usb/BnUsbHostNotifier.h"
#include "usb/BnUsbManagerNotifier.h"
#include "usb/BpUsbHostNotifier.h"
#include "usb/BpUsbManager.h"
#include "usb/BpUsbManagerNotifier.h"
#include "usb/UsbDeviceParcel.h"
#include "volume/BnVolumeManager.h"
#include "volume/BnVolumeManagerNotifier.h"
#include "volume/BpVolumeManager.h"
#include "volume/BpVolumeManagerNotifier.h"
#include "volume/Volume.h"
#include "volume/VolumeParcel.h"

using android::BBinder;
using android::IBinder;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using android::String8;
using android::Vector;
using device::DeviceItf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using usb::UsbDeviceItf;
using volume::VolumeItf;

namespace {

constexpr pid_t kClient = 1001;

const InterfaceDocument& document() {
    static const auto& sDocument = *new InterfaceDocument(PROJECT_FOLDER "/docs/interfaces.md");
    return sDocument;
}

/** "accessor=value " as the document's records are told. */
std::string said(const char* accessor, const String8& value) {
    return std::string(accessor) + "=" + value.string() + " ";
}

std::string said(const char* accessor, uint32_t value) {
    return std::string(accessor) + "=" + std::to_string(static_cast<int32_t>(value)) + " ";
}

std::string sorted(std::vector<std::string> groups) {
    std::sort(groups.begin(), groups.end());
    std::string all;
    for (const std::string& group : groups) {
        all += "[" + group + "]";
    }
    return all;
}

std::string describe(const DeviceItf& device) {
    std::vector<std::string> properties;
    for (size_t i = 0; i < device.getParamSize(); ++i) {
        properties.push_back(said("getParamName", device.getParamName(i)) +
                             said("getParamValue", device.getParamValue(i)));
    }
    return said("getPath", device.getPath()) + said("getSubsystem", device.getSubsystem()) +
           said("getParamSize", static_cast<uint32_t>(device.getParamSize())) + sorted(properties);
}

std::string describe(const VolumeItf& volume) {
    return said("getName", volume.getName()) + said("getUuid", volume.getUuid()) +
           said("getLabel", volume.getLabel()) + said("getFormat", volume.getFormat()) +
           said("getAccessPath", volume.getAccessPath()) + said("getDevicePath", volume.getDevicePath()) +
           said("getMountPath", volume.getMountPath()) + said("getMbrPath", volume.getMbrPath());
}

std::string describe(const UsbDeviceItf& device) {
    std::vector<std::string> interfaces;
    for (uint32_t i = 0; i < device.getInterfaceCount(); ++i) {
        const sp<usb::UsbInterfaceItf> interface = device.getInterface(i);
        interfaces.push_back(said("getInterfaceClass", interface->getInterfaceClass()) +
                             said("getInterfaceSubClass", interface->getInterfaceSubClass()) +
                             said("getInterfaceProtocol", interface->getInterfaceProtocol()));
    }
    return said("getId", device.getId()) + said("getBusNumber", device.getBusNumber()) +
           said("getDevice", static_cast<uint32_t>(reinterpret_cast<uintptr_t>(device.getDevice()))) +
           said("getDeviceClass", device.getDeviceClass()) +
           said("getDeviceSubClass", device.getDeviceSubClass()) + said("getVendorId", device.getVendorId()) +
           said("getProductId", device.getProductId()) +
           said("getDeviceProtocol", device.getDeviceProtocol()) +
           said("getMaxPower", device.getConfig()->getMaxPower()) +
           said("getInterfaceCount", device.getInterfaceCount()) + sorted(interfaces);
}

template <typename Record>
std::string described(const sp<Record>& record) {
    return record != nullptr ? describe(*record) : "(null)";
}

/** Values that have no accessor, as the document tells those of a transaction. */
std::string plain(std::initializer_list<const char*> values) {
    std::string all;
    for (const char* value : values) {
        all += std::string("=") + value + " ";
    }
    return all;
}

std::string plain(int value) {
    return plain({std::to_string(value).c_str()});
}

sp<DeviceItf> makeDevice() {
    const sp<DeviceItf> device = new device::Device();
    device->setPath("/devices/a");
    device->setSubsystem("block");
    device->addParam("DEVNAME", "sda");
    device->addParam("MAJOR", "8");
    return device;
}

sp<VolumeItf> makeVolume() {
    return new volume::Volume(String8("sda1"), String8("id"), String8("label"), String8("vfat"),
                              String8("/media/sda1"), String8("/dev/sda1"), String8("/mnt/sda1"),
                              String8("/dev/sda"));
}

/** A core that remembers what it is asked. */
class DeviceCore : public device::DeviceManagerImplItf {
  public:
    int startup() override { return note("startup"); }
    int shutdown() override { return note("shutdown"); }
    int setNotifier(const sp<device::DeviceManagerNotifierItf>& /*notifier*/) override { return 0; }
    sp<DeviceItf> getDevice(const String8& subsystem, const String8& devName) override {
        note(std::string("getDevice ") + subsystem.string() + " " + devName.string());
        return makeDevice();
    }
    Vector<sp<DeviceItf>> getDevices(const String8& path) override {
        note(std::string("getDevices ") + path.string());
        Vector<sp<DeviceItf>> devices;
        devices.add(makeDevice());
        devices.add(makeDevice());
        return devices;
    }
    String8 getDevicePath(int type, int id) override {
        note("getDevicePath " + std::to_string(type) + " " + std::to_string(id));
        return String8("/devices/controller");
    }
    int dump(const Vector<String16>& /*args*/, String8& /*result*/) override { return 0; }

    std::vector<std::string> takeCalls() { return std::exchange(mCalls, {}); }

  private:
    int note(const std::string& call) {
        mCalls.push_back(call);
        return 0;
    }

    std::vector<std::string> mCalls;
};

/** A core that remembers what it is asked. */
class VolumeCore : public volume::VolumeManagerImplItf {
  public:
    int startup() override { return note("startup"); }
    int shutdown() override { return note("shutdown"); }
    int setNotifier(const sp<volume::VolumeManagerNotifierItf>& /*notifier*/) override { return 0; }
    int getVolumeCount() override { return note("getVolumeCount"); }
    sp<VolumeItf> queryVolume(int index) override {
        note("queryVolume " + std::to_string(index));
        return makeVolume();
    }
    int dump(const Vector<String16>& /*args*/, String8& /*result*/) override { return 0; }

    std::vector<std::string> takeCalls() { return std::exchange(mCalls, {}); }

  private:
    int note(const std::string& call) {
        mCalls.push_back(call);
        return 0;
    }

    std::vector<std::string> mCalls;
};

/** Begins a request as the document says. */
void writeTokenOf(Parcel& request, const std::string& interface) {
    request.writeInt32(0x1234);
    request.writeString16(String16(interface.c_str()));
}

/** An object that knows nothing but the document's tables. */
class DocumentedObject : public BBinder {
  public:
    explicit DocumentedObject(const std::string& interface) : mInterface(interface) {}

    /** "operation" and the request of the last call, and what it was answered, as records are told. */
    std::string mOperation;
    std::string mRequest;
    std::string mReply;

  protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        const Transaction* const row = document().find(mInterface, code);
        if (row == nullptr) {
            mOperation = "code " + std::to_string(code);
            return android::UNKNOWN_TRANSACTION;
        }
        EXPECT_EQ(0U, flags);
        data.readInt32();
        EXPECT_EQ(String16(mInterface.c_str()), data.readString16()) << row->operation;
        mOperation = row->operation;
        mRequest = document().read(data, row->request).byAccessor;
        if (row->leadingZero) {
            reply->writeInt32(0);
        }
        mReply = document().writeSample(*reply, row->reply).byAccessor;
        return OK;
    }

  private:
    const std::string mInterface;
};

/** One call of a proxy: what it says on the wire and what it returns, both as the document tells them. */
struct ProxyCall {
    const char* operation;
    std::string request;
    std::function<std::string()> call;
};

/** Makes each call and compares what both sides understood; every row of the interface must be called. */
void expectCalls(const std::string& interface, const DocumentedObject& object,
                 const std::vector<ProxyCall>& calls) {
    std::set<std::string> called;
    for (const ProxyCall& each : calls) {
        const std::string result = each.call();
        EXPECT_EQ(each.operation, object.mOperation) << interface;
        EXPECT_EQ(each.request, object.mRequest) << each.operation;
        EXPECT_EQ(object.mReply, result) << each.operation;
        called.insert(each.operation);
    }
    std::set<std::string> documented;
    for (const Transaction& row : document().interfaces().at(interface)) {
        documented.insert(row.operation);
    }
    EXPECT_EQ(documented, called) << interface;
}

std::string textOf(const std::string& name) {
    std::ifstream file(std::string(PROJECT_FOLDER "/") + name);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

/** The bytes of the document's block "```bytes NAME", two digits each; behind two blanks stands a remark. */
std::vector<uint8_t> bytesOf(const std::string& name) {
    const std::string page = textOf("docs/interfaces.md");
    const std::string fence = "```bytes " + name + "\n";
    const size_t begin = page.find(fence);
    EXPECT_NE(std::string::npos, begin) << name;
    std::stringstream lines(page.substr(begin + fence.size()));
    std::vector<uint8_t> bytes;
    for (std::string line; std::getline(lines, line) && line != "```";) {
        std::stringstream digits(line.substr(0, line.find("  ")));
        for (std::string byte; digits >> byte;) {
            bytes.push_back(static_cast<uint8_t>(std::stoul(byte, nullptr, 16)));
        }
    }
    return bytes;
}

std::vector<uint8_t> bytesOf(const Parcel& parcel) {
    return {parcel.data(), parcel.data() + parcel.dataSize()};
}

/** The numbers of an enumeration of a header, transaction codes for one, by the names in lower case. */
std::map<std::string, uint32_t> codesOf(const std::string& header,
                                        const std::string& enumeration = "enum Transaction") {
    const std::string source = textOf(header);
    const size_t begin = source.find(enumeration);
    EXPECT_NE(std::string::npos, begin) << header;
    const std::string body = source.substr(begin, source.find("};", begin) - begin);
    static const auto& sCode = *new std::regex("k([A-Z]\\w*) = (\\d+),");
    std::map<std::string, uint32_t> codes;
    for (std::sregex_iterator at(body.begin(), body.end(), sCode), end; at != end; ++at) {
        std::string name = (*at)[1];
        name[0] = static_cast<char>(tolower(name[0]));
        codes[name] = static_cast<uint32_t>(std::stoul((*at)[2]));
    }
    return codes;
}

/** The services, their notifiers and clients' objects, to be called as the document says. */
class InterfaceDocumentTest : public ::testing::Test {
  protected:
    /** Calls @p target with a request made from @p row; checks the reply to its end. @return the request */
    Values call(BBinder& target, const std::string& interface, const Transaction& row,
                std::string* arguments = nullptr, const sp<IBinder>& object = nullptr) {
        Parcel request;
        Parcel reply;
        writeTokenOf(request, interface);
        const Values sent = document().writeSample(request, row.request, object, arguments);
        const CallingAs caller(kClient);
        EXPECT_EQ(OK, target.transact(row.code, request, &reply)) << row.operation;
        if (row.leadingZero) {
            EXPECT_EQ(0, reply.readInt32()) << row.operation;
        }
        mReply = document().read(reply, row.reply);
        EXPECT_EQ(std::string::npos, mReply.byName.find('(')) << row.operation << ": " << mReply.byName;
        EXPECT_FALSE(mReply.byName.empty()) << row.operation;
        return sent;
    }

    /** Every row of a service's table; its core must be asked what the row says. */
    template <typename Core>
    void expectService(BBinder& service, const std::string& interface, Core& core,
                       const sp<IBinder>& notifier) {
        for (const Transaction& row : document().interfaces().at(interface)) {
            std::string arguments;
            if (row.operation == "removeHostNotifier") {
                // It removes the manager notifier.
                call(service, interface, *document().find(interface, 1), nullptr, notifier);
            }
            call(service, interface, row, &arguments, notifier);
            if (row.operation.find("Notifier") != std::string::npos) {
                EXPECT_EQ("result=0 ", mReply.byName) << row.operation;
                EXPECT_THAT(core.takeCalls(), IsEmpty());
            } else {
                EXPECT_THAT(core.takeCalls(), ElementsAre(row.operation + arguments));
            }
        }
    }

    /** What @p target answers to what is wrong, and to the base operations. */
    void expectErrors(BBinder& target, const std::string& interface, bool leadingZero) {
        uint32_t last = 0;
        for (const Transaction& row : document().interfaces().at(interface)) {
            last = std::max(last, row.code);
            Parcel request;
            Parcel reply;
            writeTokenOf(request, interface + "s");
            EXPECT_EQ(document().statusOf("the token is of another interface"),
                      target.transact(row.code, request, &reply))
                << row.operation;
            if (!row.request.empty() && row.request[0].fields[0].type != "binder" &&
                row.request[0].fields[0].type != "CString") {
                Parcel cut;
                writeTokenOf(cut, interface);
                EXPECT_EQ(document().statusOf("a number or a String8 is missing"),
                          target.transact(row.code, cut, &reply))
                    << row.operation;
            }
        }
        for (const uint32_t code : {0U, last + 1, 4711U}) {
            Parcel request;
            Parcel reply;
            writeTokenOf(request, interface);
            EXPECT_EQ(document().statusOf("the code is none of the interface's"),
                      target.transact(code, request, &reply));
        }
        Parcel none;
        Parcel ping;
        EXPECT_EQ(OK, target.transact(document().baseCodes().at("ping"), none, &ping));
        EXPECT_EQ((leadingZero ? 2 : 1) * sizeof(int32_t), ping.dataSize());
        Parcel name;
        EXPECT_EQ(OK, target.transact(document().baseCodes().at("interface"), none, &name));
        if (leadingZero) {
            EXPECT_EQ(0, name.readInt32());
        }
        EXPECT_EQ(String16(interface.c_str()), name.readString16());
        EXPECT_EQ(0U, name.dataAvail());
        EXPECT_EQ(uint32_t{IBinder::DUMP_TRANSACTION}, document().baseCodes().at("dump"));
        EXPECT_EQ(3U, document().baseCodes().size());
    }

    LogCapture mLog;
    Values mReply;
    const sp<DeviceCore> mDeviceCore = new DeviceCore();
    const sp<VolumeCore> mVolumeCore = new VolumeCore();
    const sp<FakeUsbCore> mUsbCore = new FakeUsbCore();
    const sp<device::BnDeviceManager> mDevices = new device::BnDeviceManager(mDeviceCore);
    const sp<volume::BnVolumeManager> mVolumes = new volume::BnVolumeManager(mVolumeCore);
    const sp<usb::BnUsbManager> mUsb = new usb::BnUsbManager(mUsbCore);
    const sp<Recorder> mDeviceRecorder = new Recorder(77);
    const sp<VolumeRecorder> mVolumeRecorder = new VolumeRecorder(77);
    const sp<EventRecorder> mEventRecorder = new EventRecorder(77);
    const sp<HostRecorder> mHostRecorder = new HostRecorder(77);
    const sp<BBinder> mDeviceNotifier = new device::BnDeviceManagerNotifier(mDeviceRecorder);
    const sp<BBinder> mVolumeNotifier = new volume::BnVolumeManagerNotifier(mVolumeRecorder);
    const sp<BBinder> mUsbNotifier = new usb::BnUsbManagerNotifier(mEventRecorder);
    const sp<BBinder> mHostNotifier = new usb::BnUsbHostNotifier(mHostRecorder);
};

}  // namespace

TEST_F(InterfaceDocumentTest, NamesTheServicesAndTheirInterfaces) {
    const auto names = [](const String16& name) { return std::string(String8(name).string()); };
    struct Expected {
        const char* service;
        std::string interface;
        std::vector<std::string> notifiers;
    };
    const std::vector<Expected> expected = {
        {device::IDeviceManager::kServiceName,
         names(device::IDeviceManager::descriptor),
         {names(device::IDeviceManagerNotifier::descriptor)}},
        {volume::IVolumeManager::kServiceName,
         names(volume::IVolumeManager::descriptor),
         {names(volume::IVolumeManagerNotifier::descriptor)}},
        {usb::IUsbManager::kServiceName,
         names(usb::IUsbManager::descriptor),
         {names(usb::IUsbManagerNotifier::descriptor), names(usb::IUsbHostNotifier::descriptor)}},
    };
    ASSERT_EQ(expected.size(), document().services().size());
    std::set<std::string> interfaces;
    for (size_t i = 0; i < expected.size(); ++i) {
        const ServiceRow& row = document().services()[i];
        EXPECT_EQ(expected[i].service, row.name);
        EXPECT_EQ(expected[i].interface, row.interface);
        EXPECT_EQ(expected[i].notifiers, row.notifiers);
        interfaces.insert(row.interface);
        interfaces.insert(row.notifiers.begin(), row.notifiers.end());
    }
    std::set<std::string> documented;
    for (const auto& [interface, rows] : document().interfaces()) {
        documented.insert(interface);
    }
    EXPECT_EQ(interfaces, documented);
}

TEST_F(InterfaceDocumentTest, HasEveryCodeOfEveryHeader) {
    const std::map<std::string, std::string> headers = {
        {"device.DeviceManager", "device/IDeviceManager.h"},
        {"device.DeviceManagerNotifier", "device/IDeviceManagerNotifier.h"},
        {"volume.VolumeManager", "volume/IVolumeManager.h"},
        {"volume.VolumeManagerNotifier", "volume/IVolumeManagerNotifier.h"},
        {"usb.UsbManager", "usb/IUsbManager.h"},
        {"usb.UsbManagerNotifier", "usb/IUsbManagerNotifier.h"},
        {"usb.UsbHostNotifier", "usb/IUsbHostNotifier.h"},
    };
    ASSERT_EQ(headers.size(), document().interfaces().size());
    for (const auto& [interface, header] : headers) {
        std::map<std::string, uint32_t> documented;
        for (const Transaction& row : document().interfaces().at(interface)) {
            EXPECT_TRUE(documented.emplace(row.operation, row.code).second) << row.operation << " twice";
        }
        EXPECT_EQ(codesOf(header), documented) << interface;
    }
    EXPECT_EQ(32U, document().interfaces().at("usb.UsbManager").size());
}

TEST_F(InterfaceDocumentTest, HasEveryEventOfTheHeader) {
    const std::string page = textOf("docs/interfaces.md");
    const size_t begin = page.find("| event | value | what happened |");
    ASSERT_NE(std::string::npos, begin);
    std::stringstream lines(page.substr(begin));
    std::set<uint32_t> documented;
    std::string line;
    std::getline(lines, line);
    std::getline(lines, line);
    while (std::getline(lines, line) && line[0] == '|') {
        std::stringstream numbers(line.substr(1, line.find('|', 1) - 1));
        for (std::string number; std::getline(numbers, number, ',');) {
            EXPECT_TRUE(documented.insert(std::stoul(number)).second) << number << " twice";
        }
    }
    std::set<uint32_t> declared;
    for (const auto& [name, number] : codesOf("usb/UsbManagerNotifierItf.h", "enum UsbEvent")) {
        declared.insert(number);
    }
    EXPECT_EQ(declared, documented);
    EXPECT_EQ(8U, documented.size());
}

TEST_F(InterfaceDocumentTest, TheExampleIsWhatTravels) {
    const sp<LoopbackBinder> remote = new LoopbackBinder(mDevices, kClient);
    std::vector<uint8_t> request;
    std::vector<uint8_t> reply;
    remote->onRequest([&](uint32_t code, const Parcel& parcel) {
        EXPECT_EQ(uint32_t{device::IDeviceManager::kGetDevice}, code);
        request = bytesOf(parcel);
    });
    remote->onReply([&](status_t* /*status*/, Parcel* parcel) { reply = bytesOf(*parcel); });
    const sp<device::BpDeviceManager> proxy = new device::BpDeviceManager(remote);
    ASSERT_NE(nullptr, proxy->getDevice(String8("block"), String8("sda")).get());
    ASSERT_LT(sizeof(int32_t), request.size());
    // The policy word may hold anything.
    std::fill_n(request.begin(), sizeof(int32_t), uint8_t{0});
    EXPECT_EQ(bytesOf("request"), request);
    EXPECT_EQ(bytesOf("reply"), reply);
}

TEST_F(InterfaceDocumentTest, TheDeviceServiceUnderstandsTheTable) {
    expectService(*mDevices, "device.DeviceManager", *mDeviceCore, mDeviceNotifier);
    expectErrors(*mDevices, "device.DeviceManager", true);
}

TEST_F(InterfaceDocumentTest, TheVolumeServiceUnderstandsTheTable) {
    expectService(*mVolumes, "volume.VolumeManager", *mVolumeCore, mVolumeNotifier);
    expectErrors(*mVolumes, "volume.VolumeManager", true);
}

TEST_F(InterfaceDocumentTest, TheUsbServiceUnderstandsTheTable) {
    mUsbCore->mDevice = makeUsbDevice(7, 3);
    expectService(*mUsb, "usb.UsbManager", *mUsbCore, mUsbNotifier);
    expectErrors(*mUsb, "usb.UsbManager", true);
}

TEST_F(InterfaceDocumentTest, AnOptionalRecordMayBeMissing) {
    const Transaction& row = *document().find("usb.UsbManager", usb::IUsbManager::kQueryUsbDevice);
    ASSERT_EQ(1U, row.reply.size());
    EXPECT_TRUE(row.reply[0].optional);
    Parcel request;
    Parcel reply;
    writeTokenOf(request, "usb.UsbManager");
    request.writeInt32(0);
    EXPECT_EQ(OK, mUsb->transact(row.code, request, &reply));
    EXPECT_EQ(0, reply.readInt32());
    EXPECT_EQ(0U, reply.dataAvail());
}

TEST_F(InterfaceDocumentTest, ClientsNotifiersUnderstandTheTables) {
    const auto expectNotified = [&](BBinder& notifier, const std::string& interface,
                                    const std::function<std::string(const std::string&)>& heard) {
        for (const Transaction& row : document().interfaces().at(interface)) {
            std::string arguments;
            const Values sent = call(notifier, interface, row, &arguments);
            EXPECT_EQ("result=77 ", mReply.byName) << row.operation;
            const std::string expected = row.operation == "onEvent" ? "event" + arguments : sent.byAccessor;
            EXPECT_EQ(expected, heard(row.operation)) << row.operation;
        }
        expectErrors(notifier, interface, false);
    };
    expectNotified(*mDeviceNotifier, "device.DeviceManagerNotifier", [&](const std::string& operation) {
        const std::string last = mDeviceRecorder->calls().back();
        EXPECT_EQ(operation == "onDeviceAdded", last.rfind("added", 0) == 0);
        return operation == "onEvent" ? last : described(mDeviceRecorder->lastDevice());
    });
    expectNotified(*mVolumeNotifier, "volume.VolumeManagerNotifier", [&](const std::string& operation) {
        const std::string last = mVolumeRecorder->calls().back();
        EXPECT_EQ(operation == "onVolumeAdded", last.rfind("added", 0) == 0);
        return operation == "onEvent" ? last : described(mVolumeRecorder->lastVolume());
    });
    expectNotified(*mUsbNotifier, "usb.UsbManagerNotifier",
                   [&](const std::string&) { return mEventRecorder->calls().back(); });
    expectNotified(*mHostNotifier, "usb.UsbHostNotifier", [&](const std::string& operation) {
        const std::string last = mHostRecorder->calls().back();
        EXPECT_EQ(operation == "onUsbDeviceAttached", last.rfind("attached", 0) == 0);
        return operation == "onEvent" ? last : described(mHostRecorder->lastDevice());
    });
}

TEST_F(InterfaceDocumentTest, RecordsAreReadAndWrittenAsTheTablesSay) {
    const auto expectRecord = [](const char* name, const std::function<std::string(Parcel&, Parcel&)>& pass) {
        const Items& items = document().records().at(name);
        Parcel written;
        Parcel again;
        const Values sample = document().writeSample(written, items);
        written.setDataPosition(0);
        EXPECT_EQ(sample.byAccessor, pass(written, again)) << name;
        EXPECT_EQ(0U, written.dataAvail()) << name;
        again.setDataPosition(0);
        EXPECT_EQ(sample, document().read(again, items)) << name;
    };
    expectRecord("Device", [](Parcel& in, Parcel& out) {
        const sp<DeviceItf> record = device::readDevice(in);
        EXPECT_EQ(OK, device::writeDevice(out, *record));
        return describe(*record);
    });
    expectRecord("Volume", [](Parcel& in, Parcel& out) {
        const sp<VolumeItf> record = volume::readVolume(in);
        EXPECT_EQ(OK, volume::writeVolume(out, *record));
        return describe(*record);
    });
    expectRecord("UsbDevice", [](Parcel& in, Parcel& out) {
        const sp<UsbDeviceItf> record = usb::readUsbDevice(in);
        EXPECT_EQ(OK, usb::writeUsbDevice(out, *record));
        return describe(*record);
    });
    EXPECT_EQ(3U, document().records().size());
}

TEST_F(InterfaceDocumentTest, TheDeviceProxySpeaksTheTable) {
    const sp<DocumentedObject> object = new DocumentedObject("device.DeviceManager");
    const sp<device::BpDeviceManager> proxy =
        new device::BpDeviceManager(new LoopbackBinder(object, kClient));
    expectCalls(
        "device.DeviceManager", *object,
        {
            {"addNotifier", plain({"object"}), [&] { return plain(proxy->addNotifier(mDeviceNotifier)); }},
            {"removeNotifier", plain({"object"}),
             [&] { return plain(proxy->removeNotifier(mDeviceNotifier)); }},
            {"startup", "", [&] { return plain(proxy->startup()); }},
            {"shutdown", "", [&] { return plain(proxy->shutdown()); }},
            {"getDevice", plain({"block", "sda"}),
             [&] {
                 return plain(1) + sorted({described(proxy->getDevice(String8("block"), String8("sda")))});
             }},
            {"getDevices", plain({"/a/b"}),
             [&] {
                 std::vector<std::string> all;
                 for (const sp<DeviceItf>& device : proxy->getDevices(String8("/a/b"))) {
                     all.push_back(described(device));
                 }
                 return plain(static_cast<int>(all.size())) + sorted(all);
             }},
            {"getDevicePath", plain({"1", "2"}),
             [&] { return plain({proxy->getDevicePath(1, 2).string()}); }},
        });
}

TEST_F(InterfaceDocumentTest, TheVolumeProxySpeaksTheTable) {
    const sp<DocumentedObject> object = new DocumentedObject("volume.VolumeManager");
    const sp<volume::BpVolumeManager> proxy =
        new volume::BpVolumeManager(new LoopbackBinder(object, kClient));
    expectCalls(
        "volume.VolumeManager", *object,
        {
            {"addNotifier", plain({"object"}), [&] { return plain(proxy->addNotifier(mVolumeNotifier)); }},
            {"removeNotifier", plain({"object"}),
             [&] { return plain(proxy->removeNotifier(mVolumeNotifier)); }},
            {"startup", "", [&] { return plain(proxy->startup()); }},
            {"shutdown", "", [&] { return plain(proxy->shutdown()); }},
            {"getVolumeCount", "", [&] { return plain(proxy->getVolumeCount()); }},
            {"queryVolume", plain({"3"}), [&] { return described(proxy->queryVolume(3)); }},
        });
}

TEST_F(InterfaceDocumentTest, TheUsbProxySpeaksTheTable) {
    const sp<DocumentedObject> object = new DocumentedObject("usb.UsbManager");
    const sp<usb::BpUsbManager> usb = new usb::BpUsbManager(new LoopbackBinder(object, kClient));
    expectCalls(
        "usb.UsbManager", *object,
        {
            {"addNotifier", plain({"object"}), [&] { return plain(usb->addNotifier(mUsbNotifier)); }},
            {"removeNotifier", plain({"object"}), [&] { return plain(usb->removeNotifier(mUsbNotifier)); }},
            {"startup", "", [&] { return plain(usb->startup()); }},
            {"shutdown", "", [&] { return plain(usb->shutdown()); }},
            {"addHostNotifier", plain({"object"}),
             [&] { return plain(usb->addHostNotifier(mHostNotifier)); }},
            {"removeHostNotifier", plain({"object"}),
             [&] { return plain(usb->removeHostNotifier(mHostNotifier)); }},
            {"configUsbEnumerateScheme", plain({"1"}),
             [&] { return plain(usb->configUsbEnumerateScheme(true)); }},
            {"configDefaultMode", plain({"5", "0"}), [&] { return plain(usb->configDefaultMode(5, false)); }},
            {"checkAoaModeSupport", plain({"4"}), [&] { return plain(usb->checkAoaModeSupport(4)); }},
            {"configAoaDescription", plain({"/f"}), [&] { return plain(usb->configAoaDescription("/f")); }},
            {"aoaModeSwitchFilter", plain({"s"}), [&] { return plain(usb->aoaModeSwitchFilter("s")); }},
            {"configAoaTimeoutAction", plain({"1"}),
             [&] { return plain(usb->configAoaTimeoutAction(true)); }},
            {"switchUsbState", plain({"2"}), [&] { return plain(usb->switchUsbState(2)); }},
            {"configAppleIapNodeName", plain({"i"}), [&] { return plain(usb->configAppleIapNodeName("i")); }},
            {"configAppleEanNodeName", plain({"e"}), [&] { return plain(usb->configAppleEanNodeName("e")); }},
            {"configKernelAutoRoleSwitch", plain({"0"}),
             [&] { return plain(usb->configKernelAutoRoleSwitch(false)); }},
            {"appleDeviceRoleSwitch", plain({"3"}), [&] { return plain(usb->appleDeviceRoleSwitch(3)); }},
            {"isAppleCarplaySupport", plain({"6"}), [&] { return plain(usb->isAppleCarplaySupport(6)); }},
            {"configAppleEanStringName", plain({"n"}),
             [&] { return plain(usb->configAppleEanStringName("n")); }},
            {"resetUsbPort", plain({"1"}), [&] { return plain(usb->resetUsbPort(1)); }},
            {"setUsbPortPower", plain({"2", "1"}), [&] { return plain(usb->setUsbPortPower(2, true)); }},
            {"getUsbDeviceCount", "", [&] { return plain(usb->getUsbDeviceCount()); }},
            {"queryUsbDevice", plain({"1"}), [&] { return described(usb->queryUsbDevice(1)); }},
            {"usbDeviceIsActived", plain({"0"}), [&] { return plain(usb->usbDeviceIsActived(0)); }},
            {"postTestMessage", plain({"7"}), [&] { return plain(usb->postTestMessage(7)); }},
            {"switchPortChargingMode", plain({"1", "2"}),
             [&] { return plain(usb->switchPortChargingMode(1, 2)); }},
            {"getPortChargingMode", plain({"1"}), [&] { return plain(usb->getPortChargingMode(1)); }},
            {"setMaxHubTier", plain({"4"}), [&] { return plain(usb->setMaxHubTier(4)); }},
            {"addUnsupportedClass", plain({"8"}), [&] { return plain(usb->addUnsupportedClass(8)); }},
            {"removeUnsupportedClass", plain({"8"}), [&] { return plain(usb->removeUnsupportedClass(8)); }},
            {"setCertificationMode", plain({"77"}), [&] { return plain(usb->setCertificationMode(77)); }},
            {"getCertificationMode", "", [&] { return plain(usb->getCertificationMode()); }},
        });
}

TEST_F(InterfaceDocumentTest, TheDaemonCallsNotifiersAsTheTablesSay) {
    const auto objectOf = [](const char* interface) {
        return sp<DocumentedObject>(new DocumentedObject(interface));
    };
    const sp<DocumentedObject> devices = objectOf("device.DeviceManagerNotifier");
    const sp<DocumentedObject> volumes = objectOf("volume.VolumeManagerNotifier");
    const sp<DocumentedObject> events = objectOf("usb.UsbManagerNotifier");
    const sp<DocumentedObject> hosts = objectOf("usb.UsbHostNotifier");
    const sp<device::BpDeviceManagerNotifier> toDevices =
        new device::BpDeviceManagerNotifier(new LoopbackBinder(devices, kClient));
    const sp<volume::BpVolumeManagerNotifier> toVolumes =
        new volume::BpVolumeManagerNotifier(new LoopbackBinder(volumes, kClient));
    const sp<usb::BpUsbManagerNotifier> toEvents =
        new usb::BpUsbManagerNotifier(new LoopbackBinder(events, kClient));
    const sp<usb::BpUsbHostNotifier> toHosts = new usb::BpUsbHostNotifier(new LoopbackBinder(hosts, kClient));
    const sp<DeviceItf> device = makeDevice();
    const sp<VolumeItf> volume = makeVolume();
    const sp<UsbDeviceItf> usbDevice = makeUsbDevice(9, 2);

    expectCalls(
        "device.DeviceManagerNotifier", *devices,
        {{"onEvent", plain({"5", "6"}), [&] { return plain(toDevices->onEvent(5, 6)); }},
         {"onDeviceAdded", describe(*device), [&] { return plain(toDevices->onDeviceAdded(device)); }},
         {"onDeviceRemoved", describe(*device), [&] { return plain(toDevices->onDeviceRemoved(device)); }}});
    expectCalls(
        "volume.VolumeManagerNotifier", *volumes,
        {{"onEvent", plain({"5", "6"}), [&] { return plain(toVolumes->onEvent(5, 6)); }},
         {"onVolumeAdded", describe(*volume), [&] { return plain(toVolumes->onVolumeAdded(volume)); }},
         {"onVolumeRemoved", describe(*volume), [&] { return plain(toVolumes->onVolumeRemoved(volume)); }}});
    expectCalls("usb.UsbManagerNotifier", *events,
                {{"onEvent", plain({"5", "6"}), [&] { return plain(toEvents->onEvent(5, 6)); }}});
    expectCalls("usb.UsbHostNotifier", *hosts,
                {{"onEvent", plain({"5", "6"}), [&] { return plain(toHosts->onEvent(5, 6)); }},
                 {"onUsbDeviceAttached", describe(*usbDevice),
                  [&] { return plain(toHosts->onUsbDeviceAttached(usbDevice)); }},
                 {"onUsbDeviceDetached", describe(*usbDevice),
                  [&] { return plain(toHosts->onUsbDeviceDetached(usbDevice)); }}});
}

TEST_F(InterfaceDocumentTest, TellsTheDriversStatuses) {
    EXPECT_EQ(static_cast<status_t>(android::DEAD_OBJECT), document().statusOf("the daemon ended"));
    EXPECT_EQ(static_cast<status_t>(android::FAILED_TRANSACTION),
              document().statusOf("the request or the reply is too large"));
}
