// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * A notifier of the volume manager that remembers.
 */

#include "tests/unit/support/CallRecorder.h"
#include "volume/VolumeManagerNotifierItf.h"

/** Remembers each call as "added NAME", "removed NAME" or "event CODE VALUE". Any thread. */
class VolumeRecorder : public CallRecorder<volume::VolumeManagerNotifierItf, volume::VolumeItf> {
  public:
    using CallRecorder::CallRecorder;

    int32_t onVolumeAdded(const android::sp<volume::VolumeItf>& volume) override {
        return note("added " + std::string(volume->getName().string()), volume);
    }
    int32_t onVolumeRemoved(const android::sp<volume::VolumeItf>& volume) override {
        return note("removed " + std::string(volume->getName().string()), volume);
    }

    android::sp<volume::VolumeItf> lastVolume() const { return last(); }
};
