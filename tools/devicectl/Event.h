// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include <chrono>
#include <cstdint>

#include "device/DeviceItf.h"
#include "usb/UsbDeviceItf.h"
#include "volume/VolumeItf.h"

namespace devicectl {

/** One thing that a monitor has to tell. A value; a record in it is shared and only read. */
struct Event {
    enum class Kind {
        kDeviceAdded,    ///< device
        kDeviceRemoved,  ///< device
        kDeviceEvent,    ///< code and value
        kVolumeAdded,    ///< volume
        kVolumeRemoved,  ///< volume
        kVolumeEvent,    ///< code and value
        kUsbAttached,    ///< usbDevice
        kUsbDetached,    ///< usbDevice
        kUsbEvent,       ///< code and value, of the manager notifier
        kUsbHostEvent,   ///< code and value, of the host notifier
        kServiceUp,      ///< service: the notifier is registered with it
        kServiceDown,    ///< service: its process died
    };
    using Clock = std::chrono::system_clock;

    Kind kind = Kind::kDeviceEvent;
    Clock::time_point time;  ///< when it was taken, before it was queued
    android::sp<device::DeviceItf> device;
    android::sp<volume::VolumeItf> volume;
    android::sp<usb::UsbDeviceItf> usbDevice;
    int32_t code = 0;
    int32_t value = 0;
    const char* service = "";  ///< name of the service, of static storage

    /** An event of this moment. */
    static Event now(Kind kind) {
        Event event;
        event.kind = kind;
        event.time = Clock::now();
        return event;
    }

    /** True for what the daemon reported, false for what the monitor noticed about the daemon. */
    bool isFromDaemon() const { return kind != Kind::kServiceUp && kind != Kind::kServiceDown; }
};

}  // namespace devicectl
