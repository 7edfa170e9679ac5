// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/Mutex.h>

#include <cstdint>

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
    /** Logged as its number. */
    enum State : int32_t {
        kShutDown = 0,
        kStarted = 1,
    };

    ~VolumeManagerImpl() override;

    int32_t state() const;
    void setState(int32_t state);

  private:
    friend class VolumeManagerDetectorNotifier;

    bool startThreads();

    /** Written once before clients can register, read without a lock. */
    android::sp<VolumeManagerNotifierItf> mNotifier;
    /**
     * Serialises startup() and shutdown(). Taken before mLock and, unlike it, held while threads are started
     * and joined.
     */
    android::Mutex mTransitionLock;
    /** Guards mState. */
    mutable android::Mutex mLock;
    /** Runs while started; nothing posts to it. */
    android::sp<MessageQueue> mMessageQueue;
    android::sp<VolumeDetector> mDetector;
    int32_t mState GUARDED_BY(mLock) = kShutDown;
};

}  // namespace volume
