// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/Uevent.h"
#include "common/UeventObserverNotifier.h"

namespace device {

struct DeviceObserverState;

/**
 * The DeviceObserver's ear: builds a Device from each uevent of a registered subsystem and passes it on.
 */
class UeventNotifier : public UeventObserverNotifier {
  public:
    /** @param observer the owner's state; not owned, must outlive the registration of this notifier. */
    explicit UeventNotifier(DeviceObserverState* observer) : mObserver(observer) {}

    /** Uevent thread. Returns 0. */
    int onUevent(const android::sp<Uevent>& event) override;

  protected:
    ~UeventNotifier() override = default;

  private:
    DeviceObserverState* const mObserver;
};

}  // namespace device
