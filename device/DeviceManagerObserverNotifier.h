// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "device/DeviceObserverNotifierItf.h"

namespace device {

class DeviceManagerImpl;

/**
 * The device manager's entry in the device observer: lists what comes, drops what goes and posts both to the
 * manager's queue. One object per watched subsystem.
 */
class DeviceManagerObserverNotifier : public DeviceObserverNotifierItf {
  public:
    explicit DeviceManagerObserverNotifier(const android::wp<DeviceManagerImpl>& manager)
        : mManager(manager) {}

    /** Uevent thread. */
    void onAdd(const android::sp<DeviceItf>& device) override;

    /** Uevent thread. */
    void onRemove(const android::sp<DeviceItf>& device) override;

  protected:
    ~DeviceManagerObserverNotifier() override = default;

  private:
    const android::wp<DeviceManagerImpl> mManager;
};

}  // namespace device
