// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * What stands around the certification mode in its tests.
 */

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "usb/UsbTIDNotifierItf.h"
#include "usb/UsbTestNotifierItf.h"
#include "usb/UsbTestWait.h"

/** For waits that must come to an end on any machine. */
constexpr std::chrono::seconds kCertificationLimit(60);

/** Notes how long is waited for, and waits another length instead. */
class ShortWait : public usb::UsbTestWait {
  public:
    static constexpr nsecs_t kForEver = INT64_C(3600) * 1000000000;

    /** All waits take @p length nanoseconds from now on; the preset is a millisecond. */
    void setLength(nsecs_t length) {
        const std::lock_guard<std::mutex> hold(mTestLock);
        mLength = length;
    }

    /** Runs at the beginning of every wait, on the waiting thread. Before the first wait. */
    void onWait(std::function<void()> action) { mAction = std::move(action); }

    /** The lengths asked for, in seconds. */
    std::vector<double> asked() {
        const std::lock_guard<std::mutex> hold(mTestLock);
        return mAsked;
    }

    /** Waits until there were @p count waits for @p seconds. @return false when that takes too long */
    bool waitForAsked(double seconds, long count = 1) {
        std::unique_lock<std::mutex> hold(mTestLock);
        return mChanged.wait_for(hold, kCertificationLimit, [this, seconds, count] {
            return std::count(mAsked.begin(), mAsked.end(), seconds) >= count;
        });
    }

  protected:
    ~ShortWait() override = default;

    nsecs_t lengthOf(nsecs_t duration) override {
        if (mAction) {
            mAction();
        }
        const std::lock_guard<std::mutex> hold(mTestLock);
        mAsked.push_back(static_cast<double>(duration) / 1e9);
        mChanged.notify_all();
        return mLength;
    }

  private:
    std::mutex mTestLock;  // guards what follows but mAction
    std::condition_variable mChanged;
    nsecs_t mLength = 1000000;
    std::vector<double> mAsked;
    std::function<void()> mAction;
};

/** Takes findings, of the manager's side and of the checker's. */
class FindingRecorder : public usb::UsbTestNotifierItf, public usb::UsbTIDNotifierItf {
  public:
    using Finding = std::pair<int, int>;

    int onEvent(int event, int arg) override {
        const std::lock_guard<std::mutex> hold(mLock);
        mFindings.emplace_back(event, arg);
        mChanged.notify_all();
        return mResult;
    }

    int onTidEvent(int event, int arg) override { return onEvent(event, arg); }

    /** What the next findings are answered with. */
    void setResult(int result) {
        const std::lock_guard<std::mutex> hold(mLock);
        mResult = result;
    }

    /** The findings so far; they are forgotten here. */
    std::vector<Finding> take() {
        const std::lock_guard<std::mutex> hold(mLock);
        return std::exchange(mFindings, {});
    }

    /** Waits until there are @p count findings. @return false when that takes too long */
    bool waitFor(size_t count) {
        std::unique_lock<std::mutex> hold(mLock);
        return mChanged.wait_for(hold, kCertificationLimit,
                                 [this, count] { return mFindings.size() >= count; });
    }

  protected:
    ~FindingRecorder() override = default;

  private:
    std::mutex mLock;  // guards what follows
    std::condition_variable mChanged;
    std::vector<Finding> mFindings;
    int mResult = 0;
};
