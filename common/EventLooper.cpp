// SPDX-License-Identifier: Apache-2.0
#include "common/EventLooper.h"

#include <pthread.h>

#include "common/Assert.h"

using android::Looper;
using android::Mutex;
using android::sp;
using android::status_t;

namespace {

constexpr char kThreadName[] = "EventLooper";

}  // namespace

EventLooper::EventLooper(const sp<Looper>& looper, int timeoutMillis)
    : Thread(/*canCallJava=*/true), mLooper(looper), mTimeoutMillis(timeoutMillis) {}

void EventLooper::start() {
    if (onOwnThread()) {
        return;
    }
    Mutex::Autolock lock(mControlLock);
    if (exitPending()) {
        // Asked to end from inside a call-back: it may not have got there yet.
        join();
    }
    run(kThreadName, 0, 0);
}

void EventLooper::stop() {
    if (onOwnThread()) {
        requestExit();
        return;
    }
    Mutex::Autolock lock(mControlLock);
    requestExit();
    mLooper->wake();
    join();
}

status_t EventLooper::readyToRun() {
    SERVICE_ASSERT_AT(Looper::getForThread() == nullptr, "0", "EventLooper", 41,
                      "virtual status_t EventLooper::readyToRun()");
    Looper::setForThread(mLooper);
    pthread_setname_np(pthread_self(), kThreadName);
    return android::OK;
}

bool EventLooper::threadLoop() {
    mLooper->pollOnce(mTimeoutMillis);
    return true;
}
