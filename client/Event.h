// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include <cstdint>

#include "client/Events.h"

namespace client {

/** One event on its way to the application. */
struct Event {
    enum class Kind {
        kConnected,
        kDisconnected,
        kPictureComplete,  ///< all that a service listed when it was connected has been told
        kAdded,
        kRemoved,
        kNumbered,      ///< of the service's manager
        kHostNumbered,  ///< of the USB manager's host side
    };

    static Event of(Kind kind, Service service) { return Event{kind, service, {}, {}, {}, 0, 0}; }
    static Event change(bool added, const android::sp<device::DeviceItf>& device);
    static Event change(bool added, const android::sp<volume::VolumeItf>& volume);
    static Event change(bool added, const android::sp<usb::UsbDeviceItf>& device);

    bool isNumbered() const { return kind == Kind::kNumbered || kind == Kind::kHostNumbered; }

    /** Whether both are about the same record. */
    bool isAboutTheSame(const Event& other) const {
        return device == other.device && volume == other.volume && usbDevice == other.usbDevice;
    }

    /** Calls the one of @p events that is meant, if the application set it. */
    void tell(const Events& events) const;

    Kind kind;
    Service service;
    /** Of kAdded and kRemoved: the one of the service. */
    android::sp<device::DeviceItf> device;
    android::sp<volume::VolumeItf> volume;
    android::sp<usb::UsbDeviceItf> usbDevice;
    /** Of a numbered event. */
    int32_t number;
    int32_t value;
};

}  // namespace client
