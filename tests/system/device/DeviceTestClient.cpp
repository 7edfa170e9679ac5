// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A client of the device service that does what its arguments say, one after the other, and prints a JSON
 * object a line for each result and each event. kUsage lists the steps.
 */
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iostream>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "device/BnDeviceManagerNotifier.h"
#include "device/IDeviceManager.h"
#include "tests/system/StepClient.h"

namespace {

using android::IBinder;
using android::Parcel;
using android::sp;
using android::String16;
using android::String8;
using device::DeviceItf;
using device::IDeviceManager;
using nlohmann::json;

constexpr const char* kUsage = R"(usage: device-test-client STEP...
steps:
  add               register the notifier
  remove            remove the notifier
  remove-other      remove, passing a binder that was never registered
  add-null          register a null binder
  startup, shutdown
  shutdown-inside   from now on, call shutdown from inside the next call-back
  remove-inside     from now on, remove the notifier from inside the next call-back
  query-inside      from now on, query the daemon from inside each call-back
  slow=MS           from now on, take MS milliseconds for each call-back
  quiet             from now on, count the events of a storm instead of printing each
  storm=N           wait until N events of a storm came (added and removed by turns, property STORM
                    counts the devices from 0) and print the account
  wrong-token=CODE  send a request with another interface's token
  cut=CODE          send a request that ends after its token
  ping, interface   the base transactions: print the reply's first int32
  broken-dump       ask for a dump into a pipe that nobody reads
  hold              wait until standard input ends
)";

/** The account of a storm of numbered events. */
class Storm {
  public:
    void note(int64_t number) {
        const std::lock_guard<std::mutex> lock(mMutex);
        mOutOfOrder += number == mExpected ? 0 : 1;
        mExpected = number + 1;
        ++mReceived;
        mCondition.notify_all();
    }

    json waitFor(int64_t count, std::chrono::seconds limit) {
        std::unique_lock<std::mutex> lock(mMutex);
        mCondition.wait_for(lock, limit, [&] { return mReceived >= count; });
        return {{"received", mReceived}, {"out_of_order", mOutOfOrder}};
    }

  private:
    std::mutex mMutex;
    std::condition_variable mCondition;
    int64_t mExpected = 0;
    int64_t mReceived = 0;
    int64_t mOutOfOrder = 0;
};

class Notifier : public device::DeviceManagerNotifierItf {
  public:
    int32_t onDeviceAdded(const sp<DeviceItf>& device) override { return onDevice("added", *device); }
    int32_t onDeviceRemoved(const sp<DeviceItf>& device) override { return onDevice("removed", *device); }
    int32_t onEvent(int32_t event, int32_t value) override {
        print({{"event", "event"}, {"code", event}, {"value", value}});
        return 0;
    }

    /** Called at the start of each call-back; before any is registered or from within one only. */
    std::function<void()> mInside;
    std::atomic<int> mSlowMillis{0};
    std::atomic<bool> mQuiet{false};
    Storm mStorm;

  private:
    int32_t onDevice(const char* what, const DeviceItf& device) {
        if (mInside) {
            mInside();
        }
        if (mSlowMillis > 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(mSlowMillis));
        }
        if (mQuiet) {
            // Each device of a storm comes and goes.
            mStorm.note(2 * stormNumber(device) + (strcmp(what, "removed") == 0 ? 1 : 0));
            return 0;
        }
        json params = json::object();
        for (size_t i = 0; i < device.getParamSize(); ++i) {
            params[device.getParamName(i).string()] = device.getParamValue(i).string();
        }
        print({{"event", what},
               {"path", device.getPath().string()},
               {"subsystem", device.getSubsystem().string()},
               {"params", params}});
        return 0;
    }

    static int64_t stormNumber(const DeviceItf& device) {
        for (size_t i = 0; i < device.getParamSize(); ++i) {
            if (device.getParamName(i) == "STORM") {
                return atoll(device.getParamValue(i).string());
            }
        }
        return -1;
    }
};

