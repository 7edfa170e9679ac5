// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/UsbMonitorNotifier.h"

#include <utility>

#include "usb/BnUsbHostNotifier.h"
#include "usb/IUsbManager.h"

namespace devicectl {

using android::IBinder;
using android::interface_cast;
using android::sp;
using usb::BnUsbHostNotifier;
using usb::IUsbManager;
using usb::UsbDeviceItf;

namespace {

int32_t pushDevice(EventQueue& queue, Event::Kind kind, const sp<UsbDeviceItf>& device) {
    Event event = Event::now(kind);
    event.usbDevice = device;
    queue.push(std::move(event));
    return 0;
}

int32_t pushCode(EventQueue& queue, Event::Kind kind, int32_t code, int32_t value) {
    Event event = Event::now(kind);
    event.code = code;
    event.value = value;
    queue.push(std::move(event));
    return 0;
}

}  // namespace

int32_t UsbMonitorNotifier::onEvent(int32_t event, int32_t value) {
    return pushCode(*mQueue, Event::Kind::kUsbEvent, event, value);
}

int32_t UsbHostMonitorNotifier::onUsbDeviceAttached(const sp<UsbDeviceItf>& device) {
    return pushDevice(*mQueue, Event::Kind::kUsbAttached, device);
}

int32_t UsbHostMonitorNotifier::onUsbDeviceDetached(const sp<UsbDeviceItf>& device) {
    return pushDevice(*mQueue, Event::Kind::kUsbDetached, device);
}

int32_t UsbHostMonitorNotifier::onEvent(int32_t event, int32_t value) {
    return pushCode(*mQueue, Event::Kind::kUsbHostEvent, event, value);
}

UsbMonitorEar::UsbMonitorEar(const sp<EventQueue>& queue)
    : BnUsbManagerNotifier(new UsbMonitorNotifier(queue)),
      mHostEar(new BnUsbHostNotifier(new UsbHostMonitorNotifier(queue))) {}

void UsbMonitorEar::add(const sp<IBinder>& service, const sp<IBinder>& ear) {
    const sp<IUsbManager> manager = interface_cast<IUsbManager>(service);
    manager->addNotifier(ear);
    manager->addHostNotifier(static_cast<UsbMonitorEar*>(ear.get())->mHostEar);
}

void UsbMonitorEar::remove(const sp<IBinder>& service, const sp<IBinder>& ear) {
    interface_cast<IUsbManager>(service)->removeNotifier(ear);
}

}  // namespace devicectl
