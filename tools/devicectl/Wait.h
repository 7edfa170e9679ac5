// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include <chrono>
#include <optional>
#include <string>

#include "tools/devicectl/CommandLine.h"
#include "tools/devicectl/Registration.h"
#include "tools/devicectl/ServiceAccess.h"
#include "tools/devicectl/WakeUp.h"

namespace devicectl {

/**
 * The command wait: returns when something is there with all that belongs to it, also when the daemon or the
 * service manager come only later or are replaced meanwhile. Main thread.
 */
class Wait {
  public:
    explicit Wait(const Options& options);

    /** @return kOk when it is there, kTimedOut when it is not in time, or what kept from waiting */
    ExitCode run();

  private:
    using Clock = std::chrono::steady_clock;

    std::optional<std::string> waitUntilThere();
    /** What was found, rendered; nothing while it is not there. Keeps the reason. */
    std::optional<std::string> look();
    std::optional<std::string> lookForServices();
    std::optional<std::string> lookForVolume(const android::sp<android::IBinder>& service);
    std::optional<std::string> lookForUsbDevice(const android::sp<android::IBinder>& service);
    /** The service, alive and with this process registered; null otherwise. */
    android::sp<android::IBinder> registeredService();
    bool isLiving(const std::string& name);
    void sleep();

    const Options& mOptions;
    const ServiceAccess mAccess;
    const android::sp<WakeUp> mWakeUp;
    std::optional<Registration>
        mRegistration;  ///< with the service that tells; none when services are awaited
    std::optional<Clock::time_point> mDeadline;
    std::string mReason;  ///< why the last look did not find it
};

}  // namespace devicectl
