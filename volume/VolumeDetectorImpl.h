// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * The volume detector's record: its lists and what is done to them. Private to the detector, its companions
 * and its tests.
 */

#include <sys/types.h>
#include <utils/KeyedVector.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>
#include <utils/SortedVector.h>
#include <utils/String8.h>
#include <utils/Vector.h>

#include <cstdint>

#include "common/FileSystemObserver.h"
#include "common/MessageQueue.h"
#include "common/UeventObserver.h"
#include "volume/BlockProbe.h"
#include "volume/Regex.h"
#include "volume/Volume.h"
#include "volume/VolumeDetectorNotifierItf.h"
#include "volume/VolumeMbr.h"
#include "volume/VolumeMounter.h"

namespace volume {

/**
 * What a VolumeDetector shares with its companions, which hold it by reference.
 *
 * ## Threads
 *
 * Disks are added and removed on the thread of the file-system observer and on the uevent thread, one at a
 * time (mOperationLock), and without the lists locked: a disk may take its time. The lists change at once,
 * and a message to the queue has the queue thread compare them with what the notifier was told. However much
 * changed meanwhile, that is one pass.
 *
 * ## What the notifier sees
 *
 * A volume is attached once and detached once; one that was probed again is detached, then attached. One that
 * goes while the pass that found it runs is attached by this pass and detached by the next. A volume that
 * came and went between two passes is not reported.
 */
class VolumeDetectorImpl : public android::RefBase {
  public:
    /** Messages of the queue. */
    enum Message : uint32_t {
        kMessageVolumesChanged = 3,
        kMessageDisksChanged = 4,
    };

    VolumeDetectorImpl() = default;

    /** See VolumeDetector. */
    bool start();

    /** See VolumeDetector. */
    void stop();

    /** Any thread. */
    void setNotifier(const android::sp<VolumeDetectorNotifierItf>& notifier) EXCLUDES(mLock);

    /** Breaks the cycle between the record and its queue; before destruction only. */
    void dropQueue() EXCLUDES(mLock);

    /** Whether the detector runs: between start() and stop(). Any thread. */
    bool isListening() const EXCLUDES(mLock);

    /**
     * Looks at the device at @p path, mounts it if it is a volume, and lists it. Observer or uevent thread.
     *
     * @param name    its name in "/dev", plain
     * @param orFake  whether a device that cannot be read is listed all the same, as a placeholder
     * @return 0, or -1 when it cannot be read
     */
    int addDevice(const android::String8& path, const android::String8& name, bool orFake)
        EXCLUDES(mOperationLock);

    /** Unmounts the volume @p name and drops it, and the disk of that name too. Observer thread. */
    void removeDevice(const android::String8& name) EXCLUDES(mOperationLock);

    /** As removeDevice(), of the volume only. Uevent thread. */
    void removeVolume(const android::String8& name) EXCLUDES(mOperationLock);

    /** Tells the notifier what changed among the volumes. Queue thread. */
    void reportVolumes() EXCLUDES(mLock);

    /** Notes what changed among the disks; nobody is told. Queue thread. */
    void reportDisks() EXCLUDES(mLock);

    /** Lists what @p pr found on a device as a volume, mounted if it can be. Aborts when @p pr is null. */
    void addVolume(const BlockProbe* pr, const android::String8& path, const android::String8& name)
        REQUIRES(mOperationLock);

    /** Lists what @p pr found on a device as a disk. Aborts when @p pr is null. */
    void addDisk(const BlockProbe* pr, const android::String8& path, const android::String8& name)
        REQUIRES(mOperationLock);

    /**
     * Keeps one device's arrival and departure, and the mounts, in order. Taken inside the uevent observer's
     * lock and before mLock; held while disks are read, mounted and unmounted.
     */
    android::Mutex mOperationLock;

    /** Guards the lists, the notifier and whether messages may be posted; held for list access only. */
    mutable android::Mutex mLock;

    /** Disks by device name. */
    android::KeyedVector<android::String8, android::sp<VolumeMbr>> mMbrs GUARDED_BY(mLock);
    /** Names of the disks that were reported. */
    android::SortedVector<android::String8> mReportedMbrs GUARDED_BY(mLock);
    /** Volumes by device name. */
    android::KeyedVector<android::String8, android::sp<Volume>> mVolumes GUARDED_BY(mLock);
    /** What the notifier was told of, by name: the record that it was given. */
    android::KeyedVector<android::String8, android::sp<Volume>> mReportedVolumes GUARDED_BY(mLock);
    /** Set once by the detector's constructor; dropQueue() clears it. */
    android::sp<MessageQueue> mMessageQueue;
    android::sp<VolumeDetectorNotifierItf> mNotifier GUARDED_BY(mLock);
    // Set by the detector's constructor, cleared by its destructor.
    android::sp<UeventObserver> mUeventObserver;
    android::sp<UeventObserverNotifier> mUeventNotifier;
    android::sp<FileSystemObserver> mFileSystemObserver;
    android::sp<Regex> mSCSIDeviceRegex;
    android::sp<Regex> mMMCDeviceRegex;

  protected:
    ~VolumeDetectorImpl() override = default;

  private:
    /** Tells one node in /dev from a later one of the same name. */
    struct NodeIdentity {
        dev_t device = 0;
        ino_t inode = 0;
        dev_t disk = 0;

        bool operator==(const NodeIdentity& other) const {
            return device == other.device && inode == other.inode && disk == other.disk;
        }
    };

    static NodeIdentity nodeAt(const android::String8& path);

    int probe(const android::String8& path, const android::String8& name) REQUIRES(mOperationLock);
    void addFakeVolume(const android::String8& path, const android::String8& name) REQUIRES(mOperationLock);
    void storeVolume(const android::sp<Volume>& volume) REQUIRES(mOperationLock);
    void chooseDisk(const android::sp<Volume>& volume) REQUIRES(mOperationLock);
    void forgetNode(const android::String8& name) REQUIRES(mOperationLock);
    void forgetVolume(const android::String8& name) REQUIRES(mOperationLock);
    void forgetExchangedNodes() EXCLUDES(mOperationLock);
    ssize_t indexOfDiskLocked(const android::String8& volumeName) const REQUIRES(mLock);
    android::sp<Volume> takeVolumeLocked(const android::String8& name) REQUIRES(mLock);
    void post(Message message) EXCLUDES(mLock);

    void reportDetached(const android::String8& name) EXCLUDES(mLock);
    void reportAttached(const android::sp<Volume>& volume) EXCLUDES(mLock);

    VolumeMounter mMounter GUARDED_BY(mOperationLock);
    /** The nodes that were looked at, by device name, of what is listed. */
    android::KeyedVector<android::String8, NodeIdentity> mNodes GUARDED_BY(mOperationLock);
    bool mListening GUARDED_BY(mLock) = false;
};

}  // namespace volume
