// SPDX-License-Identifier: Apache-2.0
#include "volume/VolumeDetector.h"

#include "common/Assert.h"
#include "volume/DevObserverNotifier.h"
#include "volume/DeviceNames.h"
#include "volume/VolumeDetectorImpl.h"
#include "volume/VolumeDetectorMessageHandler.h"
#include "volume/VolumeUeventObserverNotifierImpl.h"

namespace volume {

using android::Mutex;
using android::sp;
using android::String8;

namespace {

constexpr char kFile[] = "VolumeDetector";
constexpr char kConstructor[] = "volume::VolumeDetector::VolumeDetector(android::sp<UeventObserver>&)";
constexpr int kQueueTimeoutMillis = 100;

}  // namespace

VolumeDetector::VolumeDetector(const sp<UeventObserver>& observer) : mDetector(new VolumeDetectorImpl()) {
    VolumeDetectorImpl* const detector = mDetector.get();
    SERVICE_ASSERT_AT(detector, "detector", kFile, 807, kConstructor);
    detector->mSCSIDeviceRegex = new Regex(sSCSIDeviceRegex);
    SERVICE_ASSERT_AT(detector->mSCSIDeviceRegex.get(), "detector->mSCSIDeviceRegex.get()", kFile, 810,
                      kConstructor);
    detector->mMMCDeviceRegex = new Regex(sMMCDeviceRegex);
    SERVICE_ASSERT_AT(detector->mMMCDeviceRegex.get(), "detector->mMMCDeviceRegex.get()", kFile, 813,
                      kConstructor);
    detector->mMessageQueue = new MessageQueue(new VolumeDetectorMessageHandler(mDetector),
                                               kQueueTimeoutMillis, "VolumeDetectorQueue");
    SERVICE_ASSERT_AT(detector->mMessageQueue.get(), "detector->mMessageQueue.get()", kFile, 817,
                      kConstructor);
    SERVICE_ASSERT_AT(observer.get(), "observer.get()", kFile, 819, kConstructor);
    detector->mUeventObserver = observer;
    detector->mUeventNotifier = new VolumeUeventObserverNotifierImpl(mDetector);
    detector->mUeventObserver->registerNotifier(detector->mUeventNotifier);
    detector->mFileSystemObserver = new FileSystemObserver();
    detector->mFileSystemObserver->add(String8(sDeviceDir), new DevObserverNotifier(mDetector));
}

VolumeDetector::~VolumeDetector() {
    VolumeDetectorImpl* const detector = mDetector.get();
    SERVICE_ASSERT_AT(detector, "detector", kFile, 836, "virtual volume::VolumeDetector::~VolumeDetector()");
    // Waits for a uevent in progress. After this and stop() no thread but, at most, a queue thread that is
    // held by its notifier knows the record; it keeps it by a reference of its own.
    detector->mUeventObserver->unregisterNotifier(detector->mUeventNotifier);
    detector->stop();
    detector->setNotifier(nullptr);
    detector->mUeventNotifier.clear();
    detector->mSCSIDeviceRegex.clear();
    detector->mMMCDeviceRegex.clear();
    detector->dropQueue();
    detector->mFileSystemObserver.clear();
    detector->mUeventObserver.clear();
}

void VolumeDetector::setNotifier(const sp<VolumeDetectorNotifierItf>& notifier) {
    SERVICE_ASSERT_IN(mDetector.get(), "detector", kFile,
                      "void volume::VolumeDetector::setNotifier("
                      "const android::sp<volume::VolumeDetectorNotifierItf>&)");
    mDetector->setNotifier(notifier);
}

bool VolumeDetector::start() {
    SERVICE_ASSERT_AT(mDetector.get(), "detector", kFile, 867, "void volume::VolumeDetector::start()");
    return mDetector->start();
}

void VolumeDetector::stop() {
    SERVICE_ASSERT_IN(mDetector.get(), "detector", kFile, "void volume::VolumeDetector::stop()");
    mDetector->stop();
}

size_t VolumeDetector::count() const {
    SERVICE_ASSERT_AT(mDetector.get(), "detector", kFile, 889, "size_t volume::VolumeDetector::count()");
    Mutex::Autolock lock(mDetector->mLock);
    return mDetector->mVolumes.size();
}

sp<Volume> VolumeDetector::query(size_t index) const {
    SERVICE_ASSERT_AT(mDetector.get(), "detector", kFile, 900,
                      "android::sp<volume::Volume> volume::VolumeDetector::query(size_t)");
    {
        Mutex::Autolock lock(mDetector->mLock);
        if (index < mDetector->mVolumes.size()) {
            return mDetector->mVolumes.valueAt(index);
        }
    }
    return new Volume();
}

}  // namespace volume
