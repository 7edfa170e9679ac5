// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <log/log.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>
#include <utils/SortedVector.h>

#include <cstdint>

/**
 * One local notifier that passes every notification on to any number of others: what a manager core holds as
 * its notifier, while clients come and go.
 *
 * A service derives its proxy from NotifierFanOut<its notifier interface> and implements each operation of
 * the interface with callAll().
 *
 * Targets are held weakly and called in ascending order of their addresses. One slow target delays the
 * others. Registration, removal and the count never wait for a target, so a target may have itself removed,
 * or another one added, from inside a notification or while the notification waits for it.
 *
 * @tparam NotifierItf the notifier interface; derives virtually from android::RefBase
 */
template <typename NotifierItf>
class NotifierFanOut : public NotifierItf {
  public:
    /** @param tag log tag of the derived class; a literal. */
    explicit NotifierFanOut(const char* tag) : mTag(tag) {}

    /** Adds @p notifier; one that is there already stays once. Any thread. */
    virtual void addNotifier(const android::wp<NotifierItf>& notifier) {
        android::Mutex::Autolock lock(mSetLock);
        mNotifierSet.add(notifier);
    }

    /**
     * Removes @p notifier; an unknown one is ignored. Any thread. A notification that is under way reaches it
     * only if it was promoted before.
     */
    virtual void removeNotifier(const android::wp<NotifierItf>& notifier) {
        android::Mutex::Autolock lock(mSetLock);
        mNotifierSet.remove(notifier);
    }

    /** Number of targets, those that are gone but were never removed included; logs it. Any thread. */
    virtual size_t size() {
        const size_t count = snapshot().size();
        __android_log_print(ANDROID_LOG_INFO, mTag, "notifier size[%d]", static_cast<int>(count));
        return count;
    }

  protected:
    ~NotifierFanOut() override = default;

    /**
     * Calls @p operation with @p arguments on every target that still lives.
     * @return the result of the last one called; 0 if there was none
     */
    template <typename... Parameters, typename... Arguments>
    int32_t callAll(int32_t (NotifierItf::*operation)(Parameters...), const Arguments&... arguments) {
        android::Mutex::Autolock lock(mLock);
        // Constant: an iterator of one that is not would copy the whole set.
        const NotifierSet targets = snapshot();
        int32_t result = 0;
        for (const android::wp<NotifierItf>& entry : targets) {
            // Promoted only now: a target removed while an earlier one was called is not reached any more.
            const android::sp<NotifierItf> notifier = entry.promote();
            if (notifier != nullptr) {
                result = (notifier.get()->*operation)(arguments...);
            }
        }
        return result;
    }

  private:
    using NotifierSet = android::SortedVector<android::wp<NotifierItf>>;

    NotifierSet snapshot() {
        android::Mutex::Autolock lock(mSetLock);
        return mNotifierSet;
    }

    const char* const mTag;
    /** Makes notifications one after the other; held while targets are called. Taken before mSetLock. */
    android::Mutex mLock;
    /** Guards mNotifierSet; held for moments only. */
    android::Mutex mSetLock;
    NotifierSet mNotifierSet GUARDED_BY(mSetLock);
};
