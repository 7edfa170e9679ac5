// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * A thread that pumps a looper which somebody else made.
 */

#include <utils/Looper.h>
#include <utils/Thread.h>

/**
 * The thread "EventLooper": polls the given looper, and so runs the call-backs of its descriptors, from
 * start() to stop(). It may be started and stopped any number of times.
 *
 * Where the process may (CAP_SYS_NICE, or RLIMIT_NICE of 30 and more), the thread runs at niceness -10; what
 * it starts, at 0.
 */
class EventLooper : virtual public android::Thread {
  public:
    /**
     * @param looper         the looper to pump; not null. What is registered with it stays registered.
     * @param timeoutMillis  limit of one poll in milliseconds, -1 for none
     */
    EventLooper(const android::sp<android::Looper>& looper, int timeoutMillis);

    /**
     * Starts the thread; does nothing when it runs. A thread that the system refuses is tried again for five
     * seconds, and then given up with an error line.
     *
     * Any thread but the EventLooper thread itself. Aborts (on the new thread) should that thread own a
     * looper already.
     */
    void start();

    /**
     * Ends the thread and waits for its end; does nothing when it does not run.
     *
     * A poll without limit is woken; a call-back in progress is waited for. Any thread; from inside a
     * call-back, where waiting for oneself would never end, it only asks: the thread ends once the call-back
     * returns.
     */
    void stop();

  protected:
    ~EventLooper() override = default;

  private:
    android::status_t readyToRun() override;
    bool threadLoop() override;

    bool onOwnThread() const { return android::Looper::getForThread() == mLooper; }

    const android::sp<android::Looper> mLooper;
    const int mTimeoutMillis;
    // Serialises start and stop, the join included. Never taken on the EventLooper thread.
    android::Mutex mControlLock;
};
