// SPDX-License-Identifier: Apache-2.0
#include "client/VolumeAccess.h"

#include "client/Lists.h"
#include "client/SessionNotifier.h"
#include "volume/BnVolumeManagerNotifier.h"

namespace client {

using android::IBinder;
using android::sp;
using android::wp;

namespace {

class Notifier : public SessionNotifier<VolumeAccess, volume::VolumeManagerNotifierItf> {
  public:
    using SessionNotifier::SessionNotifier;

    int32_t onVolumeAdded(const sp<volume::VolumeItf>& volume) override { return hear(true, volume); }
    int32_t onVolumeRemoved(const sp<volume::VolumeItf>& volume) override { return hear(false, volume); }
};

}  // namespace

bool VolumeAccess::isSame(const Record& one, const Record& other) {
    // The mount path is left out: that of a volume on its way out reads "unknown".
    return one.getUuid() == other.getUuid() && one.getLabel() == other.getLabel() &&
           one.getFormat() == other.getFormat() && one.getAccessPath() == other.getAccessPath() &&
           one.getDevicePath() == other.getDevicePath() && one.getMbrPath() == other.getMbrPath();
}

sp<IBinder> VolumeAccess::addNotifier(const sp<Manager>& manager, const sp<IBinder>& /*service*/,
                                      const wp<Session>& session, uint64_t connection) {
    sp<IBinder> notifier = new volume::BnVolumeManagerNotifier(new Notifier(session, connection));
    manager->addNotifier(notifier);
    return notifier;
}

void VolumeAccess::removeNotifier(const sp<Manager>& manager, const sp<IBinder>& notifier) {
    manager->removeNotifier(notifier);
}

std::vector<sp<volume::VolumeItf>> VolumeAccess::read(const sp<Manager>& manager,
                                                      const Environment& /*environment*/,
                                                      const std::vector<sp<Record>>& /*known*/) {
    return Lists::volumes(*manager);
}

}  // namespace client
