// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "VolumeDetector"

#include "volume/VolumeDetectorImpl.h"

#include <log/log.h>
#include <sys/stat.h>

#include <cstring>

#include "common/Assert.h"
#include "common/QueueStart.h"
#include "volume/DeviceNames.h"
#include "volume/PrintableText.h"

namespace volume {

using android::Mutex;
using android::sp;
using android::String8;
using android::Vector;

namespace {

constexpr int32_t kMarked = 1;
constexpr int32_t kUnmarked = 0;

/** A finding's text for the log. */
String8 shown(const std::optional<String8>& text) {
    return text.has_value() ? printableText(text->string()) : String8("NULL");
}

/** A copy for one volume, which nothing changes any more. */
sp<VolumeMbr> copyOf(const VolumeMbr& disk) {
    const sp<VolumeMbr> copy = new VolumeMbr(disk.getPath());
    copy->setUuid(disk.getUuid());
    copy->setType(disk.getType());
    copy->setVolumeCount(disk.getVolumeCount());
    return copy;
}

void dump(const sp<Volume>& volume) {
    if (volume->getMbr() != nullptr) {
        volume->getMbr()->dump();
        volume->dump();
    }
}

}  // namespace

bool VolumeDetectorImpl::start() {
    if (isListening()) {
        return true;
    }
    if (!startQueue(mMessageQueue)) {
        mMessageQueue->stop();
        return false;
    }
    {
        Mutex::Autolock lock(mLock);
        mListening = true;
    }
    mFileSystemObserver->start();
    // Watched again from here on: what left before this moment is noticed now, what leaves after it is heard.
    forgetExchangedNodes();
    // What changed while no message could be posted.
    post(kMessageDisksChanged);
    post(kMessageVolumesChanged);
    return true;
}

void VolumeDetectorImpl::stop() {
    {
        Mutex::Autolock lock(mLock);
        mListening = false;
    }
    mFileSystemObserver->stop();
    mMessageQueue->stop();
}

void VolumeDetectorImpl::setNotifier(const sp<VolumeDetectorNotifierItf>& notifier) {
    // The former one may be destroyed by this: not under the lock.
    sp<VolumeDetectorNotifierItf> former = notifier;
    Mutex::Autolock lock(mLock);
    std::swap(mNotifier, former);
}

void VolumeDetectorImpl::dropQueue() {
    mMessageQueue.clear();
}

bool VolumeDetectorImpl::isListening() const {
    Mutex::Autolock lock(mLock);
    return mListening;
}

int VolumeDetectorImpl::addDevice(const String8& path, const String8& name, bool orFake) {
    Mutex::Autolock operation(mOperationLock);
    const NodeIdentity node = nodeAt(path);
    const ssize_t index = mNodes.indexOfKey(name);
    if (index >= 0 && !(mNodes.valueAt(static_cast<size_t>(index)) == node)) {
        // Its departure was never heard of. The same node probed again keeps its mount.
        forgetNode(name);
    }
    mNodes.add(name, node);

    const int result = probe(path, name);
    if (result != 0 && orFake) {
        ALOGW("unknown device (path[%s] name[%s]) add, make a fake volume", path.string(), name.string());
        addFakeVolume(path, name);
    }
    return result;
}

void VolumeDetectorImpl::removeDevice(const String8& name) {
    Mutex::Autolock operation(mOperationLock);
    forgetNode(name);
}

void VolumeDetectorImpl::removeVolume(const String8& name) {
    Mutex::Autolock operation(mOperationLock);
    forgetVolume(name);
}

VolumeDetectorImpl::NodeIdentity VolumeDetectorImpl::nodeAt(const String8& path) {
    struct stat status = {};
    NodeIdentity node;
    if (stat(path.string(), &status) == 0) {
        node.device = status.st_dev;
        node.inode = status.st_ino;
        node.disk = status.st_rdev;
    }
    return node;
}

int VolumeDetectorImpl::probe(const String8& path, const String8& name) {
    BlockProbe found;
    if (found.read(path) != 0) {
        return -1;
    }
    if (found.isDisk()) {
        addDisk(&found, path, name);
    } else {
        addVolume(&found, path, name);
    }
    return 0;
}

void VolumeDetectorImpl::addVolume(const BlockProbe* pr, const String8& path, const String8& name) {
    SERVICE_ASSERT_AT(pr, "pr", "VolumeDetector", 272, __PRETTY_FUNCTION__);
    ALOGI("volume add path[%s] name[%s]", path.string(), name.string());
    const sp<Volume> volume = new Volume();
    volume->setName(name);
    volume->setDevicePath(path);
    for (const ProbedValue& found : pr->values()) {
        ALOGI("Partition : name[%s]: value[%s]", shown(found.name).string(), shown(found.value).string());
        const String8 value = found.value.value_or(String8());
        if (found.name == String8("LABEL")) {
            volume->setLabel(value);
        } else if (found.name == String8("UUID")) {
            volume->setUuid(value);
        } else if (found.name == String8("TYPE")) {
            volume->setFormat(value);
        } else if (found.name == String8("PART_ENTRY_UUID")) {
            volume->setPartitionUuid(value);
        } else if (found.name == String8("PART_ENTRY_NAME")) {
            volume->setPartitionLabel(value);
        }
    }
    chooseDisk(volume);
    mMounter.mountVolume(volume);
    storeVolume(volume);
}

/** The disk that a volume shows is a copy: the listed one goes on changing. */
void VolumeDetectorImpl::chooseDisk(const sp<Volume>& volume) {
    const String8& name = volume->getName();
    Mutex::Autolock lock(mLock);
    const ssize_t index = indexOfDiskLocked(name);
    if (index < 0) {
        ALOGW("volume [%s] has no mbr", name.string());
        return;
    }
    const String8& diskName = mMbrs.keyAt(static_cast<size_t>(index));
    const sp<VolumeMbr>& disk = mMbrs.valueAt(static_cast<size_t>(index));
    ALOGI("volume device mbr[%s] name[%s]", diskName.string(), name.string());
    // One that is probed again counts once.
    const ssize_t listed = mVolumes.indexOfKey(name);
    if (listed < 0 || mVolumes.valueAt(static_cast<size_t>(listed))->getMbrPath() != disk->getPath()) {
        disk->setVolumeCount(disk->getVolumeCount() + 1);
    }
    volume->setMbr(copyOf(*disk));
}

void VolumeDetectorImpl::addDisk(const BlockProbe* pr, const String8& path, const String8& name) {
    SERVICE_ASSERT_AT(pr, "pr", "VolumeDetector", 343, __PRETTY_FUNCTION__);
    ALOGI("volume mbr add path[%s] name[%s]", path.string(), name.string());
    const sp<VolumeMbr> disk = new VolumeMbr(path);
    for (const ProbedValue& found : pr->values()) {
        ALOGI("MBR : name[%s]: value[%s]", shown(found.name).string(), shown(found.value).string());
        const String8 value = found.value.value_or(String8());
        if (found.name == String8("PTUUID")) {
            disk->setUuid(value);
        } else if (found.name == String8("PTTYPE")) {
            disk->setType(value);
        }
    }
    // What was a volume, or could not be read, until it got its partition table.
    forgetVolume(name);
    {
        Mutex::Autolock lock(mLock);
        const ssize_t index = mMbrs.indexOfKey(name);
        if (index >= 0 && mMbrs.valueAt(static_cast<size_t>(index))->getPath() == path) {
            disk->setVolumeCount(mMbrs.valueAt(static_cast<size_t>(index))->getVolumeCount());
        }
        disk->setMark(kMarked);
        mMbrs.add(name, disk);
    }
    post(kMessageDisksChanged);
}

void VolumeDetectorImpl::addFakeVolume(const String8& path, const String8& name) {
    const sp<VolumeMbr> disk = new VolumeMbr();
    const sp<Volume> volume = new Volume();
    volume->setName(name);
    volume->setDevicePath(path);
    {
        Mutex::Autolock lock(mLock);
        mMbrs.add(name, disk);
    }
    storeVolume(volume);
}

void VolumeDetectorImpl::storeVolume(const sp<Volume>& volume) {
    {
        Mutex::Autolock lock(mLock);
        volume->setMark(kMarked);
        mVolumes.add(volume->getName(), volume);
    }
    post(kMessageVolumesChanged);
}

void VolumeDetectorImpl::forgetNode(const String8& name) {
    mNodes.removeItem(name);
    forgetVolume(name);
    bool wasDisk = false;
    {
        Mutex::Autolock lock(mLock);
        wasDisk = mMbrs.removeItem(name) >= 0;
    }
    if (wasDisk) {
        post(kMessageDisksChanged);
    }
}

void VolumeDetectorImpl::forgetVolume(const String8& name) {
    sp<Volume> volume;
    {
        Mutex::Autolock lock(mLock);
        volume = takeVolumeLocked(name);
    }
    if (volume == nullptr) {
        return;
    }
    if (mMounter.unmountVolume(name)) {
        volume->resetMountPath();
    }
    post(kMessageVolumesChanged);
}

void VolumeDetectorImpl::forgetExchangedNodes() {
    Mutex::Autolock operation(mOperationLock);
    Vector<String8> exchanged;
    for (size_t i = 0; i < mNodes.size(); ++i) {
        if (!(mNodes.valueAt(i) == nodeAt(joinPath(sDeviceDir, mNodes.keyAt(i))))) {
            exchanged.add(mNodes.keyAt(i));
        }
    }
    for (const String8& name : exchanged) {
        forgetNode(name);
    }
}

ssize_t VolumeDetectorImpl::indexOfDiskLocked(const String8& volumeName) const {
    for (size_t i = 0; i < mMbrs.size(); ++i) {
        const String8& diskName = mMbrs.keyAt(i);
        if (strncmp(volumeName.string(), diskName.string(), diskName.length()) == 0) {
            return static_cast<ssize_t>(i);
        }
    }
    return -1;
}

/** Null when there is none of that name. */
sp<Volume> VolumeDetectorImpl::takeVolumeLocked(const String8& name) {
    const ssize_t index = mVolumes.indexOfKey(name);
    if (index < 0) {
        return nullptr;
    }
    const sp<Volume> volume = mVolumes.valueAt(static_cast<size_t>(index));
    mVolumes.removeItemsAt(static_cast<size_t>(index));
    const ssize_t diskIndex = indexOfDiskLocked(name);
    if (diskIndex >= 0) {
        const sp<VolumeMbr>& disk = mMbrs.valueAt(static_cast<size_t>(diskIndex));
        if (disk->getPath() == volume->getMbrPath() && disk->getVolumeCount() > 0) {
            disk->setVolumeCount(disk->getVolumeCount() - 1);
        }
    }
    return volume;
}

/** Also makes of several changes one pass. */
void VolumeDetectorImpl::post(Message message) {
    // Under the lock: a queue that stops has no looper to post to.
    Mutex::Autolock lock(mLock);
    if (mListening) {
        mMessageQueue->removeMessage(message);
        mMessageQueue->sendMessage(message);
    }
}

void VolumeDetectorImpl::reportVolumes() {
    Vector<String8> detached;
    Vector<sp<Volume>> attached;
    {
        Mutex::Autolock lock(mLock);
        for (size_t i = 0; i < mReportedVolumes.size(); ++i) {
            const String8& name = mReportedVolumes.keyAt(i);
            const ssize_t index = mVolumes.indexOfKey(name);
            if (index < 0 || mVolumes.valueAt(static_cast<size_t>(index))->getMark() != kUnmarked) {
                detached.add(name);
            }
        }
        for (size_t i = 0; i < mVolumes.size(); ++i) {
            const sp<Volume>& volume = mVolumes.valueAt(i);
            if (volume->getMark() != kUnmarked || mReportedVolumes.indexOfKey(mVolumes.keyAt(i)) < 0) {
                volume->setMark(kUnmarked);
                attached.add(volume);
            }
        }
    }
    for (const String8& name : detached) {
        reportDetached(name);
    }
    for (const sp<Volume>& volume : attached) {
        reportAttached(volume);
    }
}

void VolumeDetectorImpl::reportDetached(const String8& name) {
    sp<Volume> volume;
    sp<VolumeDetectorNotifierItf> notifier;
    {
        Mutex::Autolock lock(mLock);
        const ssize_t index = mReportedVolumes.indexOfKey(name);
        if (index < 0) {
            return;
        }
        volume = mReportedVolumes.valueAt(static_cast<size_t>(index));
        mReportedVolumes.removeItemsAt(static_cast<size_t>(index));
        notifier = mNotifier;
    }
    ALOGI("notify dettach\n");
    if (notifier != nullptr) {
        notifier->onVolumeDetached(volume);
    }
    dump(volume);
}

void VolumeDetectorImpl::reportAttached(const sp<Volume>& volume) {
    sp<VolumeDetectorNotifierItf> notifier;
    {
        Mutex::Autolock lock(mLock);
        // Told also when it left, or was replaced, while the ones before it were: who found it in the list
        // meanwhile hears of its end from the next pass, and of nothing that is not reported.
        mReportedVolumes.add(volume->getName(), volume);
        notifier = mNotifier;
    }
    ALOGI("notify attach\n");
    if (notifier != nullptr) {
        notifier->onVolumeAttached(volume);
    }
    dump(volume);
}

void VolumeDetectorImpl::reportDisks() {
    Vector<String8> detached;
    Vector<sp<VolumeMbr>> attached;
    {
        Mutex::Autolock lock(mLock);
        for (const String8& name : mReportedMbrs) {
            const ssize_t index = mMbrs.indexOfKey(name);
            if (index < 0 || mMbrs.valueAt(static_cast<size_t>(index))->getMark() != kUnmarked) {
                detached.add(name);
            }
        }
        for (const String8& name : detached) {
            mReportedMbrs.remove(name);
        }
        for (size_t i = 0; i < mMbrs.size(); ++i) {
            const sp<VolumeMbr>& disk = mMbrs.valueAt(i);
            if (disk->getMark() != kUnmarked || mReportedMbrs.indexOf(mMbrs.keyAt(i)) < 0) {
                disk->setMark(kUnmarked);
                mReportedMbrs.add(mMbrs.keyAt(i));
                attached.add(copyOf(*disk));
            }
        }
    }
    for (size_t i = 0; i < detached.size(); ++i) {
        ALOGI("notify mbr volume dettach\n");
    }
    for (const sp<VolumeMbr>& disk : attached) {
        ALOGI("notify mbr volume attach\n");
        disk->dump();
    }
}

}  // namespace volume
