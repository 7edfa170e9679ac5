// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * A notifier of the volume manager that remembers.
 */

#include <utils/Condition.h>
#include <utils/Mutex.h>

#include <functional>
#include <string>
#include <vector>

#include "volume/VolumeManagerNotifierItf.h"

/** Remembers each call as "added NAME", "removed NAME" or "event CODE VALUE". Any thread. */
class VolumeRecorder : public volume::VolumeManagerNotifierItf {
  public:
    explicit VolumeRecorder(int32_t result = 0) : mResult(result) {}

    int32_t onVolumeAdded(const android::sp<volume::VolumeItf>& volume) override {
        return note("added " + std::string(volume->getName().string()), volume);
    }
    int32_t onVolumeRemoved(const android::sp<volume::VolumeItf>& volume) override {
        return note("removed " + std::string(volume->getName().string()), volume);
    }
    int32_t onEvent(int32_t event, int32_t value) override {
        return note("event " + std::to_string(event) + " " + std::to_string(value), nullptr);
    }

    std::vector<std::string> calls() const {
        android::Mutex::Autolock lock(mLock);
        return mCalls;
    }

    android::sp<volume::VolumeItf> lastVolume() const {
        android::Mutex::Autolock lock(mLock);
        return mLastVolume;
    }

    /** Runs inside each call, before it is remembered. Set before the first call. */
    std::function<void()> mInside;

  private:
    int32_t note(const std::string& call, const android::sp<volume::VolumeItf>& volume) {
        if (mInside) {
            mInside();
        }
        android::Mutex::Autolock lock(mLock);
        mCalls.push_back(call);
        mLastVolume = volume;
        return mResult;
    }

    const int32_t mResult;
    mutable android::Mutex mLock;
    std::vector<std::string> mCalls GUARDED_BY(mLock);
    android::sp<volume::VolumeItf> mLastVolume GUARDED_BY(mLock);
};
