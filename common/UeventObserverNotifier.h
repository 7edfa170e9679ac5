// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * What the uevent observer calls.
 */

#include <utils/RefBase.h>

class Uevent;

/** Hears every uevent of the kernel, of all subsystems; what concerns it is for itself to decide. */
class UeventObserverNotifier : public android::RefBase {
  public:
    /**
     * Takes one uevent.
     *
     * Uevent thread, with the observer's lock held: register or unregister no notifier from in here, and hand
     * longer work to a queue of your own. What takes long here is what the kernel's buffer must hold
     * meanwhile.
     *
     * @param event  the record, shared with the other notifiers; read only
     * @return not looked at; 0 by custom
     */
    virtual int onUevent(const android::sp<Uevent>& event) = 0;

  protected:
    ~UeventObserverNotifier() override = default;
};
