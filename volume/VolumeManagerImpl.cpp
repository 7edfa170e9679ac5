// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "VolumeManagerImpl"

#include "volume/VolumeManagerImpl.h"

#include <log/log.h>

#include "common/QueueStart.h"
#include "volume/VolumeManagerDetectorNotifier.h"
#include "volume/VolumeManagerMessageHandler.h"

namespace volume {

using android::Mutex;
using android::sp;
using android::String16;
using android::String8;
using android::Vector;

namespace {

constexpr int kQueueTimeoutMillis = 100;

}  // namespace

VolumeManagerImpl::VolumeManagerImpl(const sp<UeventObserver>& observer) {
    mMessageQueue =
        new MessageQueue(new VolumeManagerMessageHandler(this), kQueueTimeoutMillis, "VolumeManagerQueue");
    mDetector = new VolumeDetector(observer);
}

VolumeManagerImpl::~VolumeManagerImpl() {
    if (mState == kStarted) {
        // Threads that run on would keep the queues alive for ever.
        mDetector->stop();
        mMessageQueue->stop();
    }
    mDetector.clear();
    mMessageQueue.clear();
    mNotifier.clear();
}

int VolumeManagerImpl::startup() {
    Mutex::Autolock transition(mTransitionLock);
    const int32_t current = state();
    switch (current) {
        case kShutDown:
            if (startThreads()) {
                setState(kStarted);
            }
            break;
        case kStarted:
            ALOGW("already startup, no need re-startup");
            break;
        default:
            ALOGE("unknown state[%d], why??", current);
            break;
    }
    return 0;
}

int VolumeManagerImpl::shutdown() {
    Mutex::Autolock transition(mTransitionLock);
    const int32_t current = state();
    switch (current) {
        case kShutDown:
            ALOGW("already shutdown, no need re-shutdown");
            break;
        case kStarted:
            mDetector->stop();
            mMessageQueue->stop();
            setState(kShutDown);
            break;
        default:
            ALOGE("unknown state[%d], why??", current);
            break;
    }
    return 0;
}

int VolumeManagerImpl::setNotifier(const sp<VolumeManagerNotifierItf>& notifier) {
    mNotifier = notifier;
    mDetector->setNotifier(new VolumeManagerDetectorNotifier(this));
    return 0;
}

int VolumeManagerImpl::getVolumeCount() {
    return static_cast<int>(mDetector->count());
}

sp<VolumeItf> VolumeManagerImpl::queryVolume(int index) {
    // A negative index is past every end.
    return mDetector->query(static_cast<size_t>(index));
}

int VolumeManagerImpl::dump(const Vector<String16>& /*args*/, String8& result) {
    result.append("dump volume sample\n");
    return 0;
}

int32_t VolumeManagerImpl::state() const {
    Mutex::Autolock lock(mLock);
    return mState;
}

void VolumeManagerImpl::setState(int32_t state) {
    Mutex::Autolock lock(mLock);
    mState = state;
}

/** All or nothing. */
bool VolumeManagerImpl::startThreads() {
    if (startQueue(mMessageQueue) && mDetector->start()) {
        return true;
    }
    mMessageQueue->stop();
    return false;
}

}  // namespace volume
