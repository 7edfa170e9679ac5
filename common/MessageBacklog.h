// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * What waits in a message queue. Private to MessageQueue and its tests.
 */

#include <utils/Looper.h>
#include <utils/Mutex.h>
#include <utils/StrongPointer.h>
#include <utils/Timers.h>

#include <deque>

/**
 * Messages that are due at once and wait for their looper's thread.
 *
 * A looper keeps its messages in an array: each one that is posted behind n others or taken from before them
 * costs n steps, and a client that holds the thread up while the kernel is busy would make the backlog ever
 * slower. So the messages wait here, and the looper knows of the first one alone, under the time at which
 * that one was posted. What is delivered when is therefore what the looper alone would have done: by due
 * time, delayed messages included.
 *
 * Belongs to one looper, whose handler it is. Any thread.
 */
class MessageBacklog : public android::MessageHandler {
  public:
    /** Posts @p message for @p handler, due now, to @p looper. */
    void post(const android::sp<android::Looper>& looper, const android::sp<android::MessageHandler>& handler,
              const android::Message& message);

    /** Drops every waiting message @p what for @p handler. */
    void remove(const android::sp<android::Looper>& looper,
                const android::sp<android::MessageHandler>& handler, int what);

    /** Hands the first message to its handler, on the looper's thread. */
    void handleMessage(const android::Message& message) override;

  protected:
    ~MessageBacklog() override = default;

  private:
    struct Waiting {
        android::sp<android::MessageHandler> handler;
        android::Message message;
        nsecs_t postedAt;
    };

    void announceFirstLocked(const android::sp<android::Looper>& looper) REQUIRES(mLock);

    // The looper's own lock comes inside. Never held while a message is handled or a handler dies.
    android::Mutex mLock;
    std::deque<Waiting> mWaiting GUARDED_BY(mLock);
};
