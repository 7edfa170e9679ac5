// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * A notifier that remembers.
 */

#include "device/DeviceManagerNotifierItf.h"
#include "tests/unit/support/CallRecorder.h"

/** Remembers each call as "added PATH", "removed PATH" or "event CODE VALUE". Any thread. */
class Recorder : public CallRecorder<device::DeviceManagerNotifierItf, device::DeviceItf> {
  public:
    using CallRecorder::CallRecorder;

    int32_t onDeviceAdded(const android::sp<device::DeviceItf>& device) override {
        return note("added " + std::string(device->getPath().string()), device);
    }
    int32_t onDeviceRemoved(const android::sp<device::DeviceItf>& device) override {
        return note("removed " + std::string(device->getPath().string()), device);
    }

    android::sp<device::DeviceItf> lastDevice() const { return last(); }
};
