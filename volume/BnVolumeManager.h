// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IInterface.h>
#include <utils/Mutex.h>
#include <utils/String16.h>

#include "common/NotifierRegistry.h"
#include "volume/IVolumeManager.h"
#include "volume/VolumeManagerImplItf.h"
#include "volume/VolumeManagerNotifierProxy.h"
#include "volume/VolumeManagerNotifierWapper.h"

namespace volume {

class BnVolumeManager;
class VolumeManagerNotifierDeathRecipient;

/** The volume service's instance of the client registry. */
struct VolumeNotifierTraits {
    using Manager = BnVolumeManager;
    using NotifierItf = VolumeManagerNotifierItf;
    using Wapper = VolumeManagerNotifierWapper;
    using Proxy = VolumeManagerNotifierProxy;
    using DeathRecipient = VolumeManagerNotifierDeathRecipient;

    static constexpr const char* kFile = "IVolumeManager";
    static constexpr const char* kAddFunction =
        "virtual int volume::BnVolumeManager::addNotifier(const android::sp<android::IBinder>&)";
    static constexpr const char* kRemoveFunction =
        "virtual int volume::BnVolumeManager::removeNotifier(const android::sp<android::IBinder>&)";

    static NotifierRegistry<VolumeNotifierTraits>& registryOf(BnVolumeManager& manager);
};

/** Drops a client of the volume service when it dies. */
class VolumeManagerNotifierDeathRecipient : public NotifierDeathRecipient<VolumeNotifierTraits> {
  public:
    using NotifierDeathRecipient::NotifierDeathRecipient;

  protected:
    ~VolumeManagerNotifierDeathRecipient() override = default;
};

/**
 * The service object "VolumeManager": unpacks requests for the volume manager's core and keeps the clients'
 * notifiers.
 *
 * Any thread, several at once.
 */
class BnVolumeManager : public android::BnInterface<IVolumeManager> {
  public:
    /** Serves @p impl and becomes its notifier. Aborts the process when it is null. */
    explicit BnVolumeManager(const android::sp<VolumeManagerImplItf>& impl);

    int startup() override;
    int shutdown() override;
    int addNotifier(const android::sp<android::IBinder>& notifier) override;
    int removeNotifier(const android::sp<android::IBinder>& notifier) override;
    int getVolumeCount() override;
    /** Never null: the placeholder stands for whatever the core does not have. */
    android::sp<VolumeItf> queryVolume(int index) override;

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
    ~BnVolumeManager() override = default;

  private:
    friend struct VolumeNotifierTraits;

    android::status_t dispatch(uint32_t code, const android::Parcel& data, android::Parcel& reply);
    android::status_t replyVolume(const android::Parcel& data, android::Parcel& reply);

    const android::sp<VolumeManagerNotifierProxy> mNotifierProxy;
    /** Guards the entries of mNotifiers. Taken before the proxy's locks. */
    android::Mutex mLock;
    NotifierRegistry<VolumeNotifierTraits> mNotifiers;
    const android::sp<VolumeManagerImplItf> mImpl;
};

}  // namespace volume
