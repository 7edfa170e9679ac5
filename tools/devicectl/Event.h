// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include <chrono>
#include <cstdint>

#include "device/DeviceItf.h"

namespace devicectl {

/** One thing that a monitor has to tell. A value; a device in it is shared and only read. */
struct Event {
    enum class Kind {
        kDeviceAdded,    ///< device
        kDeviceRemoved,  ///< device
        kDeviceEvent,    ///< code and value
        kServiceUp,      ///< service: the notifier is registered with it
        kServiceDown,    ///< service: its process died
    };
    using Clock = std::chrono::system_clock;

    Kind kind = Kind::kDeviceEvent;
    Clock::time_point time;  ///< when it was taken, before it was queued
    android::sp<device::DeviceItf> device;
    int32_t code = 0;
    int32_t value = 0;
    const char* service = "";  ///< name of the service, of static storage

    /** True for what the daemon reported, false for what the monitor noticed about the daemon. */
    bool isFromDaemon() const { return kind != Kind::kServiceUp && kind != Kind::kServiceDown; }
};

}  // namespace devicectl
