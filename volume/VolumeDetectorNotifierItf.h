// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include "volume/Volume.h"

namespace volume {

/**
 * Hears what the volume detector reports. The operations run on the detector's queue thread
 * ("VolumeDetectorQueue"), one at a time, without a lock of the detector held.
 */
class VolumeDetectorNotifierItf : public virtual android::RefBase {
  public:
    /** @p volume is there and listed. */
    virtual void onVolumeAttached(const android::sp<Volume>& volume) = 0;

    /** @p volume, the record of its onVolumeAttached(), is gone or is about to be attached anew. */
    virtual void onVolumeDetached(const android::sp<Volume>& volume) = 0;

  protected:
    ~VolumeDetectorNotifierItf() override = default;
};

}  // namespace volume