class Client {
  public:
    Client()
        : mService(android::defaultServiceManager()->checkService(String16(IDeviceManager::kServiceName))),
          mManager(android::interface_cast<IDeviceManager>(mService)),
          mNotifier(new Notifier()),
          mBinder(new device::BnDeviceManagerNotifier(mNotifier)) {
        addSteps();
    }

    bool connected() const { return mService != nullptr; }

    bool run(const std::string& step) {
        const size_t equals = step.find('=');
        const auto found = mSteps.find(step.substr(0, equals));
        if (found == mSteps.end()) {
            return false;
        }
        const int value = equals == std::string::npos ? 0 : atoi(step.c_str() + equals + 1);
        const json result = found->second(value);
        print({{"step", step}, {"result", result}, {"alive", mService->isBinderAlive()}});
        return true;
    }

  private:
    using Step = std::function<json(int value)>;

    void addSteps() {
        mSteps = {
            {"add", [this](int) { return mManager->addNotifier(mBinder); }},
            {"remove", [this](int) { return mManager->removeNotifier(mBinder); }},
            {"remove-other",
             [this](int) {
                 return mManager->removeNotifier(new device::BnDeviceManagerNotifier(new Notifier()));
             }},
            {"add-null", [this](int) { return mManager->addNotifier(nullptr); }},
            {"startup", [this](int) { return mManager->startup(); }},
            {"shutdown", [this](int) { return mManager->shutdown(); }},
            {"shutdown-inside",
             [this](int) {
                 return once([this] { print({{"inside", "shutdown"}, {"result", mManager->shutdown()}}); });
             }},
            {"remove-inside",
             [this](int) {
                 return once([this] {
                     print({{"inside", "remove"}, {"result", mManager->removeNotifier(mBinder)}});
                 });
             }},
            {"query-inside",
             [this](int) {
                 mNotifier->mInside = [this] {
                     print({{"inside", "query"}, {"result", mManager->getDevicePath(1, 0).string()}});
                 };
                 return 0;
             }},
            {"slow",
             [this](int millis) {
                 mNotifier->mSlowMillis = millis;
                 return 0;
             }},
            {"quiet",
             [this](int) {
                 mNotifier->mQuiet = true;
                 return 0;
             }},
            {"storm",
             [this](int count) { return mNotifier->mStorm.waitFor(count, std::chrono::seconds(300)); }},
            {"wrong-token", [this](int code) { return request(code, String16("device.SomethingElse")); }},
            {"cut", [this](int code) { return request(code, IDeviceManager::descriptor); }},
            {"ping", [this](int) { return request(IBinder::PING_TRANSACTION, String16()); }},
            {"interface", [this](int) { return request(IBinder::INTERFACE_TRANSACTION, String16()); }},
            {"broken-dump", [this](int) { return dumpIntoBrokenPipe(); }},
            {"hold",
             [](int) {
                 std::string line;
                 while (std::getline(std::cin, line)) {
                 }
                 return 0;
             }},
        };
    }

    int once(std::function<void()> action) {
        mNotifier->mInside = [this, action = std::move(action)] {
            const std::function<void()> now = action;
            mNotifier->mInside = nullptr;
            now();
        };
        return 0;
    }

    json dumpIntoBrokenPipe() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            return "no pipe";
        }
        close(ends[0]);
        const android::status_t status = mService->dump(ends[1], android::Vector<String16>());
        close(ends[1]);
        return status;
    }

    json request(int code, const String16& token) {
        Parcel data;
        Parcel reply;
        if (token.size() > 0) {
            data.writeInterfaceToken(token);
        }
        const android::status_t status = mService->transact(static_cast<uint32_t>(code), data, &reply, 0);
        return {{"status", status}, {"size", reply.dataSize()}, {"first", reply.readInt32()}};
    }

    const sp<IBinder> mService;
    const sp<IDeviceManager> mManager;
    const sp<Notifier> mNotifier;
    const sp<device::BnDeviceManagerNotifier> mBinder;
    std::map<std::string, Step> mSteps;
};

}  // namespace

int main(int argc, char** argv) {
    return runSteps<Client>(argc, argv, "device-test-client", kUsage);
}
