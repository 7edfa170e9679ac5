// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/Monitor.h"

#include <binder/ProcessState.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "device/BnDeviceManagerNotifier.h"
#include "device/IDeviceManager.h"
#include "tools/devicectl/MonitorNotifier.h"
#include "tools/devicectl/StandardStreams.h"
#include "tools/devicectl/UsbMonitorNotifier.h"
#include "tools/devicectl/VolumeMonitorNotifier.h"
#include "usb/IUsbManager.h"
#include "volume/BnVolumeManagerNotifier.h"
#include "volume/IVolumeManager.h"

namespace devicectl {

using android::IBinder;
using android::interface_cast;
using android::ProcessState;
using android::sp;
using device::BnDeviceManagerNotifier;
using device::IDeviceManager;
using std::chrono::milliseconds;
using usb::IUsbManager;
using volume::BnVolumeManagerNotifier;
using volume::IVolumeManager;

namespace {

/** Between two looks for a daemon that died: the service manager tells nobody of a return. */
constexpr milliseconds kLookAgain{250};
/** For the removal at the end. The daemon drops a client that ends, so little is lost without it. */
constexpr unsigned kFarewellSeconds = 5;
/** A reader that takes nothing for so long at the end gets no more. */
constexpr milliseconds kDrainPatience{1000};

/** @p makeEar makes the native side of the notifier of the service behind @p Interface. */
template <typename Interface>
RegistrationKind kindOf(std::function<sp<IBinder>()> makeEar) {
    return {Interface::kServiceName, std::move(makeEar),
            [](const sp<IBinder>& service, const sp<IBinder>& ear) {
                interface_cast<Interface>(service)->addNotifier(ear);
            },
            [](const sp<IBinder>& service, const sp<IBinder>& ear) {
                interface_cast<Interface>(service)->removeNotifier(ear);
            }};
}

}  // namespace

Monitor::Monitor(const Options& options, const ServiceAccess& access)
    : mOptions(options),
      mAccess(access),
      mWakeUp(new WakeUp()),
      mQueue(new EventQueue()),
      mPrinter(
          new Printer(mQueue, STDOUT_FILENO, {options.format, options.properties, options.count}, mWakeUp)) {
    mRegistrations.emplace_back(access, kindOf<IVolumeManager>([this] {
                                    return new BnVolumeManagerNotifier(new VolumeMonitorNotifier(mQueue));
                                }),
                                mWakeUp);
    mRegistrations.emplace_back(
        access,
        RegistrationKind{IUsbManager::kServiceName, [this] { return new UsbMonitorEar(mQueue); },
                         UsbMonitorEar::add, UsbMonitorEar::remove},
        mWakeUp);
    mRegistrations.emplace_back(access, kindOf<IDeviceManager>([this] {
                                    return new BnDeviceManagerNotifier(new MonitorNotifier(mQueue));
                                }),
                                mWakeUp);
}

ExitCode Monitor::run() {
    if (mSignals.fd() < 0 || mWakeUp->fd() < 0) {
        reportError("no file descriptor left for the monitor: close some or raise the limit");
        return kFailed;
    }
    const ExitCode begun = begin();
    if (begun != kOk) {
        return begun;
    }
    loop();
    return end();
}

ExitCode Monitor::begin() {
    ProcessState::self()->startThreadPool();
    for (Registration& registration : mRegistrations) {
        sp<IBinder> service;
        const ExitCode found = mAccess.find(registration.service(), &service);
        if (found != kOk) {
            return found;
        }
        if (!registration.make(service)) {
            reportError("the daemon died during the registration: restart device-service");
            return kDaemonDied;
        }
        tellService(Event::Kind::kServiceUp, registration.service());
    }
    if (mOptions.forSeconds) {
        mDeadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                       std::chrono::duration<double>(*mOptions.forSeconds));
    }
    mPrinter->start();
    return kOk;
}

void Monitor::loop() {
    while (!isOver()) {
        waitForSomething();
        mStopped = mStopped || mSignals.take();
        followDaemon();
    }
}

void Monitor::waitForSomething() {
    // Of standard output only its end is asked for: a closed pipe, a terminal that hung up.
    std::array<pollfd, 3> sources{{
        {mSignals.fd(), POLLIN, 0},
        {mWakeUp->fd(), POLLIN, 0},
        {STDOUT_FILENO, 0, 0},
    }};
    int timeout = -1;
    if (mDeadline) {
        const auto left = std::chrono::ceil<milliseconds>(*mDeadline - Clock::now()).count();
        timeout = static_cast<int>(std::clamp<int64_t>(left, 0, 3'600'000));
    }
    if (!isRegistered()) {
        const int look = static_cast<int>(kLookAgain.count());
        timeout = timeout < 0 ? look : std::min(timeout, look);
    }
    if (poll(sources.data(), sources.size(), timeout) <= 0) {
        return;
    }
    mWakeUp->clear();
    mReaderGone = sources[2].revents != 0;
}

bool Monitor::isOver() {
    return mStopped || mReaderGone || mPrinter->isOver() || (mDeadline && Clock::now() >= *mDeadline);
}

void Monitor::followDaemon() {
    for (Registration& registration : mRegistrations) {
        if (registration.dropDead()) {
            tellService(Event::Kind::kServiceDown, registration.service());
        }
    }
    for (Registration& registration : mRegistrations) {
        if (registration.isThere()) {
            continue;
        }
        if (isOver()) {
            return;
        }
        const sp<IBinder> service = mAccess.lookUp(registration.service());
        if (service == nullptr || !registration.make(service)) {
            // The next ones wait: whoever hears that the last is up knows that all are.
            return;
        }
        tellService(Event::Kind::kServiceUp, registration.service());
    }
}

bool Monitor::isRegistered() const {
    return std::all_of(mRegistrations.begin(), mRegistrations.end(),
                       [](const Registration& registration) { return registration.isThere(); });
}

void Monitor::tellService(Event::Kind kind, const char* service) {
    Event event = Event::now(kind);
    event.service = service;
    mQueue->push(std::move(event));
}

void Monitor::drain() {
    mQueue->close();
    uint64_t before = mPrinter->printed();
    while (!mReaderGone && !mPrinter->waitEnd(kDrainPatience)) {
        const uint64_t now = mPrinter->printed();
        if (now == before) {
            return;
        }
        before = now;
    }
}

ExitCode Monitor::end() {
    // Whoever is in a hurry sends the signal again.
    mSignals.release();
    std::for_each(mRegistrations.rbegin(), mRegistrations.rend(),
                  [](Registration& registration) { registration.remove(kFarewellSeconds); });
    drain();

    const int error = mPrinter->error();
    if (error != 0 && error != EPIPE) {
        reportOutputError(error);
        return kFailed;
    }
    const bool ranOut = mDeadline && !mStopped && !mReaderGone && error == 0;
    if (ranOut && mOptions.count && mPrinter->printed() < *mOptions.count) {
        reportError("only " + std::to_string(mPrinter->printed()) + " of " + std::to_string(*mOptions.count) +
                    " events came in time");
        return kFailed;
    }
    return kOk;
}

}  // namespace devicectl
