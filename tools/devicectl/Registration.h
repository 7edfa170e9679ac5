// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>
#include <utils/RefBase.h>

#include <atomic>
#include <functional>

#include "tools/devicectl/ServiceAccess.h"
#include "tools/devicectl/WakeUp.h"

namespace devicectl {

/** A kind of registration: with which service, and how. The functions are called on the main thread. */
struct RegistrationKind {
    const char* service;  ///< its name; of static storage
    /** Makes the notifier's binder, which hears on binder threads, which must run. One for each daemon. */
    std::function<android::sp<android::IBinder>()> makeEar;
    void (*add)(const android::sp<android::IBinder>& service, const android::sp<android::IBinder>& ear);
    void (*remove)(const android::sp<android::IBinder>& service, const android::sp<android::IBinder>& ear);
};

/**
 * This process's one registration of a kind: made, lost with the daemon, made anew, removed.
 *
 * A second registration with a daemon, or a removal without one, would end that daemon: this class sees to it
 * that neither happens. Main thread, but for the notice of death.
 */
class Registration {
  public:
    /** @param wakeUp posted when the daemon dies */
    Registration(const ServiceAccess& access, RegistrationKind kind, const android::sp<WakeUp>& wakeUp);

    /** Name of the service. */
    const char* service() const { return mKind.service; }

    /**
     * Registers with @p service, if there is no registration. Reports nothing.
     * @return whether this process is registered now; false when the service is dead
     */
    bool make(const android::sp<android::IBinder>& service);

    /** Whether there is one with a daemon of which no death is known. */
    bool isThere() const { return mService != nullptr && !mDeath->mDied; }

    /** Forgets a registration whose daemon died. @return whether there was one */
    bool dropDead();

    /** Takes the registration back, if there is one. The daemon must answer within @p seconds (0: any time).
     */
    void remove(unsigned seconds);

  private:
    /** Notes one daemon's death. */
    class Death : public android::IBinder::DeathRecipient {
      public:
        explicit Death(const android::sp<WakeUp>& wakeUp) : mWakeUp(wakeUp) {}
        void binderDied(const android::wp<android::IBinder>& who) override;

        std::atomic<bool> mDied{false};

      private:
        const android::sp<WakeUp> mWakeUp;
    };

    void forget();

    const ServiceAccess& mAccess;
    const RegistrationKind mKind;
    const android::sp<WakeUp> mWakeUp;

    /** All three set or all three null. */
    android::sp<android::IBinder> mService;
    android::sp<android::IBinder> mEar;
    android::sp<Death> mDeath;
};

}  // namespace devicectl
