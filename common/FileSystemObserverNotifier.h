// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>
#include <utils/String8.h>

/**
 * Hears of the entries of one watched directory. Both operations run on the thread "ObserverThread", one at a
 * time and without a lock held; what takes long here delays what comes after it.
 */
class FileSystemObserverNotifier : public android::RefBase {
  public:
    /**
     * An entry was created.
     * @param path  its full path, cut at 255 bytes
     */
    virtual void onAdd(const android::String8& path) = 0;

    /**
     * An entry was deleted.
     * @param path  its full path, cut at 255 bytes
     */
    virtual void onRemove(const android::String8& path) = 0;

  protected:
    ~FileSystemObserverNotifier() override = default;
};
