// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/Monitor.h"

#include <binder/ProcessState.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <string>
#include <utility>

#include "device/IDeviceManager.h"
#include "tools/devicectl/MonitorNotifier.h"
#include "tools/devicectl/StandardStreams.h"

namespace devicectl {

using android::IBinder;
using android::ProcessState;
using android::sp;
using device::IDeviceManager;
using std::chrono::milliseconds;

namespace {

/** Between two looks for a daemon that died: the service manager tells nobody of a return. */
constexpr milliseconds kLookAgain{250};
/** For the removal at the end. The daemon drops a client that ends, so little is lost without it. */
constexpr unsigned kFarewellSeconds = 5;
/** A reader that takes nothing for so long at the end gets no more. */
constexpr milliseconds kDrainPatience{1000};

}  // namespace

Monitor::Monitor(const Options& options, const ServiceAccess& access)
    : mOptions(options),
      mAccess(access),
      mWakeUp(new WakeUp()),
      mQueue(new EventQueue()),
      mPrinter(
          new Printer(mQueue, STDOUT_FILENO, {options.format, options.properties, options.count}, mWakeUp)),
      mRegistration(access, new MonitorNotifier(mQueue), mWakeUp) {}

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
    sp<IBinder> service;
    const ExitCode found = mAccess.find(IDeviceManager::kServiceName, &service);
    if (found != kOk) {
        return found;
    }
    if (!mRegistration.make(service)) {
        reportError("the daemon died during the registration: restart device-service");
        return kDaemonDied;
    }
    tellService(Event::Kind::kServiceUp);
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
    if (!mRegistration.isThere()) {
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
    if (mRegistration.dropDead()) {
        tellService(Event::Kind::kServiceDown);
    }
    if (mRegistration.isThere() || isOver()) {
        return;
    }
    const sp<IBinder> service = mAccess.lookUp(IDeviceManager::kServiceName);
    if (service != nullptr && mRegistration.make(service)) {
        tellService(Event::Kind::kServiceUp);
    }
}

void Monitor::tellService(Event::Kind kind) {
    Event event;
    event.kind = kind;
    event.time = Event::Clock::now();
    event.service = IDeviceManager::kServiceName;
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
    mRegistration.remove(kFarewellSeconds);
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
