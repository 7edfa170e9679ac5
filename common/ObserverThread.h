// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * The inotify thread of a FileSystemObserver. Private to it and its tests.
 */

#include <sys/inotify.h>
#include <utils/KeyedVector.h>
#include <utils/String8.h>
#include <utils/Thread.h>

#include "common/ObserverNode.h"

/**
 * The thread "ObserverThread": waits on one inotify descriptor and calls the notifiers of the directories
 * that were known when it was made. Watching begins with the construction: what happens before the thread
 * runs waits in the descriptor.
 */
class ObserverThread : virtual public android::Thread {
  public:
    /**
     * Watches the directories of @p nodes, which is only read here. Aborts when there is no inotify
     * descriptor to be had or a directory cannot be watched.
     */
    explicit ObserverThread(android::KeyedVector<android::String8, android::sp<ObserverNode>>& nodes);

    /**
     * Ends the thread and waits for its end: for the wait in progress, 100 ms at most, and for the notifier
     * in progress. From inside a notifier it only asks; the thread ends when that returns.
     */
    void end();

    /** Calls the notifier of one event. ObserverThread; aborts when @p event is null. */
    void handleEvent(inotify_event* event);

  protected:
    ~ObserverThread() override;

  private:
    android::status_t readyToRun() override;
    bool threadLoop() override;

    int mFd;
    /** By watch descriptor; not changed after the construction. */
    android::KeyedVector<int, android::sp<ObserverNode>> mWatches;
};
