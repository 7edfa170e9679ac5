// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "common/ManagerState.h"
#include "common/MessageQueue.h"
#include "common/UeventObserver.h"
#include "volume/VolumeDetector.h"
#include "volume/VolumeManagerImplItf.h"

namespace volume {

/**
 * The volume manager's core: starts and stops the volume detector, answers from its list, and tells its
 * notifier, on the detector's queue thread, of every volume that comes or goes.
 *
 * What the detector finds while there is no notifier is never announced: set it before startup().
 */
class VolumeManagerImpl : public VolumeManagerImplItf {
  public:
    /** Makes the detector on @p observer, which must not be null; starts nothing. */
    explicit VolumeManagerImpl(const android::sp<UeventObserver>& observer);

    int startup() override;

    /**
     * @copydoc VolumeManagerItf::shutdown
     *
     * Waits for the probe or mount in progress, and for a notification in progress within the bound of
     * MessageQueue::stop(); it may be called from inside a notification.
     */
    int shutdown() override;

    int setNotifier(const android::sp<VolumeManagerNotifierItf>& notifier) override;
    int getVolumeCount() override;
    android::sp<VolumeItf> queryVolume(int index) override;
    int dump(const android::Vector<android::String16>& args, android::String8& result) override;

  protected:
    ~VolumeManagerImpl() override;

    int32_t state() const { return mState.get(); }
    void setState(int32_t state) { mState.set(state); }

  private:
    friend class VolumeManagerDetectorNotifier;

    bool startThreads();

    /** Written once before clients can register, read without a lock. */
    android::sp<VolumeManagerNotifierItf> mNotifier;
    /** Runs while started; nothing posts to it. */
    android::sp<MessageQueue> mMessageQueue;
    android::sp<VolumeDetector> mDetector;
    ManagerState mState;
};

}  // namespace volume
