// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "VolumeDetector"

#include "volume/VolumeMbr.h"

#include <log/log.h>

#include "volume/PrintableText.h"

namespace volume {

using android::String8;

VolumeMbr::VolumeMbr() : VolumeMbr(String8("unknown")) {}

VolumeMbr::VolumeMbr(const String8& path) : mPath(path) {}

void VolumeMbr::dump() const {
    ALOGI("----dump MBR start----");
    ALOGI("mbr path         [%s]", mPath.string());
    ALOGI("uuid             [%s]", printableText(mUuid.string()).string());
    ALOGI("type             [%s]", printableText(mType.string()).string());
    ALOGI("volume count     [%d]", mVolumeCount);
    ALOGI("----dump MBR end----");
}

}  // namespace volume
