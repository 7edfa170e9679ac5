// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "MessageQueue"

#include "common/MessageQueue.h"

#include <log/log.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/Assert.h"

using android::Looper;
using android::Message;
using android::MessageHandler;
using android::Mutex;
using android::sp;
using android::status_t;

namespace {

constexpr int kStartPolls = 100;
constexpr useconds_t kStartPollMicros = 1000;
// The longest thread name that the kernel takes, with its NUL.
constexpr size_t kThreadNameSize = 16;

}  // namespace

void MessageQueue::Free::operator()(char* text) const {
    free(text);
}

MessageQueue::MessageQueue(const sp<MessageHandler>& handler, int timeoutMillis, const char* name)
    : Thread(/*canCallJava=*/true), mName(strdup(name)), mHandler(handler), mTimeoutMillis(timeoutMillis) {}

MessageQueue::~MessageQueue() {
    mHandler.clear();
}

bool MessageQueue::start() {
    {
        Mutex::Autolock lock(mStateLock);
        beginLocked();
    }
    for (int poll = 0; poll < kStartPolls && looper() == nullptr; ++poll) {
        usleep(kStartPollMicros);
    }
    if (looper() == nullptr) {
        ALOGE("message queue is not ready in expect time, why? system hal?");
        return false;
    }
    return true;
}

void MessageQueue::beginLocked() {
    settleLocked();
    switch (mState) {
        case State::kIdle:
            // The last thread may have left its loop and not yet be counted as ended; it takes no lock of
            // ours.
            join();
            if (run(mName.get(), 0, 0) == android::OK) {
                mState = State::kRunning;
            }
            break;
        case State::kRunning:
            break;
        case State::kStopping:
            mState = State::kRunning;
            mStopOver.broadcast();
            break;
    }
}

/** Takes note of a thread that ended behind our back: readyToRun() failed, or Thread::requestExit() was used.
 */
void MessageQueue::settleLocked() {
    if (mState != State::kIdle && !isRunning()) {
        mState = State::kIdle;
        mLooper.clear();
        mBacklog.clear();
        mStopOver.broadcast();
    }
}

// Not by Thread::requestExitAndWait(): it waits for ever for a handler that waits for this very stop, and
// start() could not take it back.
void MessageQueue::stop() {
    Mutex::Autolock lock(mStateLock);
    settleLocked();
    if (mState == State::kIdle) {
        join();
        return;
    }
    mState = State::kStopping;
    if (mLooper != nullptr && Looper::getForThread() == mLooper) {
        return;
    }
    if (!waitForEndLocked()) {
        ALOGW("\"%s\" is held by its handler, it stops when that returns", mName.get());
    }
}

/** Returns false when the limit passed with the stop still pending. */
bool MessageQueue::waitForEndLocked() {
    const nsecs_t deadline = systemTime(SYSTEM_TIME_MONOTONIC) + stopLimit();
    while (mState == State::kStopping) {
        const nsecs_t left = deadline - systemTime(SYSTEM_TIME_MONOTONIC);
        if (left <= 0) {
            return false;
        }
        mStopOver.waitRelative(mStateLock, left);
    }
    if (mState == State::kIdle) {
        join();
    }
    return true;
}

sp<Looper> MessageQueue::looper() const {
    Mutex::Autolock lock(mStateLock);
    return mLooper;
}

MessageQueue::Mailbox MessageQueue::mailbox() const {
    Mutex::Autolock lock(mStateLock);
    return {mLooper, mBacklog};
}

status_t MessageQueue::readyToRun() {
    char name[kThreadNameSize];
    snprintf(name, sizeof(name), "%s", mName.get());
    pthread_setname_np(pthread_self(), name);

    const sp<Looper> looper = Looper::prepare(0);
    Mutex::Autolock lock(mStateLock);
    mLooper = looper;
    mBacklog = new MessageBacklog();
    return android::OK;
}

bool MessageQueue::threadLoop() {
    // A stop that came before the first poll.
    if (endIfStopping()) {
        return false;
    }
    const sp<Looper> looper = this->looper();
    if (looper == nullptr) {
        return false;
    }
    looper->pollOnce(mTimeoutMillis);
    return !endIfStopping();
}

bool MessageQueue::endIfStopping() {
    Mutex::Autolock lock(mStateLock);
    if (mState != State::kStopping) {
        return false;
    }
    mState = State::kIdle;
    // Not the last reference, this thread keeps one: no handler of a pending message dies under the lock.
    mLooper.clear();
    mBacklog.clear();
    mStopOver.broadcast();
    return true;
}

void MessageQueue::sendMessage(uint32_t what) {
    const Mailbox to = mailbox();
    SERVICE_ASSERT_IN(to.looper != nullptr, "mLooper.get()", "MessageQueue",
                      "void MessageQueue::sendMessage(uint32_t)");
    to.backlog->post(to.looper, mHandler, Message(static_cast<int>(what)));
}

void MessageQueue::sendMessageDelayed(uint32_t what, nsecs_t uptimeDelay) {
    const sp<Looper> looper = this->looper();
    SERVICE_ASSERT_IN(looper != nullptr, "mLooper.get()", "MessageQueue",
                      "void MessageQueue::sendMessageDelayed(uint32_t, nsecs_t)");
    looper->sendMessageDelayed(uptimeDelay, mHandler, Message(static_cast<int>(what)));
}

void MessageQueue::removeMessage(uint32_t what) {
    const Mailbox to = mailbox();
    SERVICE_ASSERT_IN(to.looper != nullptr, "mLooper.get()", "MessageQueue",
                      "void MessageQueue::removeMessage(uint32_t)");
    to.backlog->remove(to.looper, mHandler, static_cast<int>(what));
    to.looper->removeMessages(mHandler, static_cast<int>(what));
}

void MessageQueue::sendMessage(const sp<MessageHandler>& handler, uint32_t what) {
    const Mailbox to = mailbox();
    SERVICE_ASSERT_IN(
        to.looper != nullptr, "mLooper.get()", "MessageQueue",
        "void MessageQueue::sendMessage(const android::sp<android::MessageHandler>&, uint32_t)");
    to.backlog->post(to.looper, handler, Message(static_cast<int>(what)));
}

void MessageQueue::sendMessageDelayed(const sp<MessageHandler>& handler, uint32_t what, nsecs_t delay) {
    const sp<Looper> looper = this->looper();
    SERVICE_ASSERT_IN(looper != nullptr, "mLooper.get()", "MessageQueue",
                      "void MessageQueue::sendMessageDelayed(const android::sp<android::MessageHandler>&, "
                      "uint32_t, nsecs_t)");
    looper->sendMessageDelayed(delay, handler, Message(static_cast<int>(what)));
}

void MessageQueue::removeMessage(const sp<MessageHandler>& handler, uint32_t what) {
    const Mailbox to = mailbox();
    SERVICE_ASSERT_IN(
        to.looper != nullptr, "mLooper.get()", "MessageQueue",
        "void MessageQueue::removeMessage(const android::sp<android::MessageHandler>&, uint32_t)");
    to.backlog->remove(to.looper, handler, static_cast<int>(what));
    to.looper->removeMessages(handler, static_cast<int>(what));
}
