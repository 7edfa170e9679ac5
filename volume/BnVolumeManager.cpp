// SPDX-License-Identifier: Apache-2.0
#include "volume/BnVolumeManager.h"

#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>

#include "common/Assert.h"
#include "common/DumpText.h"
#include "common/TransactionFrame.h"
#include "volume/Volume.h"
#include "volume/VolumeParcel.h"

namespace volume {

using android::BAD_VALUE;
using android::IBinder;
using android::IPCThreadState;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using android::Vector;

NotifierRegistry<VolumeNotifierTraits>& VolumeNotifierTraits::registryOf(BnVolumeManager& manager) {
    return manager.mNotifiers;
}

BnVolumeManager::BnVolumeManager(const sp<VolumeManagerImplItf>& impl)
    : mNotifierProxy(new VolumeManagerNotifierProxy()), mNotifiers(mLock, mNotifierProxy), mImpl(impl) {
    SERVICE_ASSERT_IN(mImpl != nullptr, "impl.get()", "IVolumeManager",
                      "volume::BnVolumeManager::BnVolumeManager("
                      "const android::sp<volume::VolumeManagerImplItf>&)");
    mImpl->setNotifier(mNotifierProxy);
}

int BnVolumeManager::startup() {
    return mImpl->startup();
}

int BnVolumeManager::shutdown() {
    return mImpl->shutdown();
}

int BnVolumeManager::addNotifier(const sp<IBinder>& notifier) {
    return mNotifiers.add(this, notifier, IPCThreadState::self()->getCallingPid());
}

int BnVolumeManager::removeNotifier(const sp<IBinder>& notifier) {
    return mNotifiers.remove(notifier, IPCThreadState::self()->getCallingPid());
}

int BnVolumeManager::getVolumeCount() {
    return mImpl->getVolumeCount();
}

sp<VolumeItf> BnVolumeManager::queryVolume(int index) {
    const sp<VolumeItf> volume = mImpl->queryVolume(index);
    return volume != nullptr ? volume : new Volume();
}

status_t BnVolumeManager::dump(int fd, const Vector<String16>& args) {
    return dumpService(fd, args, getInterfaceDescriptor(), mNotifiers, *mImpl);
}

status_t BnVolumeManager::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    return answerRequest(
        this, code >= kAddNotifier && code <= kQueryVolume, data, reply,
        [&](Parcel& answer) { return BBinder::onTransact(code, data, &answer, flags); },
        [&](Parcel& answer) { return dispatch(code, data, answer); });
}

status_t BnVolumeManager::dispatch(uint32_t code, const Parcel& data, Parcel& reply) {
    switch (code) {
        case kAddNotifier:
            return reply.writeInt32(addNotifier(data.readStrongBinder()));
        case kRemoveNotifier:
            return reply.writeInt32(removeNotifier(data.readStrongBinder()));
        case kStartup:
            return reply.writeInt32(startup());
        case kShutdown:
            return reply.writeInt32(shutdown());
        case kGetVolumeCount:
            return reply.writeInt32(getVolumeCount());
        default:
            return replyVolume(data, reply);
    }
}

status_t BnVolumeManager::replyVolume(const Parcel& data, Parcel& reply) {
    int32_t index = 0;
    if (data.readInt32(&index) != OK) {
        return BAD_VALUE;
    }
    return writeVolume(reply, *queryVolume(index));
}

}  // namespace volume
