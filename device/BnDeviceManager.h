// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IInterface.h>
#include <utils/Mutex.h>
#include <utils/String16.h>

#include "common/NotifierRegistry.h"
#include "device/DeviceManagerImplItf.h"
#include "device/DeviceManagerNotifierProxy.h"
#include "device/DeviceManagerNotifierWapper.h"
#include "device/IDeviceManager.h"

namespace device {

class BnDeviceManager;
class DeviceManagerNotifierDeathRecipient;

/** The device service's instance of the client registry. */
struct DeviceNotifierTraits {
    using Manager = BnDeviceManager;
    using NotifierItf = DeviceManagerNotifierItf;
    using Wapper = DeviceManagerNotifierWapper;
    using Proxy = DeviceManagerNotifierProxy;
    using DeathRecipient = DeviceManagerNotifierDeathRecipient;

    static constexpr const char* kFile = "IDeviceManager";
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
class BnDeviceManager : public android::BnInterface<IDeviceManager> {
  public:
    /** Serves @p impl and becomes its notifier. Aborts the process when it is null. */
    explicit BnDeviceManager(const android::sp<DeviceManagerImplItf>& impl);

    int startup() override;
    int shutdown() override;
    int addNotifier(const android::sp<android::IBinder>& notifier) override;
    int removeNotifier(const android::sp<android::IBinder>& notifier) override;
    android::sp<DeviceItf> getDevice(const android::String8& subsystem,
                                     const android::String8& devName) override;
    android::Vector<android::sp<DeviceItf>> getDevices(const android::String8& path) override;
    android::String8 getDevicePath(int type, int id) override;

    /**
     * Writes the service's state to @p fd in one write: the registered clients when the first of @p args is
     * "notifier", else the core's dump.
     * @return OK
     */
    android::status_t dump(int fd, const android::Vector<android::String16>& args) override;

    /**
     * Every reply begins with an int32 0, also those of the base class's transactions.
     * @return -1 when the request is not for this interface; an error status when it is cut short
     */
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags = 0) override;

  protected:
    ~BnDeviceManager() override = default;

  private:
    friend struct DeviceNotifierTraits;

    android::status_t dispatch(uint32_t code, const android::Parcel& data, android::Parcel& reply);
    android::status_t replyDevice(const android::Parcel& data, android::Parcel& reply);
    android::status_t replyDevices(const android::Parcel& data, android::Parcel& reply);
    android::status_t replyDevicePath(const android::Parcel& data, android::Parcel& reply);

    const android::sp<DeviceManagerNotifierProxy> mNotifierProxy;
    /** Guards the entries of mNotifiers. Taken before the proxy's locks. */
    android::Mutex mLock;
    NotifierRegistry<DeviceNotifierTraits> mNotifiers;
    const android::sp<DeviceManagerImplItf> mImpl;
};

}  // namespace device
