// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/ManagerService.h"
#include "volume/IVolumeManager.h"
#include "volume/VolumeManagerImplItf.h"
#include "volume/VolumeManagerNotifierProxy.h"
#include "volume/VolumeManagerNotifierWapper.h"

namespace volume {

class BnVolumeManager;
class VolumeManagerNotifierDeathRecipient;

/** The volume service's instance of the client registry. */
struct VolumeNotifierTraits {
    using Interface = IVolumeManager;
    using Impl = VolumeManagerImplItf;
    using Manager = BnVolumeManager;
    using NotifierItf = VolumeManagerNotifierItf;
    using Wapper = VolumeManagerNotifierWapper;
    using Proxy = VolumeManagerNotifierProxy;
    using DeathRecipient = VolumeManagerNotifierDeathRecipient;

    static constexpr uint32_t kLastCode = Interface::kQueryVolume;
    static constexpr const char* kFile = "IVolumeManager";
    static constexpr const char* kConstructor =
        "volume::BnVolumeManager::BnVolumeManager(const android::sp<volume::VolumeManagerImplItf>&)";
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
class BnVolumeManager : public ManagerService<VolumeNotifierTraits> {
  public:
    /** Serves @p impl and becomes its notifier. Aborts the process when it is null. */
    explicit BnVolumeManager(const android::sp<VolumeManagerImplItf>& impl);

    int getVolumeCount() override;
    /** Never null: the placeholder stands for whatever the core does not have. */
    android::sp<VolumeItf> queryVolume(int index) override;

  protected:
    ~BnVolumeManager() override = default;

  private:
    android::status_t dispatch(uint32_t code, const android::Parcel& data, android::Parcel& reply) override;
    android::status_t replyVolume(const android::Parcel& data, android::Parcel& reply);
};

}  // namespace volume
