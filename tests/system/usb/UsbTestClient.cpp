// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A client of the USB service that does what its arguments say, one after the other, and prints a JSON object
 * a line for each result and each event. kUsage lists the steps.
 *
 * It knows the service by its wire alone: every request is built and every reply is read field by field here.
 */
#include <binder/Binder.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>

#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "tests/system/StepClient.h"

namespace {

using android::BBinder;
using android::IBinder;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using nlohmann::json;

constexpr const char* kUsage = R"(usage: usb-test-client STEP...
steps:
  add, remove            the manager's notifier
  add-host, remove-host  the host's notifier
  call=CODE[,INT...]     a request with these numbers; prints the reply's numbers
  text=CODE,TEXT         a request with a C string
  query=INDEX            the device of that index
  query-inside           from now on, ask for the count and the first device from inside each host call-back
  hold                   take further steps from standard input, a line each, until it ends
)";

enum Code : uint32_t {
    kAddNotifier = 1,
    kRemoveNotifier = 2,
    kAddHostNotifier = 5,
    kRemoveHostNotifier = 6,
    kGetUsbDeviceCount = 22,
    kQueryUsbDevice = 23,
};

enum NotifierCode : uint32_t { kOnEvent = 1, kOnAttached = 2, kOnDetached = 3 };

const String16& managerToken() {
    static const auto* const kToken = new String16("usb.UsbManager");
    return *kToken;
}

/** The record's numbers by name. "left" is what the parcel holds after it, in bytes. */
json readRecord(const Parcel& parcel) {
    json record;
    for (const char* name :
         {"id", "bus", "pointer", "class", "subclass", "vendor", "product", "protocol", "power", "count"}) {
        record[name] = parcel.readInt32();
    }
    record["interfaces"] = json::array();
    for (int i = 0; i < record["count"] && parcel.dataAvail() > 0; ++i) {
        const int kind = parcel.readInt32();
        const int subclass = parcel.readInt32();
        record["interfaces"].push_back({kind, subclass, parcel.readInt32()});
    }
    record["left"] = parcel.dataAvail();
    return record;
}

/** A notifier of either kind. */
class Notifier : public BBinder {
  public:
    Notifier(const char* kind, const char* descriptor) : mKind(kind), mDescriptor(descriptor) {}

    const String16& getInterfaceDescriptor() const override { return mDescriptor; }

    /** Called at the start of each call-back; set before the notifier is registered. */
    std::function<void()> mInside;

  protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        if (code < kOnEvent || code > kOnDetached) {
            return BBinder::onTransact(code, data, reply, flags);
        }
        const bool token = data.enforceInterface(mDescriptor);
        if (mInside) {
            mInside();
        }
        json event = {{"notifier", mKind}, {"token", token}};
        if (code == kOnEvent) {
            event["event"] = "event";
            event["code"] = data.readInt32();
            event["value"] = data.readInt32();
        } else {
            event["event"] = code == kOnAttached ? "attached" : "detached";
            event["device"] = readRecord(data);
        }
        print(event);
        reply->writeInt32(0);
        return android::OK;
    }

  private:
    const char* const mKind;
    const String16 mDescriptor;
};

class Client {
  public:
    Client()
        : mService(android::defaultServiceManager()->checkService(String16("UsbManager"))),
          mManagerNotifier(new Notifier("manager", "usb.UsbManagerNotifier")),
          mHostNotifier(new Notifier("host", "usb.UsbHostNotifier")) {
        addSteps();
    }

    bool connected() const { return mService != nullptr; }

    /** Takes one step; false for one that does not exist. */
    bool run(const std::string& step) {
        const size_t equals = step.find('=');
        const auto found = mSteps.find(step.substr(0, equals));
        if (found == mSteps.end()) {
            return false;
        }
        const json result = found->second(equals == std::string::npos ? "" : step.substr(equals + 1));
        print({{"step", step}, {"result", result}, {"alive", mService->isBinderAlive()}});
        return true;
    }

