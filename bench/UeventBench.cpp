// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The road of a uevent from the socket to a notifier, beside libudev receiving and parsing the same
 * datagrams.
 *
 * Every datagram comes from the kernel: it is injected into a network namespace of the benchmark's own, and
 * both receivers get a copy of each.
 */
#include <benchmark/benchmark.h>
#include <cutils/uevent.h>
#include <libudev.h>
#include <poll.h>
#include <sched.h>
#include <unistd.h>
#include <utils/Looper.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "bench/Datagrams.h"
#include "common/Uevent.h"
#include "common/UeventObserver.h"
#include "tests/support/UeventInjector.h"

namespace {

using android::sp;
using Clock = std::chrono::steady_clock;

/** Datagrams sent before each timed drain: few enough for both sockets' receive buffers. */
constexpr int kBurst = 64;
constexpr int kReceiveBufferSize = 64 * 1024;

std::string eventFor(const benchmark::State& state) {
    return state.range(0) == 12 ? bench::blockEvent() : bench::usbEvent();
}

/** The cheapest notifier that cannot be optimised away. */
class CountingNotifier : public UeventObserverNotifier {
  public:
    int onUevent(const sp<Uevent>& event) override {
        benchmark::DoNotOptimize(event->getAction());
        ++mCount;
        return 0;
    }

    int64_t count() const { return mCount; }

  private:
    int64_t mCount = 0;
};

void require(bool holds, const char* what) {
    if (!holds) {
        perror(what);
        exit(EXIT_FAILURE);
    }
}

void inject(UeventInjector& injector, const std::string& event) {
    for (int i = 0; i < kBurst; ++i) {
        require(injector.send(event) == 0, "cannot inject a uevent");
    }
}

template <typename Drain>
void timeDrain(benchmark::State& state, Drain&& drain) {
    const auto begin = Clock::now();
    drain();
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - begin).count());
}

/** decode() alone, into a fresh record each time, from a fresh copy of the datagram. */
void decodeOnly(benchmark::State& state) {
    const std::string datagram = bench::withSeqnum(eventFor(state));
    std::string buffer = datagram;
    for ([[maybe_unused]] auto _ : state) {
        memcpy(buffer.data(), datagram.data(), datagram.size());
        const sp<Uevent> event = new Uevent();
        const bool decoded = event->decode(buffer.data(), static_cast<unsigned>(buffer.size()));
        benchmark::DoNotOptimize(decoded);
    }
    state.SetItemsProcessed(state.iterations());
}

/** recvmsg alone of the same datagrams: what no receiver can save. */
void receiveOnly(benchmark::State& state) {
    UeventInjector injector;
    require(injector.open() == 0, "cannot open the injector");
    const int fd = uevent_open_socket(kReceiveBufferSize, true);
    require(fd >= 0, "cannot open a uevent socket");
    const std::string event = eventFor(state);
    static char buffer[65536];
    for ([[maybe_unused]] auto _ : state) {
        inject(injector, event);
        timeDrain(state, [&] {
            for (int i = 0; i < kBurst; ++i) {
                require(uevent_kernel_multicast_recv(fd, buffer, sizeof(buffer)) > 0, "receive");
            }
        });
    }
    state.SetItemsProcessed(state.iterations() * kBurst);
    close(fd);
}

/** The daemon's path: receive, decode, dispatch to a notifier. */
void receiveDecodeDispatch(benchmark::State& state) {
    UeventInjector injector;
    require(injector.open() == 0, "cannot open the injector");
    const sp<UeventObserver> observer = new UeventObserver();
    const sp<CountingNotifier> notifier = new CountingNotifier();
    observer->registerNotifier(notifier);
    const int fd = uevent_open_socket(kReceiveBufferSize, true);
    require(fd >= 0, "cannot open a uevent socket");
    const std::string event = eventFor(state);
    for ([[maybe_unused]] auto _ : state) {
        inject(injector, event);
        timeDrain(state, [&] {
            for (int i = 0; i < kBurst; ++i) {
                LooperListenser(fd, android::Looper::EVENT_INPUT, observer.get());
            }
        });
    }
    if (notifier->count() != state.iterations() * kBurst) {
        state.SkipWithError("events were lost");
    }
    state.SetItemsProcessed(state.iterations() * kBurst);
    close(fd);
}

/** libudev's path for the same datagrams: receive and parse, properties read once as a user would. */
void libudevReceive(benchmark::State& state) {
    UeventInjector injector;
    require(injector.open() == 0, "cannot open the injector");
    udev* const context = udev_new();
    udev_monitor* const monitor = udev_monitor_new_from_netlink(context, "kernel");
    require(monitor != nullptr && udev_monitor_enable_receiving(monitor) == 0, "cannot open a udev monitor");
    const std::string event = eventFor(state);
    for ([[maybe_unused]] auto _ : state) {
        inject(injector, event);
        timeDrain(state, [&] {
            for (int i = 0; i < kBurst; ++i) {
                udev_device* const device = udev_monitor_receive_device(monitor);
                require(device != nullptr, "libudev lost an event");
                benchmark::DoNotOptimize(udev_device_get_action(device));
                udev_device_unref(device);
            }
        });
    }
    state.SetItemsProcessed(state.iterations() * kBurst);
    udev_monitor_unref(monitor);
    udev_unref(context);
}

BENCHMARK(decodeOnly)->ArgName("properties")->Arg(12)->Arg(20);
BENCHMARK(receiveOnly)->ArgName("properties")->Arg(12)->Arg(20)->UseManualTime();
BENCHMARK(receiveDecodeDispatch)->ArgName("properties")->Arg(12)->Arg(20)->UseManualTime();
BENCHMARK(libudevReceive)->ArgName("properties")->Arg(12)->Arg(20)->UseManualTime();

}  // namespace

int main(int argc, char** argv) {
    // Made-up devices have no folder in sysfs; libudev is told not to look for one.
    setenv("SYSTEMD_DEVICE_VERIFY_SYSFS", "0", 1);
    if (unshare(CLONE_NEWNET) != 0) {
        perror("cannot enter a network namespace (root is needed)");
        return EXIT_FAILURE;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return EXIT_SUCCESS;
}
