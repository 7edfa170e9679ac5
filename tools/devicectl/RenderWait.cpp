// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/RenderWait.h"

#include "tools/devicectl/RenderParts.h"

namespace devicectl {

using android::sp;
using usb::UsbDeviceItf;
using volume::VolumeItf;

std::string renderFoundServices(Format format, const std::vector<ServiceState>& services) {
    if (format != Format::kJson) {
        return renderServices(format, services);
    }
    Json list = Json::array();
    for (const ServiceState& service : services) {
        list.push_back({{"name", service.name}, {"state", lifeText(service.life)}});
    }
    return jsonLine({{"found", "service"}, {"services", list}});
}

std::string renderFoundVolume(Format format, const sp<VolumeItf>& volume) {
    if (format == Format::kJson) {
        return jsonLine({{"found", "volume"}, {"volume", volumeJson(*volume)}});
    }
    return tableText(format, {volumeHeading(), volumeRow(*volume)});
}

std::string renderFoundUsbDevice(Format format, const sp<UsbDeviceItf>& device, const UsbNames& names) {
    if (format == Format::kJson) {
        return jsonLine({{"found", "usb"}, {"usb_device", usbListJson(*device, names)}});
    }
    return tableText(format, {usbHeading(), usbRow(*device, names)});
}

}  // namespace devicectl
