// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * Tells of entries that appear in directories and vanish from them.
 */

#include <utils/RefBase.h>
#include <utils/String8.h>

#include <memory>

#include "common/FileSystemObserverNotifier.h"

struct FileSystemObserverState;

/**
 * Watches a set of directories, each for one notifier. The set is taken over by start(): what is added or
 * removed later takes effect with the next start().
 *
 * All operations: any thread.
 */
class FileSystemObserver : public android::RefBase {
  public:
    FileSystemObserver();

    /**
     * Puts the directory @p path on the list, with @p notifier to hear of its entries, in place of the
     * notifier that it had. The directory need not exist before start().
     */
    void add(const android::String8& path, const android::sp<FileSystemObserverNotifier>& notifier);

    /** Takes @p path off the list; does nothing when it is not on it. */
    void remove(const android::String8& path);

    /**
     * Begins to watch the directories of the list, on a new thread "ObserverThread". A thread that runs is
     * ended first, as by stop(); what happens between the two is not heard.
     *
     * Aborts when one of the directories cannot be watched, such as one that does not exist.
     */
    void start();

    /**
     * Ends the thread and waits for its end, 100 ms at most beyond the notifier in progress; does nothing
     * when it does not run. From inside a notifier it only asks: the thread ends when that returns. Of two
     * calls at once, one waits.
     */
    void stop();

  protected:
    /** Ends the thread, if it runs. */
    ~FileSystemObserver() override;

  private:
    void endThread();

    std::unique_ptr<FileSystemObserverState> mState;
};
