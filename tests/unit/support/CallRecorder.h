// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * What notifiers that remember have in common.
 */

#include <utils/Condition.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>
#include <utils/Timers.h>

#include <functional>
#include <string>
#include <vector>

/**
 * Remembers each event as "event CODE VALUE", and what a derived class notes. Any thread.
 *
 * @tparam Record what the notifier's other operations take
 */
template <typename NotifierItf, typename Record = android::RefBase>
class CallRecorder : public NotifierItf {
  public:
    /** @param result what every operation returns */
    explicit CallRecorder(int32_t result = 0) : mResult(result) {}

    int32_t onEvent(int32_t event, int32_t value) override {
        return note("event " + std::to_string(event) + " " + std::to_string(value), nullptr);
    }

    std::vector<std::string> calls() const {
        android::Mutex::Autolock lock(mLock);
        return mCalls;
    }

    /** Waits until @p count calls came. @return false when ten seconds passed first */
    bool waitFor(size_t count) const {
        android::Mutex::Autolock lock(mLock);
        const nsecs_t deadline = systemTime(SYSTEM_TIME_MONOTONIC) + s2ns(10);
        while (mCalls.size() < count) {
            const nsecs_t left = deadline - systemTime(SYSTEM_TIME_MONOTONIC);
            if (left <= 0) {
                return false;
            }
            mChanged.waitRelative(mLock, left);
        }
        return true;
    }

    /** Runs inside each call, before it is remembered. Set before the first call. */
    std::function<void()> mInside;

  protected:
    int32_t note(const std::string& call, const android::sp<Record>& record) {
        if (mInside) {
            mInside();
        }
        android::Mutex::Autolock lock(mLock);
        mCalls.push_back(call);
        mLast = record;
        mChanged.broadcast();
        return mResult;
    }

    /** The record of the last call; null for an event. */
    android::sp<Record> last() const {
        android::Mutex::Autolock lock(mLock);
        return mLast;
    }

  private:
    const int32_t mResult;
    mutable android::Mutex mLock;
    mutable android::Condition mChanged;
    std::vector<std::string> mCalls GUARDED_BY(mLock);
    android::sp<Record> mLast GUARDED_BY(mLock);
};
