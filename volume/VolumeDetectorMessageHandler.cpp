// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "VolumeDetector"

#include "volume/VolumeDetectorMessageHandler.h"

#include <log/log.h>

namespace volume {

void VolumeDetectorMessageHandler::handleMessage(const android::Message& message) {
    switch (message.what) {
        case VolumeDetectorImpl::kMessageVolumesChanged:
            mDetector->reportVolumes();
            break;
        case VolumeDetectorImpl::kMessageDisksChanged:
            mDetector->reportDisks();
            break;
        default:
            ALOGW("unknown message[%d]\n", message.what);
            break;
    }
}

}  // namespace volume