  private:
    using Step = std::function<json(const std::string& value)>;

    void addSteps() {
        mSteps = {
            {"add", [this](const std::string&) { return pass(kAddNotifier, mManagerNotifier); }},
            {"remove", [this](const std::string&) { return pass(kRemoveNotifier, mManagerNotifier); }},
            {"add-host", [this](const std::string&) { return pass(kAddHostNotifier, mHostNotifier); }},
            {"remove-host", [this](const std::string&) { return pass(kRemoveHostNotifier, mHostNotifier); }},
            {"call", [this](const std::string& value) { return call(value); }},
            {"text", [this](const std::string& value) { return text(value); }},
            {"query", [this](const std::string& value) { return query(atoi(value.c_str())); }},
            {"query-inside",
             [this](const std::string&) {
                 mHostNotifier->mInside = [this] {
                     print({{"inside", "query"}, {"count", call("22")}, {"first", query(0)}});
                 };
                 return 0;
             }},
            {"hold",
             [this](const std::string&) {
                 print({{"step", "hold"}, {"result", "reads"}});
                 std::string line;
                 while (std::getline(std::cin, line)) {
                     if (!run(line)) {
                         print({{"step", line}, {"result", "unknown"}});
                     }
                 }
                 return 0;
             }},
        };
    }

    /** Sends a request; the reply's numbers. */
    json request(uint32_t code, const std::function<void(Parcel&)>& write) {
        Parcel data;
        Parcel reply;
        data.writeInterfaceToken(managerToken());
        write(data);
        const status_t status = mService->transact(code, data, &reply, 0);
        json numbers = json::array();
        while (status == android::OK && reply.dataAvail() > 0) {
            numbers.push_back(reply.readInt32());
        }
        return {{"status", status}, {"reply", numbers}};
    }

    json pass(uint32_t code, const sp<Notifier>& notifier) {
        return request(code, [&](Parcel& data) { data.writeStrongBinder(notifier); });
    }

    json call(const std::string& value) {
        std::vector<int> numbers;
        std::istringstream fields(value);
        for (std::string field; std::getline(fields, field, ',');) {
            numbers.push_back(static_cast<int>(strtol(field.c_str(), nullptr, 0)));
        }
        return request(static_cast<uint32_t>(numbers.empty() ? 0 : numbers[0]), [&](Parcel& data) {
            for (size_t i = 1; i < numbers.size(); ++i) {
                data.writeInt32(numbers[i]);
            }
        });
    }

    json text(const std::string& value) {
        const size_t comma = value.find(',');
        const std::string content = comma == std::string::npos ? "" : value.substr(comma + 1);
        return request(static_cast<uint32_t>(atoi(value.c_str())),
                       [&](Parcel& data) { data.writeCString(content.c_str()); });
    }

    json query(int32_t index) {
        Parcel data;
        Parcel reply;
        data.writeInterfaceToken(managerToken());
        data.writeInt32(index);
        const status_t status = mService->transact(kQueryUsbDevice, data, &reply, 0);
        const int32_t first = reply.readInt32();
        json answer = {{"status", status}, {"first", first}};
        // A device has ten numbers and its interfaces; what stands for no device is shorter.
        constexpr size_t kRecordSize = 10 * sizeof(int32_t);
        if (status == android::OK && reply.dataAvail() >= kRecordSize) {
            answer["device"] = readRecord(reply);
        } else {
            answer["left"] = reply.dataAvail();
        }
        return answer;
    }

    const sp<IBinder> mService;
    const sp<Notifier> mManagerNotifier;
    const sp<Notifier> mHostNotifier;
    std::map<std::string, Step> mSteps;
};

}  // namespace

int main(int argc, char** argv) {
    return runSteps<Client>(argc, argv, "usb-test-client", kUsage);
}
