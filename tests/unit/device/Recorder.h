// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * A notifier that remembers.
 */

#include <utils/Condition.h>
#include <utils/Mutex.h>

#include <functional>
#include <string>
#include <vector>

#include "device/DeviceManagerNotifierItf.h"

/** Remembers each call as "added PATH", "removed PATH" or "event CODE VALUE". Any thread. */
class Recorder : public device::DeviceManagerNotifierItf {
  public:
    explicit Recorder(int32_t result = 0) : mResult(result) {}

    int32_t onDeviceAdded(const android::sp<device::DeviceItf>& device) override {
        return note("added " + std::string(device->getPath().string()), device);
    }
    int32_t onDeviceRemoved(const android::sp<device::DeviceItf>& device) override {
        return note("removed " + std::string(device->getPath().string()), device);
    }
    int32_t onEvent(int32_t event, int32_t value) override {
        return note("event " + std::to_string(event) + " " + std::to_string(value), nullptr);
    }

    std::vector<std::string> calls() const {
        android::Mutex::Autolock lock(mLock);
        return mCalls;
    }

    android::sp<device::DeviceItf> lastDevice() const {
        android::Mutex::Autolock lock(mLock);
        return mLastDevice;
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

  private:
    int32_t note(const std::string& call, const android::sp<device::DeviceItf>& device) {
        if (mInside) {
            mInside();
        }
        android::Mutex::Autolock lock(mLock);
        mCalls.push_back(call);
        mLastDevice = device;
        mChanged.broadcast();
        return mResult;
    }

    const int32_t mResult;
    mutable android::Mutex mLock;
    mutable android::Condition mChanged;
    std::vector<std::string> mCalls GUARDED_BY(mLock);
    android::sp<device::DeviceItf> mLastDevice GUARDED_BY(mLock);
};
