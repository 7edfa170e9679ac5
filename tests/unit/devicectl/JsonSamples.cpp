// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <string>

#include "device/Device.h"
#include "tools/devicectl/Render.h"
#include "tools/devicectl/RenderWait.h"
#include "tools/devicectl/Status.h"
#include "usb/UsbDevice.h"
#include "volume/Volume.h"

// Prints what the commands answer in JSON, of records as they come and of such that are made to hurt: for
// each the name of its description in the schema, a blank, and the object.

using android::sp;
using android::String8;
using android::Vector;
using namespace devicectl;

namespace {

constexpr Format kJson = Format::kJson;
constexpr const char* kNasty = "\x1b]0;t\x07\n\"}\n{\"event\":\"forged\"}\xff\xe2\x80\xae";

void show(const char* name, const std::string& object) {
    std::printf("%s %s", name, object.c_str());
}

sp<device::DeviceItf> deviceOf(const char* text) {
    const sp<device::Device> device = new device::Device();
    device->setPath(text);
    device->setSubsystem(text);
    device->addParam("DEVNAME", text);
    device->addParam(text, "");
    return device;
}

sp<volume::VolumeItf> volumeOf(const char* text) {
    const String8 value(text);
    return new volume::Volume(value, value, value, value, value, value, value, value);
}

sp<usb::UsbDeviceItf> usbOf(uint32_t number) {
    usb::UsbDevice::Interfaces interfaces;
    interfaces.add(new usb::UsbInterface(8, 6, 80));
    interfaces.add(new usb::UsbInterface(number & 0xff, 0, 0));
    return new usb::UsbDevice(number, number, nullptr, number & 0xffff, 0x05ac, 0, 0, 0, interfaces,
                              new usb::UsbConfig(250));
}

Event eventOf(Event::Kind kind) {
    Event event = Event::now(kind);
    event.device = deviceOf(kNasty);
    event.volume = volumeOf(kNasty);
    event.usbDevice = usbOf(UINT32_MAX);
    event.code = INT32_MIN;
    event.value = INT32_MAX;
    event.service = "DeviceManager";
    return event;
}

void showEvents() {
    for (const Event::Kind kind :
         {Event::Kind::kDeviceAdded, Event::Kind::kDeviceRemoved, Event::Kind::kDeviceEvent,
          Event::Kind::kVolumeAdded, Event::Kind::kVolumeRemoved, Event::Kind::kVolumeEvent,
          Event::Kind::kUsbAttached, Event::Kind::kUsbDetached, Event::Kind::kUsbEvent,
          Event::Kind::kUsbHostEvent, Event::Kind::kServiceUp, Event::Kind::kServiceDown}) {
        show("monitor", renderEvent(kJson, eventOf(kind), false));
    }
}

void showUsb() {
    show("usb_list", renderUsbDevices(kJson, {}, UsbNames()));
    show("usb_list", renderUsbDevices(kJson, {usbOf(1), usbOf(UINT32_MAX)}, UsbNames()));
    UsbRequest request;
    for (const auto& [operation, name] : {std::pair(UsbOperation::kRole, "role"),
                                          {UsbOperation::kCarplay, "carplay"},
                                          {UsbOperation::kAoa, "aoa"}}) {
        request.operation = operation;
        request.name = name;
        show("usb_question", renderUsbAnswer(kJson, request, 0));
        show("usb_question", renderUsbAnswer(kJson, request, 1));
    }
    request.operation = UsbOperation::kTestGetMode;
    request.name = "mode";
    for (const int mode : {79, 77, 84, 0}) {
        show("usb_mode", renderUsbAnswer(kJson, request, mode));
    }
    request.operation = UsbOperation::kTestGetCharging;
    request.name = "charging";
    for (const int mode : {0, 1, 2, -1}) {
        show("usb_mode", renderUsbAnswer(kJson, request, mode));
    }
    request.operation = UsbOperation::kPower;
    request.name = "power";
    show("usb_operation", renderUsbAnswer(kJson, request, -1));
}

}  // namespace

int main() {
    using Life = ServiceState::Life;
    show("start_stop",
         renderActions(kJson, "start", {{"volume", "VolumeManager", 0}, {"usb", "UsbManager", -1}}));
    show("start_stop", renderActions(kJson, "stop", {{"device", "DeviceManager", 0}}));
    show("device_get", renderDevice(kJson, deviceOf(kNasty)));
    show("device_get", renderDevice(kJson, nullptr));
    Vector<sp<device::DeviceItf>> devices;
    show("device_ancestors", renderDevices(kJson, devices));
    devices.add(deviceOf("sda"));
    show("device_ancestors", renderDevices(kJson, devices));
    show("device_controller", renderController(kJson, 1, 0, "/devices/c"));
    show("device_controller", renderController(kJson, INT32_MIN, -1, ""));
    Vector<sp<volume::VolumeItf>> volumes;
    show("volumes", renderVolumes(kJson, volumes));
    volumes.add(volumeOf(kNasty));
    volumes.add(new volume::Volume());
    show("volumes", renderVolumes(kJson, volumes));
    showUsb();
    showEvents();
    show("dump", renderDump(kJson, "DeviceManager", {}, ""));
    show("dump", renderDump(kJson, "DeviceManager", {"notifier"}, kNasty));
    show("services", renderServices(kJson, {}));
    show("services",
         renderServices(kJson, {{"A", Life::kAlive}, {kNasty, Life::kDead}, {"C", Life::kSilent}}));
    show("status", renderStatus(kJson, {"1.2.3",
                                        {{"DeviceManager", Life::kAlive, 1},
                                         {"VolumeManager", Life::kSilent, std::nullopt},
                                         {"UsbManager", Life::kMissing, std::nullopt}},
                                        7,
                                        std::nullopt,
                                        std::nullopt,
                                        std::nullopt}));
    show("wait_service", renderFoundServices(kJson, {{"DeviceManager", Life::kAlive}}));
    show("wait_volume", renderFoundVolume(kJson, volumeOf(kNasty)));
    show("wait_usb", renderFoundUsbDevice(kJson, usbOf(3), UsbNames()));
    return 0;
}
