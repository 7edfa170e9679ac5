// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/Looper.h>
#include <utils/RefBase.h>

#include "device/DeviceItf.h"
#include "device/DeviceManagerNotifierItf.h"

namespace device {

class DeviceManagerImpl;

/**
 * The default handler of the device manager's queue. Nothing posts to it; it logs what comes all the same.
 */
class DeviceManagerMessageHandler : public android::MessageHandler {
  public:
    explicit DeviceManagerMessageHandler(const android::wp<DeviceManagerImpl>& manager) : mManager(manager) {}

    /** Owner's queue thread. */
    void handleMessage(const android::Message& message) override;

  protected:
    ~DeviceManagerMessageHandler() override = default;

  private:
    const android::wp<DeviceManagerImpl> mManager;
};

/**
 * Carries one attach or detach from the uevent thread to the manager's notifier.
 */
class DeviceMessageHandler : public android::MessageHandler {
  public:
    DeviceMessageHandler(const android::wp<DeviceManagerImpl>& manager, const android::sp<DeviceItf>& device)
        : mManager(manager), mDevice(device) {}

    /** Owner's queue thread. The event is dropped when the manager is gone or has no notifier. */
    void handleMessage(const android::Message& message) override;

  protected:
    ~DeviceMessageHandler() override = default;

  private:
    /** Null when the manager is gone or has no notifier. */
    android::sp<DeviceManagerNotifierItf> currentNotifier() const;

    const android::wp<DeviceManagerImpl> mManager;
    const android::sp<DeviceItf> mDevice;
};

}  // namespace device
