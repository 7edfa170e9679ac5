// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "VolumeDetector"

#include "volume/DevObserverNotifier.h"

#include <log/log.h>

#include "common/Assert.h"
#include "volume/DeviceNames.h"
#include "volume/PrintableText.h"

namespace volume {

using android::sp;
using android::String8;

DevObserverNotifier::DevObserverNotifier(const sp<VolumeDetectorImpl>& detector)
    : mDetector(detector),
      mSCSIDeviceRegex(detector != nullptr ? detector->mSCSIDeviceRegex : nullptr),
      mMMCDeviceRegex(detector != nullptr ? detector->mMMCDeviceRegex : nullptr) {
    SERVICE_ASSERT_AT(mDetector.get(), "mDetector", "VolumeDetector", 390, __PRETTY_FUNCTION__);
    SERVICE_ASSERT_AT(mSCSIDeviceRegex.get(), "mSCSIDeviceRegex.get()", "VolumeDetector", 392,
                      __PRETTY_FUNCTION__);
    SERVICE_ASSERT_AT(mMMCDeviceRegex.get(), "mMMCDeviceRegex.get()", "VolumeDetector", 394,
                      __PRETTY_FUNCTION__);
}

bool DevObserverNotifier::findName(const String8& path, String8* name) const {
    size_t start = 0;
    size_t end = 0;
    if (!findDeviceName(*mSCSIDeviceRegex, *mMMCDeviceRegex, path.string(), &start, &end)) {
        return false;
    }
    *name = String8(path.string() + start);
    if (!isPlainName(name->string())) {
        ALOGW("device path[%s] refused for its name", printableText(path.string()).string());
        return false;
    }
    return true;
}

void DevObserverNotifier::onAdd(const String8& path) {
    String8 name;
    if (findName(path, &name)) {
        ALOGI("device add path[%s] name[%s]", path.string(), name.string());
        mDetector->addDevice(path, name, /*orFake=*/true);
    }
}

void DevObserverNotifier::onRemove(const String8& path) {
    String8 name;
    if (findName(path, &name)) {
        ALOGI("volume device remove path[%s] name[%s]", path.string(), name.string());
        mDetector->removeDevice(name);
    }
}

}  // namespace volume
