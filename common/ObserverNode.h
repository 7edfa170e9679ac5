// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>
#include <utils/String8.h>

#include "common/FileSystemObserverNotifier.h"

/** A watched directory and who hears of its entries. Never changes; any thread. */
struct ObserverNode : public android::RefBase {
    ObserverNode(const android::String8& path, const android::sp<FileSystemObserverNotifier>& notifier)
        : mPath(path), mNotifier(notifier) {}

    const android::String8 mPath;
    /** May be null. */
    const android::sp<FileSystemObserverNotifier> mNotifier;

  protected:
    ~ObserverNode() override = default;
};
