// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/ManagerService.h"
#include "device/DeviceManagerImplItf.h"
#include "device/DeviceManagerNotifierProxy.h"
#include "device/DeviceManagerNotifierWapper.h"
#include "device/IDeviceManager.h"

namespace device {

class BnDeviceManager;
class DeviceManagerNotifierDeathRecipient;

/** The device service's instance of the client registry. */
struct DeviceNotifierTraits {
    using Interface = IDeviceManager;
    using Impl = DeviceManagerImplItf;
    using Manager = BnDeviceManager;
    using NotifierItf = DeviceManagerNotifierItf;
    using Wapper = DeviceManagerNotifierWapper;
    using Proxy = DeviceManagerNotifierProxy;
    using DeathRecipient = DeviceManagerNotifierDeathRecipient;

    static constexpr uint32_t kLastCode = Interface::kGetDevicePath;
    static constexpr const char* kFile = "IDeviceManager";
    static constexpr const char* kConstructor =
        "device::BnDeviceManager::BnDeviceManager(const android::sp<device::DeviceManagerImplItf>&)";
    static constexpr const char* kAddFunction =
        "virtual int device::BnDeviceManager::addNotifier(const android::sp<android::IBinder>&)";
    static constexpr const char* kRemoveFunction =
        "virtual int device::BnDeviceManager::removeNotifier(const android::sp<android::IBinder>&)";

    static NotifierRegistry<DeviceNotifierTraits>& registryOf(BnDeviceManager& manager);
};

/** Drops a client of the device service when it dies. */
class DeviceManagerNotifierDeathRecipient : public NotifierDeathRecipient<DeviceNotifierTraits> {
  public:
    using NotifierDeathRecipient::NotifierDeathRecipient;

  protected:
    ~DeviceManagerNotifierDeathRecipient() override = default;
};

/**
 * The service object "DeviceManager": unpacks requests for the device manager's core and keeps the clients'
 * notifiers.
 *
 * Any thread, several at once.
 */
class BnDeviceManager : public ManagerService<DeviceNotifierTraits> {
  public:
    /** Serves @p impl and becomes its notifier. Aborts the process when it is null. */
    explicit BnDeviceManager(const android::sp<DeviceManagerImplItf>& impl);

    android::sp<DeviceItf> getDevice(const android::String8& subsystem,
                                     const android::String8& devName) override;
    android::Vector<android::sp<DeviceItf>> getDevices(const android::String8& path) override;
    android::String8 getDevicePath(int type, int id) override;

  protected:
    ~BnDeviceManager() override = default;

  private:
    android::status_t dispatch(uint32_t code, const android::Parcel& data, android::Parcel& reply) override;
    android::status_t replyDevice(const android::Parcel& data, android::Parcel& reply);
    android::status_t replyDevices(const android::Parcel& data, android::Parcel& reply);
    android::status_t replyDevicePath(const android::Parcel& data, android::Parcel& reply);
};

}  // namespace device
