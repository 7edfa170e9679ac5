// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>
#include <utils/RefBase.h>

#include <atomic>

#include "device/DeviceManagerNotifierItf.h"
#include "device/IDeviceManager.h"
#include "tools/devicectl/ServiceAccess.h"
#include "tools/devicectl/WakeUp.h"

namespace devicectl {

/**
 * This process's one registration with the device manager: made, lost with the daemon, made anew, removed.
 *
 * A second registration with a daemon, or a removal without one, would end that daemon: this class sees to it
 * that neither happens. Main thread, but for the notice of death.
 */
class Registration {
  public:
    /**
     * @param notifier hears of the devices, on binder threads, which must run
     * @param wakeUp   posted when the daemon dies
     */
    Registration(const ServiceAccess& access, const android::sp<device::DeviceManagerNotifierItf>& notifier,
                 const android::sp<WakeUp>& wakeUp)
        : mAccess(access), mNotifier(notifier), mWakeUp(wakeUp) {}

    /**
     * Registers with @p service, if there is no registration. Reports nothing.
     * @return whether this process is registered now; false when the service is dead
     */
    bool make(const android::sp<android::IBinder>& service);

    /** Whether there is one with a daemon of which no death is known. */
    bool isThere() const { return mManager != nullptr && !mDeath->mDied; }

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

    const ServiceAccess& mAccess;
    const android::sp<device::DeviceManagerNotifierItf> mNotifier;
    const android::sp<WakeUp> mWakeUp;

    /** All three set or all three null. */
    android::sp<device::IDeviceManager> mManager;
    android::sp<android::IBinder> mEar;
    android::sp<Death> mDeath;
};

}  // namespace devicectl
