// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Latencies on the virtual head unit: one binder round trip, one netlink receive, and the road of a uevent
 * from the kernel through the daemon to a client's call-back. Prints one JSON object; wants a running daemon.
 */
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <cutils/uevent.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "bench/Datagrams.h"
#include "device/BnDeviceManagerNotifier.h"
#include "device/IDeviceManager.h"
#include "tests/support/UeventInjector.h"

namespace {

using android::sp;
using android::String16;
using Clock = std::chrono::steady_clock;

constexpr int kPings = 5000;
constexpr int kEvents = 1000;
constexpr std::chrono::seconds kEventLimit{10};
/** The property that numbers the injected events. */
constexpr const char* kNumberKey = "BENCH";

[[noreturn]] void fail(const char* what) {
    fprintf(stderr, "bench-guest: %s\n", what);
    exit(EXIT_FAILURE);
}

double microseconds(Clock::duration duration) {
    return std::chrono::duration<double, std::micro>(duration).count();
}

/** p50, p99 and maximum, in microseconds. */
nlohmann::json summary(std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    const auto at = [&](double share) { return samples[static_cast<size_t>(share * (samples.size() - 1))]; };
    return {{"n", samples.size()}, {"p50", at(0.50)}, {"p99", at(0.99)}, {"max", samples.back()}};
}

/** Takes the time at which the event that the sender waits for arrives; others, left over from before, do not
 * count. */
class Arrival {
  public:
    void expect(int number) { mExpected = number; }

    void note(int number) {
        const auto now = Clock::now();
        if (number != mExpected) {
            return;
        }
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            mTime = now;
            mArrived = true;
        }
        mCondition.notify_one();
    }

    double microsecondsSince(Clock::time_point begin) {
        std::unique_lock<std::mutex> lock(mMutex);
        if (!mCondition.wait_for(lock, kEventLimit, [this] { return mArrived; })) {
            fail("an injected event did not arrive");
        }
        mArrived = false;
        return microseconds(mTime - begin);
    }

  private:
    std::mutex mMutex;
    std::condition_variable mCondition;
    Clock::time_point mTime;
    bool mArrived = false;
    std::atomic<int> mExpected{-1};
};

class TimingNotifier : public device::DeviceManagerNotifierItf {
  public:
    explicit TimingNotifier(Arrival& arrival) : mArrival(arrival) {}

    int32_t onDeviceAdded(const sp<device::DeviceItf>& device) override { return note(*device); }
    int32_t onDeviceRemoved(const sp<device::DeviceItf>& device) override { return note(*device); }

    int32_t onEvent(int32_t /*event*/, int32_t /*value*/) override { return 0; }

  private:
    int32_t note(const device::DeviceItf& device) {
        for (size_t i = 0; i < device.getParamSize(); ++i) {
            if (device.getParamName(i) == kNumberKey) {
                mArrival.note(atoi(device.getParamValue(i).string()));
            }
        }
        return 0;
    }

    Arrival& mArrival;
};

/** The block event of the bench as an "add" or a "remove", so that the daemon's list does not grow. */
std::string eventFor(bool add, int number) {
    std::string event = bench::blockEvent();
    if (!add) {
        event.replace(0, 3, "remove");
        event.replace(event.find("ACTION=add"), 10, "ACTION=remove");
    }
    return event + kNumberKey + "=" + std::to_string(number) + '\0';
}

nlohmann::json injectAndWait(Arrival& arrival) {
    UeventInjector injector;
    if (injector.open() != 0) {
        fail("cannot open the injector");
    }
    std::vector<double> samples;
    for (int i = 0; i < kEvents; ++i) {
        const std::string event = eventFor(i % 2 == 0, i);
        arrival.expect(i);
        const auto begin = Clock::now();
        if (injector.send(event) != 0) {
            fail("cannot inject a uevent");
        }
        samples.push_back(arrival.microsecondsSince(begin));
    }
    return summary(samples);
}

nlohmann::json pings(const sp<android::IBinder>& service) {
    std::vector<double> samples;
    for (int i = 0; i < kPings; ++i) {
        const auto begin = Clock::now();
        if (service->pingBinder() != android::OK) {
            fail("ping failed");
        }
        samples.push_back(microseconds(Clock::now() - begin));
    }
    return summary(samples);
}

/** From the injection to the return of a waiting receive in this process: the kernel's share of the road. */
nlohmann::json netlinkReceive() {
    const int fd = uevent_open_socket(64 * 1024, true);
    if (fd < 0) {
        fail("cannot open a uevent socket");
    }
    Arrival arrival;
    std::thread receiver([&] {
        static char buffer[65536];
        for (int received = 0; received < kEvents;) {
            if (uevent_kernel_multicast_recv(fd, buffer, sizeof(buffer)) > 0) {
                arrival.note(received++);
            }
        }
    });
    nlohmann::json result = injectAndWait(arrival);
    receiver.join();
    close(fd);
    return result;
}

nlohmann::json callback(const sp<device::IDeviceManager>& manager) {
    Arrival arrival;
    const sp<device::BnDeviceManagerNotifier> notifier =
        new device::BnDeviceManagerNotifier(new TimingNotifier(arrival));
    manager->addNotifier(notifier);
    nlohmann::json result = injectAndWait(arrival);
    manager->removeNotifier(notifier);
    return result;
}

}  // namespace

int main() {
    const sp<android::IBinder> service =
        android::defaultServiceManager()->checkService(String16(device::IDeviceManager::kServiceName));
    if (service == nullptr) {
        fail("the service \"DeviceManager\" is not registered");
    }
    android::ProcessState::self()->startThreadPool();
    const sp<device::IDeviceManager> manager = android::interface_cast<device::IDeviceManager>(service);

    nlohmann::json result;
    result["binder ping round trip"] = pings(service);
    manager->startup();
    result["uevent to client call-back"] = callback(manager);
    // The daemon must not take part in the last one.
    manager->shutdown();
    result["netlink receive"] = netlinkReceive();
    puts(result.dump().c_str());
    fflush(stdout);
    // The binder threads still run: no destructor of a static object may meet them.
    _exit(EXIT_SUCCESS);
}
