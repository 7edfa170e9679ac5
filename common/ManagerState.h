// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/Mutex.h>

#include <atomic>
#include <cstdint>
#include <functional>

/**
 * The state word of a manager's core and the order of its changes: one start or stop at a time, none twice.
 *
 * Any thread. The state is read without a lock.
 */
class ManagerState {
  public:
    /** Logged as its number. */
    enum Value : int32_t {
        kShutDown = 0,
        kStarted = 1,
    };

    /** @param tag the tag of the manager's log lines; must outlive this object */
    explicit ManagerState(const char* tag) : mTag(tag) {}

    ManagerState(const ManagerState&) = delete;
    ManagerState& operator=(const ManagerState&) = delete;

    /**
     * Runs @p start when the manager is shut down; it is started when that returns true. Otherwise logs why
     * there is nothing to do.
     * @param start must not start or stop this manager again
     */
    void startup(const std::function<bool()>& start);

    /**
     * Runs @p stop when the manager is started; it is shut down afterwards. Otherwise logs why there is
     * nothing to do.
     * @param stop must not start or stop this manager again
     */
    void shutdown(const std::function<void()>& stop);

    int32_t get() const { return mValue; }

    /** Sets the state without doing anything for it. */
    void set(int32_t value) { mValue = value; }

  private:
    const char* const mTag;
    /**
     * Serialises startup() and shutdown(). Taken before every lock of the manager and, unlike them, held
     * while threads are started and joined: these may need the manager's locks to come to their end.
     */
    android::Mutex mTransitionLock;
    /** Changed under mTransitionLock alone, but for set(). */
    std::atomic<int32_t> mValue{kShutDown};
};
