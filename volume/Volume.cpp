// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "VolumeDetector"

#include "volume/Volume.h"

#include <log/log.h>

#include "volume/PrintableText.h"

namespace volume {

using android::Mutex;
using android::String8;

namespace {

/** Never destroyed: threads read it until the process ends. */
const String8& unknownText() {
    static const String8* const sText = new String8("unknown");
    return *sText;
}

}  // namespace

Volume::Volume()
    : Volume(unknownText(), unknownText(), unknownText(), unknownText(), unknownText(), unknownText(),
             unknownText(), unknownText()) {}

Volume::Volume(const String8& name, const String8& uuid, const String8& label, const String8& format,
               const String8& accessPath, const String8& devicePath, const String8& mountPath,
               const String8& mbrPath)
    : mName(name),
      mUuid(uuid),
      mLabel(label),
      mFormat(format),
      mAccessPath(accessPath),
      mDevicePath(devicePath),
      mMountPath(mountPath),
      mMbr(new VolumeMbr(mbrPath)) {}

const String8& Volume::getUuid() const {
    String8 uuid = mUuid;
    if (!mPartitionUuid.isEmpty()) {
        uuid = mPartitionUuid + "-" + mUuid;
    }
    Mutex::Autolock lock(mFullUuidLock);
    // Written again only if it changed: callers on other threads read the reference they were given.
    if (mFullUuid != uuid) {
        mFullUuid = uuid;
    }
    return mFullUuid;
}

const String8& Volume::getLabel() const {
    return mPartitionLabel.isEmpty() ? mLabel : mPartitionLabel;
}

const String8& Volume::getMountPath() const {
    return mMountPathReset.load(std::memory_order_acquire) ? unknownText() : mMountPath;
}

const String8& Volume::getMbrPath() const {
    return mMbr->getPath();
}

void Volume::dump() const {
    ALOGI("----dump volume start----");
    ALOGI("name             [%s]", mName.string());
    ALOGI("device path      [%s]", mDevicePath.string());
    ALOGI("uuid             [%s]", printableText(mUuid.string()).string());
    ALOGI("label            [%s]", printableText(mLabel.string()).string());
    ALOGI("partition uuid   [%s]", printableText(mPartitionUuid.string()).string());
    ALOGI("partition label  [%s]", printableText(mPartitionLabel.string()).string());
    ALOGI("format           [%s]", printableText(mFormat.string()).string());
    ALOGI("mount path       [%s]", getMountPath().string());
    ALOGI("access path      [%s]", mAccessPath.string());
    ALOGI("----dump volume end----");
}

}  // namespace volume
