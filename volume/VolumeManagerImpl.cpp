// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "VolumeManagerImpl"

#include "volume/VolumeManagerImpl.h"

#include <log/log.h>

#include "common/QueueStart.h"
#include "volume/VolumeManagerDetectorNotifier.h"
#include "volume/VolumeManagerMessageHandler.h"

namespace volume {

using android::sp;
using android::String16;
using android::String8;
using android::Vector;

namespace {

constexpr int kQueueTimeoutMillis = 100;

}  // namespace

VolumeManagerImpl::VolumeManagerImpl(const sp<UeventObserver>& observer) : mState(LOG_TAG) {
    mMessageQueue =
        new MessageQueue(new VolumeManagerMessageHandler(this), kQueueTimeoutMillis, "VolumeManagerQueue");
    mDetector = new VolumeDetector(observer);
}

VolumeManagerImpl::~VolumeManagerImpl() {
    if (state() == ManagerState::kStarted) {
        // Threads that run on would keep the queues alive for ever.
        mDetector->stop();
        mMessageQueue->stop();
    }
    mDetector.clear();
    mMessageQueue.clear();
    mNotifier.clear();
}

int VolumeManagerImpl::startup() {
    mState.startup([this] { return startThreads(); });
    return 0;
}

int VolumeManagerImpl::shutdown() {
    mState.shutdown([this] {
        mDetector->stop();
        mMessageQueue->stop();
    });
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

/** All or nothing. */
bool VolumeManagerImpl::startThreads() {
    if (startQueue(mMessageQueue) && mDetector->start()) {
        return true;
    }
    mMessageQueue->stop();
    return false;
}

}  // namespace volume
