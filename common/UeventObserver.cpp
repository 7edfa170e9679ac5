// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UeventObserver"

#include "common/UeventObserver.h"

#include <cutils/uevent.h>
#include <log/log.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "common/Assert.h"
#include "common/Uevent.h"

using android::Looper;
using android::Mutex;
using android::sp;

namespace {

constexpr int kSocketBufferSize = 65536;
constexpr size_t kDatagramSize = 65536;
constexpr int kStayRegistered = 1;
constexpr int kNoTimeout = -1;

uintptr_t keyOf(const sp<UeventObserverNotifier>& notifier) {
    return reinterpret_cast<uintptr_t>(notifier.get());
}

}  // namespace

int LooperListenser(int fd, int events, void* data) {
    auto* const observer = static_cast<UeventObserver*>(data);
    SERVICE_ASSERT_AT(observer != nullptr, "observer", "UeventObserver", 41,
                      "int LooperListenser(int, int, void*)");
    if ((events & Looper::EVENT_INPUT) == 0) {
        return kStayRegistered;
    }

    char buffer[kDatagramSize];
    const ssize_t size = uevent_kernel_multicast_recv(fd, buffer, sizeof(buffer));
    if (size < 0) {
        ALOGE("event[%d] receive fail[%s], drop it", events, strerror(errno));
        return kStayRegistered;
    }

    const sp<Uevent> event = new Uevent();
    if (!event->decode(buffer, static_cast<size_t>(size))) {
        ALOGE("receive invalidate uevent[0x%08x] , event data size[%d], drop it", events,
              static_cast<int>(size));
        return kStayRegistered;
    }
    observer->dispatch(event);
    return kStayRegistered;
}

UeventObserver::UeventObserver()
    : mLooper(new Looper(false)), mFd(uevent_open_socket(kSocketBufferSize, true)) {
    if (mFd < 0) {
        ALOGE("uevent socket fd [%d] error[%s]", mFd, strerror(errno));
        SERVICE_ASSERT_AT(false, "0", "UeventObserver", 74, "UeventObserver::UeventObserver()");
    }
    mLooper->addFd(mFd, Looper::POLL_CALLBACK, Looper::EVENT_INPUT, LooperListenser, this);
    mEventLooper = new EventLooper(mLooper, kNoTimeout);
}

UeventObserver::~UeventObserver() {
    // The looper calls back with a bare pointer to this object.
    mEventLooper->stop();
    {
        Mutex::Autolock lock(mLock);
        mNotifiers.clear();
    }
    mEventLooper.clear();
    mLooper->removeFd(mFd);
    close(mFd);
    mLooper.clear();
}

void UeventObserver::start() {
    mEventLooper->start();
}

void UeventObserver::stop() {
    mEventLooper->stop();
}

void UeventObserver::registerNotifier(const sp<UeventObserverNotifier>& notifier) {
    Mutex::Autolock lock(mLock);
    mNotifiers.add(keyOf(notifier), notifier);
}

void UeventObserver::unregisterNotifier(const sp<UeventObserverNotifier>& notifier) {
    Mutex::Autolock lock(mLock);
    mNotifiers.removeItem(keyOf(notifier));
}

void UeventObserver::dispatch(const sp<Uevent>& event) {
    Mutex::Autolock lock(mLock);
    const size_t count = mNotifiers.size();
    for (size_t i = 0; i < count; ++i) {
        const sp<UeventObserverNotifier> notifier = mNotifiers.valueAt(i);
        notifier->onUevent(event);
    }
}
