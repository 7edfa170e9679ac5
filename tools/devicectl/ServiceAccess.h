// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>
#include <utils/RefBase.h>

#include <string>

#include "tools/devicectl/ExitCode.h"

namespace devicectl {

/**
 * The way to the services. Failures are reported on standard error when they are found, in one line that says
 * what is missing and what to do.
 *
 * For the main thread.
 */
class ServiceAccess {
  public:
    /** @param answerSeconds limit of one answer; 0 for none. One that takes longer ends the program. */
    explicit ServiceAccess(unsigned answerSeconds) : mAnswerSeconds(answerSeconds) {}

    /** Looks whether there are a driver and a service manager. @return kOk, kNoDriver or kNoService */
    ExitCode checkEnvironment() const;

    /** The service @p name. @return kOk, kNoService, or kDaemonDied when it is registered but dead */
    ExitCode find(const std::string& name, android::sp<android::IBinder>* service) const;

    /** The service @p name as it is registered now, or null. Reports nothing. */
    android::sp<android::IBinder> lookUp(const std::string& name) const;

    /** Whether the process behind @p service is there. Reports nothing. */
    bool isAlive(const std::string& name, const android::sp<android::IBinder>& service) const;

    /**
     * For after a call, whose results are zeros when it failed.
     * @return kOk, or kDaemonDied when @p service is dead now
     */
    ExitCode confirmAlive(const std::string& name, const android::sp<android::IBinder>& service) const;

    /** Seconds that an answer may take; 0 for no limit. */
    unsigned answerSeconds() const { return mAnswerSeconds; }

  private:
    const unsigned mAnswerSeconds;
};

}  // namespace devicectl
