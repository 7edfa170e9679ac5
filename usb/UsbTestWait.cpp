// SPDX-License-Identifier: Apache-2.0
#include "usb/UsbTestWait.h"

#include <cerrno>
#include <ctime>

namespace usb {

using android::Mutex;

namespace {

constexpr nsecs_t kSecond = 1000000000;

}  // namespace

void UsbTestWait::start() {
    Mutex::Autolock lock(mLock);
    mStarted = true;
}

void UsbTestWait::stop() {
    Mutex::Autolock lock(mLock);
    mStarted = false;
    ++mStops;
    mStopped.broadcast();
}

UsbTestWait::Span UsbTestWait::span() const {
    Mutex::Autolock lock(mLock);
    return Span(mStops);
}

UsbTestWait::Span UsbTestWait::spanWhileStarted() const {
    Mutex::Autolock lock(mLock);
    return Span(mStarted ? mStops : kNever);
}

bool UsbTestWait::isOver(const Span& span) const {
    Mutex::Autolock lock(mLock);
    return isOverLocked(span);
}

bool UsbTestWait::isOverLocked(const Span& span) const {
    return span.mStops != mStops;
}

bool UsbTestWait::wait(const Span& span, nsecs_t duration) {
    const nsecs_t deadline = systemTime(SYSTEM_TIME_MONOTONIC) + lengthOf(duration);
    Mutex::Autolock lock(mLock);
    while (!isOverLocked(span)) {
        const nsecs_t left = deadline - systemTime(SYSTEM_TIME_MONOTONIC);
        if (left <= 0) {
            return true;
        }
        mStopped.waitRelative(mLock, left);
    }
    return false;
}

void UsbTestWait::pause(nsecs_t duration) {
    const nsecs_t length = lengthOf(duration);
    timespec left = {static_cast<time_t>(length / kSecond), static_cast<long>(length % kSecond)};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

}  // namespace usb
