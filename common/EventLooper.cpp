// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "EventLooper"

#include "common/EventLooper.h"

#include <linux/sched.h>
#include <log/log.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>

#include "common/Assert.h"

using android::Looper;
using android::Mutex;
using android::sp;
using android::status_t;

namespace {

constexpr char kThreadName[] = "EventLooper";
/** For a thread that the system refuses, five seconds in all. */
constexpr int kStartAttempts = 50;
constexpr useconds_t kStartRetryMicros = 100000;
/** On the scale of nice(1): ahead of the threads that deliver, behind what the unit gives real-time priority.
 */
constexpr int kNiceness = -10;

/** The kernel's `struct sched_attr` in its first version; its own header and the C library's exclude each
 * other. */
struct SchedulingAttributes {
    uint32_t size;
    uint32_t policy;
    uint64_t flags;
    int32_t niceness;
    uint32_t priority;
    uint64_t runtime;
    uint64_t deadline;
    uint64_t period;
};

/**
 * Lets this thread read before the others deliver: what the kernel sends while its socket's buffer is full is
 * lost, what waits in a queue is not. The shells that call-backs run start at the ordinary niceness again. A
 * process that may not do this keeps the ordinary one, and loses events earlier under load.
 */
void preferThisThread() {
    SchedulingAttributes attributes = {};
    attributes.size = sizeof(attributes);
    attributes.policy = SCHED_NORMAL;
    attributes.flags = SCHED_FLAG_RESET_ON_FORK;
    attributes.niceness = kNiceness;
    constexpr pid_t kThisThread = 0;
    syscall(SYS_sched_setattr, kThisThread, &attributes, /*flags=*/0);
}

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
    // What the system is short of now (tasks, memory) it may have a moment later, and nobody would start the
    // thread again: the managers would be started and hear of nothing.
    for (int attempt = 1; run(kThreadName, 0, 0) != android::OK && !isRunning(); ++attempt) {
        if (attempt == kStartAttempts) {
            ALOGE("the system refuses the thread, no event is heard");
            return;
        }
        usleep(kStartRetryMicros);
    }
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
    preferThisThread();
    return android::OK;
}

bool EventLooper::threadLoop() {
    mLooper->pollOnce(mTimeoutMillis);
    return true;
}
