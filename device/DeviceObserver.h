// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>
#include <utils/String8.h>

#include <memory>

#include "common/UeventObserver.h"
#include "device/DeviceObserverNotifierItf.h"

namespace device {

struct DeviceObserverState;

/**
 * Turns the uevents of chosen subsystems into device records and hands each to the notifier registered for
 * its subsystem: one notifier per subsystem, the last one registered.
 *
 * Operations may be called from any thread, but not from inside a notifier: the lock that guards the
 * registrations is held while one runs.
 */
class DeviceObserver : public virtual android::RefBase {
  public:
    /** Registers with @p observer, the daemon's one listener on the kernel's uevents; must not be null. */
    explicit DeviceObserver(const android::sp<UeventObserver>& observer);

    /** Registers @p notifier for @p subsystem, in place of the one registered before. */
    void add(const android::String8& subsystem, const android::sp<DeviceObserverNotifierItf>& notifier);

    /** Drops the notifier of @p subsystem; does nothing when there is none. */
    void remove(const android::String8& subsystem);

    /**
     * Starts the uevent thread.
     *
     * It is the thread of the shared UeventObserver: every other notifier of uevents begins to hear too.
     */
    void start();

    /** Stops the uevent thread, for every notifier of uevents, and waits for its end. */
    void stop();

  protected:
    ~DeviceObserver() override;

  private:
    std::unique_ptr<DeviceObserverState> mState;
};

}  // namespace device
