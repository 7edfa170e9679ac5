// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/Mutex.h>

#include "common/UeventObserverNotifier.h"

namespace usb {

class UsbManagerImpl;

/**
 * The USB manager's ear for the kernel's uevents.
 *
 * It refers to the manager without keeping it: a manager whose last reference were dropped on the uevent
 * thread could not leave the observer, whose lock that thread holds.
 */
class UsbUeventObserverNotifier : public UeventObserverNotifier {
  public:
    /** Aborts the process when @p manager is null. */
    explicit UsbUeventObserverNotifier(UsbManagerImpl* manager);

    /** Uevent thread. @return 0 */
    int onUevent(const android::sp<Uevent>& event) override;

    /** Forgets the manager; waits for a uevent in progress. Any thread. */
    void detach();

  protected:
    ~UsbUeventObserverNotifier() override = default;

  private:
    /** Guards mManager; held while the manager handles a uevent. Taken before the manager's lock. */
    android::Mutex mLock;
    UsbManagerImpl* mManager GUARDED_BY(mLock);
};

}  // namespace usb
