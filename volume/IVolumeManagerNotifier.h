// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IInterface.h>

#include "volume/VolumeManagerNotifierItf.h"

namespace volume {

/**
 * A client's notifier as the service "VolumeManager" calls it. Clients derive from VolumeManagerNotifierItf
 * and wrap their object in a BnVolumeManagerNotifier.
 */
class IVolumeManagerNotifier : public android::IInterface, public VolumeManagerNotifierItf {
  public:
    DECLARE_META_INTERFACE(VolumeManagerNotifier)

    /** Transaction codes. The values are the wire contract. */
    enum Transaction : uint32_t {
        kOnEvent = 1,
        kOnVolumeAdded = 2,
        kOnVolumeRemoved = 3,
    };

    int32_t onEvent(int32_t event, int32_t value) override = 0;
    int32_t onVolumeAdded(const android::sp<VolumeItf>& volume) override = 0;
    int32_t onVolumeRemoved(const android::sp<VolumeItf>& volume) override = 0;
};

}  // namespace volume
