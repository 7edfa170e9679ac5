// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/NotifierFanOut.h"
#include "volume/VolumeManagerNotifierItf.h"

namespace volume {

/**
 * The volume manager core's one notifier: passes every notification on to the registered clients.
 */
class VolumeManagerNotifierProxy : public NotifierFanOut<VolumeManagerNotifierItf> {
  public:
    VolumeManagerNotifierProxy() : NotifierFanOut("VolumeManagerNotifierProxy") {}

    int32_t onVolumeAdded(const android::sp<VolumeItf>& volume) override {
        return callAll(&VolumeManagerNotifierItf::onVolumeAdded, volume);
    }

    int32_t onVolumeRemoved(const android::sp<VolumeItf>& volume) override {
        return callAll(&VolumeManagerNotifierItf::onVolumeRemoved, volume);
    }

    int32_t onEvent(int32_t event, int32_t value) override {
        return callAll(&VolumeManagerNotifierItf::onEvent, event, value);
    }

  protected:
    ~VolumeManagerNotifierProxy() override = default;
};

}  // namespace volume
