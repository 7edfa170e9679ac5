// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include <chrono>
#include <deque>
#include <mutex>
#include <vector>

#include "tools/devicectl/Registration.h"
#include "tools/devicectl/ServiceAccess.h"
#include "tools/devicectl/UsbNames.h"
#include "tools/devicectl/WakeUp.h"
#include "tools/devicectl/WatchModel.h"

namespace devicectl {

/**
 * Keeps the model of the command watch true, on a thread of its own: a daemon that hangs or a disk that does
 * not answer holds up that thread and not the terminal. Looks at each change that it hears of, and every
 * second.
 */
class WatchSource : public virtual android::RefBase {
  public:
    using Clock = std::chrono::steady_clock;

    /** @param news posted at each look */
    explicit WatchSource(const android::sp<WakeUp>& news);

    /** Starts the thread, which keeps this object and runs until the process ends. Once. */
    void start();

    /** What was seen last. @param when since when it was true; the start before the first look. Any thread.
     */
    WatchModel model(Clock::time_point* when) const;

  protected:
    ~WatchSource() override = default;

  private:
    void run();
    WatchModel look();
    android::sp<android::IBinder> serviceOf(const char* name, WatchModel* model);
    void lookAtControllers(const android::sp<android::IBinder>& service, WatchModel* model);
    void lookAtVolumes(const android::sp<android::IBinder>& service, WatchModel* model);
    void lookAtUsb(const android::sp<android::IBinder>& service, WatchModel* model);

    const android::sp<WakeUp> mNews;
    const android::sp<WakeUp> mChanges;
    const ServiceAccess mAccess;
    const UsbNames mNames;

    // The thread's alone.
    Registration mVolumeChanges;
    Registration mUsbChanges;
    android::sp<android::IBinder> mAsked;  ///< the service that told of the controllers
    std::vector<WatchModel::Controller> mControllers;

    /** Guards the two members below. */
    mutable std::mutex mLock;
    WatchModel mModel;
    Clock::time_point mWhen;
};

}  // namespace devicectl
