// SPDX-License-Identifier: Apache-2.0
#include "client/Event.h"

#include <functional>

namespace client {

using android::sp;

namespace {

Event::Kind kindOf(bool added) {
    return added ? Event::Kind::kAdded : Event::Kind::kRemoved;
}

template <typename... Parameters, typename... Arguments>
void call(const std::function<void(Parameters...)>& function, const Arguments&... arguments) {
    if (function) {
        function(arguments...);
    }
}

void tellChange(const Event& event, const Events& events) {
    const bool added = event.kind == Event::Kind::kAdded;
    switch (event.service) {
        case Service::kDeviceManager:
            call(added ? events.deviceAdded : events.deviceRemoved, event.device);
            break;
        case Service::kVolumeManager:
            call(added ? events.volumeAdded : events.volumeRemoved, event.volume);
            break;
        case Service::kUsbManager:
            call(added ? events.usbDeviceAttached : events.usbDeviceDetached, event.usbDevice);
            break;
    }
}

void tellNumber(const Event& event, const Events& events) {
    switch (event.service) {
        case Service::kDeviceManager:
            call(events.deviceEvent, event.number, event.value);
            break;
        case Service::kVolumeManager:
            call(events.volumeEvent, event.number, event.value);
            break;
        case Service::kUsbManager:
            call(event.kind == Event::Kind::kHostNumbered ? events.usbHostEvent : events.usbEvent,
                 event.number, event.value);
            break;
    }
}

}  // namespace

Event Event::change(bool added, const sp<device::DeviceItf>& device) {
    Event event = of(kindOf(added), Service::kDeviceManager);
    event.device = device;
    return event;
}

Event Event::change(bool added, const sp<volume::VolumeItf>& volume) {
    Event event = of(kindOf(added), Service::kVolumeManager);
    event.volume = volume;
    return event;
}

Event Event::change(bool added, const sp<usb::UsbDeviceItf>& device) {
    Event event = of(kindOf(added), Service::kUsbManager);
    event.usbDevice = device;
    return event;
}

void Event::tell(const Events& events) const {
    switch (kind) {
        case Kind::kConnected:
            call(events.connected, service);
            break;
        case Kind::kDisconnected:
            call(events.disconnected, service);
            break;
        case Kind::kPictureComplete:
            call(events.pictureComplete, service);
            break;
        case Kind::kAdded:
        case Kind::kRemoved:
            tellChange(*this, events);
            break;
        case Kind::kNumbered:
        case Kind::kHostNumbered:
            tellNumber(*this, events);
            break;
    }
}

}  // namespace client
