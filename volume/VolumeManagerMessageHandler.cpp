// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "VolumeManagerImpl"

#include "volume/VolumeManagerMessageHandler.h"

#include <log/log.h>

#include "volume/VolumeManagerImpl.h"

namespace volume {

void VolumeManagerMessageHandler::handleMessage(const android::Message& message) {
    ALOGI("message [%d]", message.what);
    const android::sp<VolumeManagerImpl> manager = mManager.promote();
}

}  // namespace volume
