// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/UsbMonitorNotifier.h"

#include "usb/BnUsbHostNotifier.h"
#include "usb/IUsbManager.h"

namespace devicectl {

using android::IBinder;
using android::interface_cast;
using android::sp;
using usb::BnUsbHostNotifier;
using usb::IUsbManager;
using usb::UsbDeviceItf;

int32_t UsbMonitorNotifier::onEvent(int32_t event, int32_t value) {
    return mQueue->pushCode(Event::Kind::kUsbEvent, event, value);
}

int32_t UsbHostMonitorNotifier::onUsbDeviceAttached(const sp<UsbDeviceItf>& device) {
    return mQueue->pushRecord(Event::Kind::kUsbAttached, &Event::usbDevice, device);
}

int32_t UsbHostMonitorNotifier::onUsbDeviceDetached(const sp<UsbDeviceItf>& device) {
    return mQueue->pushRecord(Event::Kind::kUsbDetached, &Event::usbDevice, device);
}

int32_t UsbHostMonitorNotifier::onEvent(int32_t event, int32_t value) {
    return mQueue->pushCode(Event::Kind::kUsbHostEvent, event, value);
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
