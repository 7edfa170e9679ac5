// SPDX-License-Identifier: Apache-2.0
// An application of the client library: its own ears behind the library's notifiers, its own class of a
// record. Needs no driver: the calls stay inside the process, which takes the library's code, type
// information and virtual tables.
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>

#include <cstdio>

#include "device/BnDeviceManagerNotifier.h"
#include "device/Device.h"
#include "device/DeviceManagerItf.h"
#include "device/IDeviceManager.h"
#include "usb/BnUsbHostNotifier.h"
#include "usb/BnUsbManagerNotifier.h"
#include "usb/IUsbManager.h"
#include "usb/UsbDevice.h"
#include "volume/BnVolumeManagerNotifier.h"
#include "volume/IVolumeManager.h"
#include "volume/Volume.h"

using android::sp;
using android::String8;

namespace {

class DeviceEars : public device::DeviceManagerNotifierItf {
  public:
    int32_t onDeviceAdded(const sp<device::DeviceItf>& device) override {
        // Across the border of the library: the record's class is known here by its type information alone.
        const auto* record = dynamic_cast<const device::Device*>(device.get());
        printf("added %s%s\n", device->getPath().string(), record == nullptr ? " (of another class)" : "");
        return 7;
    }
    int32_t onDeviceRemoved(const sp<device::DeviceItf>& device) override {
        printf("removed %s\n", device->getPath().string());
        return 8;
    }
    int32_t onEvent(int32_t event, int32_t value) override { return event + value; }
};

class VolumeEars : public volume::VolumeManagerNotifierItf {
  public:
    int32_t onVolumeAdded(const sp<volume::VolumeItf>& volume) override {
        printf("mounted %s on %s\n", volume->getName().string(), volume->getMountPath().string());
        return 0;
    }
    int32_t onVolumeRemoved(const sp<volume::VolumeItf>& /*volume*/) override { return 0; }
    int32_t onEvent(int32_t /*event*/, int32_t /*value*/) override { return 0; }
};

class HostEars : public usb::UsbHostNotifierItf {
  public:
    int32_t onUsbDeviceAttached(const sp<usb::UsbDeviceItf>& device) override {
        printf("attached %04x:%04x\n", device->getVendorId(), device->getProductId());
        return 0;
    }
    int32_t onUsbDeviceDetached(const sp<usb::UsbDeviceItf>& /*device*/) override { return 0; }
    int32_t onEvent(int32_t /*event*/, int32_t /*value*/) override { return 0; }
};

class ManagerEars : public usb::UsbManagerNotifierItf {
  public:
    int32_t onEvent(int32_t event, int32_t value) override {
        printf("event %d %d\n", event, value);
        return 0;
    }
};

/** Derived from a class of the library: its virtual table refers to the library's functions and thunks. */
class CountingNotifier : public device::BnDeviceManagerNotifier {
  public:
    using BnDeviceManagerNotifier::BnDeviceManagerNotifier;
    int32_t onDeviceRemoved(const sp<device::DeviceItf>& device) override {
        ++removals;
        return BnDeviceManagerNotifier::onDeviceRemoved(device);
    }
    int removals = 0;
};

}  // namespace

int main() {
    printf("services %s %s %s\n", device::IDeviceManager::kServiceName, volume::IVolumeManager::kServiceName,
           usb::IUsbManager::kServiceName);

    const sp<CountingNotifier> notifier = new CountingNotifier(new DeviceEars());
    const auto hears = android::interface_cast<device::IDeviceManagerNotifier>(notifier);
    const sp<device::DeviceItf> device = new device::Device();
    device->setPath("/devices/one");
    hears->onDeviceAdded(device);
    hears->onDeviceRemoved(device);
    printf("removals %d, sum %d\n", notifier->removals, hears->onEvent(40, 2));

    const sp<volume::BnVolumeManagerNotifier> volumes = new volume::BnVolumeManagerNotifier(new VolumeEars());
    const String8 text("text");
    volumes->onVolumeAdded(
        new volume::Volume(String8("sda1"), text, text, text, text, text, String8("/mnt/sda1"), text));

    const sp<usb::BnUsbHostNotifier> host = new usb::BnUsbHostNotifier(new HostEars());
    host->onUsbDeviceAttached(
        new usb::UsbDevice(1, 1, nullptr, 0x12a8, 0x05ac, 0, 0, 0, {}, new usb::UsbConfig(0)));
    const sp<usb::BnUsbManagerNotifier> manager = new usb::BnUsbManagerNotifier(new ManagerEars());
    manager->onEvent(3, 4);

    // The interfaces of the services are made of nothing when there is nothing.
    const bool none = device::IDeviceManager::asInterface(nullptr) == nullptr &&
                      volume::IVolumeManager::asInterface(nullptr) == nullptr &&
                      usb::IUsbManager::asInterface(nullptr) == nullptr;
    printf("descriptor %s, null %s\n", String8(usb::IUsbManager::descriptor).string(),
           none ? "null" : "something");
    return 0;
}
