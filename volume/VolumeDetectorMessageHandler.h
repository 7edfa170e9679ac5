// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/Looper.h>

#include "volume/VolumeDetectorImpl.h"

namespace volume {

/**
 * The handler of the volume detector's queue: one pass for each message.
 */
class VolumeDetectorMessageHandler : public android::MessageHandler {
  public:
    /** @param detector must not be null */
    explicit VolumeDetectorMessageHandler(const android::sp<VolumeDetectorImpl>& detector)
        : mDetector(detector) {}

    /** Owner's queue thread. */
    void handleMessage(const android::Message& message) override;

  protected:
    ~VolumeDetectorMessageHandler() override = default;

  private:
    const android::sp<VolumeDetectorImpl> mDetector;
};

}  // namespace volume
