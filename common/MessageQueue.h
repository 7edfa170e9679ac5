// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * An owner's worker thread with integer-coded messages.
 */

#include <utils/Condition.h>
#include <utils/Looper.h>
#include <utils/Mutex.h>
#include <utils/Thread.h>
#include <utils/Timers.h>

#include <cstdint>
#include <memory>

#include "common/MessageBacklog.h"

/**
 * A thread to which any thread posts messages, at once or delayed, and which hands them to a handler: by due
 * time, in order of posting among equals, one at a time. The thread is the owner's queue thread: what the
 * owner does in its handler is serialised, while other owners' queues run in parallel.
 *
 * The queue holds its handler strongly, and as a rule the handler is the owner, which holds the queue: an
 * owner that is meant to go breaks this cycle by dropping the queue.
 *
 * ## Life
 *
 *     idle --start()--> running --stop()--> stopping --(thread leaves its poll)--> idle
 *                          ^-----start()-------'
 *
 * - idle: no thread, or one that has left its loop and runs no handler any more; there is no looper.
 * - running: there is a thread, and a looper as soon as the thread has made it.
 * - stopping: the thread ends after the poll in progress, in which messages already due are still delivered.
 * The looper stays until then, so that posting remains legal. start() takes the stop back: the thread goes on
 * with the same looper and its pending messages.
 *
 * Each new thread makes a new looper: messages that were pending when the former one ended are never
 * delivered.
 */
class MessageQueue : virtual public android::Thread {
  public:
    /** What stop() waits at most, in nanoseconds, for a handler that does not return. */
    static constexpr nsecs_t kStopLimit = 2000000000;

    /**
     * @param handler        receives what is posted without a handler of its own; not null
     * @param timeoutMillis  limit of one poll in milliseconds: how soon an idle thread heeds stop()
     * @param name           the thread's name; copied. The system shows its first 15 characters.
     */
    MessageQueue(const android::sp<android::MessageHandler>& handler, int timeoutMillis, const char* name);

    /**
     * Starts the thread and waits, 100 ms at most, until messages can be posted. Any thread.
     *
     * On a running queue it only waits; on a stopping one it takes the stop back.
     *
     * @return true when messages can be posted; false, with an error line, when the thread did not come up in
     *         time. It goes on coming up, and the queue is usable once it has.
     */
    bool start();

    /**
     * Ends the thread. Any thread; does nothing on an idle queue.
     *
     * Waits for the thread's end, that is for the poll in progress (no wake is sent). The wait is given up,
     * with a warning line, when a handler holds the thread for longer than kStopLimit; and there is none when
     * a handler itself calls, on the queue's own thread. The thread then ends by itself after the poll in
     * progress. A start() by another thread ends the wait too.
     */
    void stop();

    /**
     * Posts @p what to the queue's handler. Any thread.
     *
     * This and the five operations below abort when there is no looper: before start(), after stop().
     */
    void sendMessage(uint32_t what);

    /** Posts @p what to the queue's handler, due after @p uptimeDelay nanoseconds. Any thread. */
    void sendMessageDelayed(uint32_t what, nsecs_t uptimeDelay);

    /** Drops every pending message @p what of the queue's handler, delayed or not. Any thread. */
    void removeMessage(uint32_t what);

    /** As sendMessage(uint32_t), to a handler other than the queue's own. Any thread. */
    void sendMessage(const android::sp<android::MessageHandler>& handler, uint32_t what);

    /** As sendMessageDelayed(uint32_t, nsecs_t), to a handler other than the queue's own. Any thread. */
    void sendMessageDelayed(const android::sp<android::MessageHandler>& handler, uint32_t what,
                            nsecs_t delay);

    /** As removeMessage(uint32_t), for a handler other than the queue's own. Any thread. */
    void removeMessage(const android::sp<android::MessageHandler>& handler, uint32_t what);

  protected:
    /** Runs on whatever thread drops the last reference, the queue's own included; never waits. */
    ~MessageQueue() override;

    /** Queue thread, before its first poll. */
    android::status_t readyToRun() override;

    /** The limit that stop() keeps, in nanoseconds; a seam for tests. */
    virtual nsecs_t stopLimit() const { return kStopLimit; }

  private:
    enum class State { kIdle, kRunning, kStopping };

    /** Where messages go: those that are due at once to the backlog, delayed ones to the looper. */
    struct Mailbox {
        android::sp<android::Looper> looper;
        android::sp<MessageBacklog> backlog;
    };

    struct Free {
        void operator()(char* text) const;
    };

    bool threadLoop() override;

    android::sp<android::Looper> looper() const;
    Mailbox mailbox() const;
    void beginLocked() REQUIRES(mStateLock);
    void settleLocked() REQUIRES(mStateLock);
    bool endIfStopping();
    bool waitForEndLocked() REQUIRES(mStateLock);

    const std::unique_ptr<char, Free> mName;
    android::sp<android::MessageHandler> mHandler;
    // Guards mLooper, mBacklog and mState. Never held while a message is posted or handled; Thread's own lock
    // comes inside.
    mutable android::Mutex mStateLock;
    android::sp<android::Looper> mLooper GUARDED_BY(mStateLock);
    // What is posted without delay waits here; comes and goes with the looper.
    android::sp<MessageBacklog> mBacklog GUARDED_BY(mStateLock);
    const int mTimeoutMillis;
    State mState GUARDED_BY(mStateLock) = State::kIdle;
    // Signalled when mState leaves kStopping.
    android::Condition mStopOver;
};
