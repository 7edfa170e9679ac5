// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/RenderParts.h"

#include <algorithm>
#include <cstdio>

#include "tools/devicectl/Text.h"

namespace devicectl {

using android::sp;
using android::String8;
using device::DeviceItf;
using usb::UsbDeviceItf;
using volume::VolumeItf;

namespace {

/** One attribute of a volume: how it is called and how it is asked for. */
struct VolumeField {
    const char* key;      ///< in JSON
    const char* heading;  ///< of the table's column
    const String8& (VolumeItf::*get)() const;
};

constexpr std::array kVolumeFields{
    VolumeField{"name", "NAME", &VolumeItf::getName},
    VolumeField{"label", "LABEL", &VolumeItf::getLabel},
    VolumeField{"format", "FORMAT", &VolumeItf::getFormat},
    VolumeField{"identity", "IDENTITY", &VolumeItf::getUuid},
    VolumeField{"mount_path", "MOUNT PATH", &VolumeItf::getMountPath},
    VolumeField{"access_path", "ACCESS PATH", &VolumeItf::getAccessPath},
    VolumeField{"device", "DEVICE", &VolumeItf::getDevicePath},
    VolumeField{"disk", "DISK", &VolumeItf::getMbrPath},
};

/** The value of a property that may be absent; DeviceItf::getParam() would end the process. */
std::string paramOr(const DeviceItf& device, const char* key, const char* otherwise) {
    for (size_t i = 0; i < device.getParamSize(); ++i) {
        if (device.getParamName(i) == key) {
            return escapeLine(toString(device.getParamValue(i)));
        }
    }
    return otherwise;
}

/** Class, subclass and protocol of an interface. */
using InterfaceTriple = std::array<uint32_t, 3>;

/** In ascending order: the one of the record means nothing, and differs each time. */
std::vector<InterfaceTriple> interfacesOf(const UsbDeviceItf& device) {
    std::vector<InterfaceTriple> interfaces;
    for (uint32_t i = 0; i < device.getInterfaceCount(); ++i) {
        const sp<usb::UsbInterfaceItf> interface = device.getInterface(i);
        if (interface != nullptr) {
            interfaces.push_back({interface->getInterfaceClass(), interface->getInterfaceSubClass(),
                                  interface->getInterfaceProtocol()});
        }
    }
    std::sort(interfaces.begin(), interfaces.end());
    return interfaces;
}

Json nameOrNull(const std::string& name) {
    return name.empty() ? Json(nullptr) : Json(name);
}

}  // namespace

std::string toString(const String8& text) {
    return {text.string(), text.size()};
}

std::string jsonLine(const Json& value) {
    Json line{{"schemaVersion", kSchemaVersion}};
    line.update(value);
    return line.dump(-1, ' ', true, Json::error_handler_t::replace) + "\n";
}

std::string padded(std::string text, size_t width) {
    const size_t taken = widthOf(text);
    if (taken < width) {
        text.append(width - taken, ' ');
    }
    return text;
}

Json deviceJson(const DeviceItf& device) {
    Json params = Json::object();
    for (size_t i = 0; i < device.getParamSize(); ++i) {
        params[toString(device.getParamName(i))] = toString(device.getParamValue(i));
    }
    return {{"path", toString(device.getPath())},
            {"subsystem", toString(device.getSubsystem())},
            {"params", params}};
}

std::string deviceColumns(const DeviceItf& device) {
    const std::string type = paramOr(device, "DEVTYPE", "");
    std::string kind = escapeLine(toString(device.getSubsystem()));
    if (!type.empty()) {
        kind += "/" + type;
    }
    return padded(kind, 19) + " " + padded(paramOr(device, "DEVNAME", "-"), 15) + " " +
           escapeLine(toString(device.getPath()));
}

std::string propertyLines(const DeviceItf& device) {
    std::string text;
    for (size_t i = 0; i < device.getParamSize(); ++i) {
        text += "    " + escapeLine(toString(device.getParamName(i))) + "=" +
                escapeLine(toString(device.getParamValue(i))) + "\n";
    }
    return text;
}

Json volumeJson(const VolumeItf& volume) {
    Json json = Json::object();
    for (const VolumeField& field : kVolumeFields) {
        json[field.key] = toString((volume.*field.get)());
    }
    return json;
}

std::string volumeText(const String8& text) {
    return text.isEmpty() || text == "unknown" ? "-" : escapeLine(toString(text));
}

std::vector<std::string> volumeHeading() {
    std::vector<std::string> row;
    row.reserve(std::size(kVolumeFields));
    for (const VolumeField& field : kVolumeFields) {
        row.emplace_back(field.heading);
    }
    return row;
}

std::vector<std::string> volumeRow(const VolumeItf& volume) {
    std::vector<std::string> row;
    row.reserve(std::size(kVolumeFields));
    for (const VolumeField& field : kVolumeFields) {
        row.push_back(volumeText((volume.*field.get)()));
    }
    return row;
}

std::string volumeColumns(const VolumeItf& volume) {
    return padded("volume", 19) + " " + padded(volumeText(volume.getName()), 15) + " " +
           padded(volumeText(volume.getAccessPath()), 15) + " " + volumeText(volume.getFormat()) + " " +
           volumeText(volume.getUuid()) + " " + volumeText(volume.getLabel());
}

std::string volumeLines(const VolumeItf& volume) {
    std::string text;
    for (const VolumeField& field : kVolumeFields) {
        text += "    " + std::string(field.key) + "=" + escapeLine(toString((volume.*field.get)())) + "\n";
    }
    return text;
}

size_t widthOf(std::string_view text) {
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
    }));
}

std::string tableText(Format format, const std::vector<std::vector<std::string>>& rows) {
    std::vector<size_t> widths;
    for (const std::vector<std::string>& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], widthOf(row[i]));
        }
    }
    std::string text;
    for (const std::vector<std::string>& row : rows) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i) {
            const bool last = i + 1 == row.size();
            line += row[i] + (last ? "" : std::string(widths[i] - widthOf(row[i]) + 2, ' '));
        }
        text += painted(format, &row == &rows.front() ? Color::kHeading : Color::kNone, line) + "\n";
    }
    return text;
}

std::string hex(uint32_t value, int digits) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%0*x", digits, value);
    return text.data();
}

std::string usbNumber(const UsbDeviceItf& device) {
    return hex(device.getVendorId(), 4) + ":" + hex(device.getProductId(), 4);
}

uint32_t milliamperesOf(const UsbDeviceItf& device) {
    return device.getConfig()->getMaxPower() * 2;
}

std::string interfaceText(const UsbDeviceItf& device) {
    std::string text;
    for (const InterfaceTriple& interface : interfacesOf(device)) {
        text += (text.empty() ? "" : " ") + hex(interface[0], 2) + "/" + hex(interface[1], 2) + "/" +
                hex(interface[2], 2);
    }
    return text.empty() ? "-" : text;
}

std::string usbColumns(const UsbDeviceItf& device) {
    return padded("usb", 19) + " " + padded("id " + std::to_string(device.getId()), 15) + " bus " +
           std::to_string(device.getBusNumber()) + " " + usbNumber(device) + " class " +
           hex(device.getDeviceClass(), 2) + " " + std::to_string(milliamperesOf(device)) + " mA " +
           interfaceText(device);
}

Json usbJson(const UsbDeviceItf& device) {
    Json interfaces = Json::array();
    for (const InterfaceTriple& interface : interfacesOf(device)) {
        interfaces.push_back(
            {{"class", interface[0]}, {"subclass", interface[1]}, {"protocol", interface[2]}});
    }
    return {{"id", device.getId()},
            {"bus", device.getBusNumber()},
            {"class", device.getDeviceClass()},
            {"subclass", device.getDeviceSubClass()},
            {"protocol", device.getDeviceProtocol()},
            {"vendor", device.getVendorId()},
            {"product", device.getProductId()},
            {"max_power", device.getConfig()->getMaxPower()},
            {"milliamperes", milliamperesOf(device)},
            {"interfaces", interfaces}};
}

Json usbListJson(const UsbDeviceItf& device, const UsbNames& names) {
    Json json = usbJson(device);
    json["class_name"] = nameOrNull(names.classOf(device.getDeviceClass()));
    json["vendor_name"] = nameOrNull(names.vendor(device.getVendorId()));
    json["product_name"] = nameOrNull(names.product(device.getVendorId(), device.getProductId()));
    return json;
}

std::vector<std::string> usbHeading() {
    return {"ID", "BUS", "NUMBER", "POWER", "CLASS", "INTERFACES", "NAME"};
}

std::string usbName(const UsbDeviceItf& device, const UsbNames& names) {
    const std::string vendor = names.vendor(device.getVendorId());
    const std::string product = names.product(device.getVendorId(), device.getProductId());
    const std::string name = vendor + (vendor.empty() || product.empty() ? "" : " ") + product;
    return name.empty() ? "-" : escapeLine(name);
}

std::vector<std::string> usbRow(const UsbDeviceItf& device, const UsbNames& names) {
    const std::string className = names.classOf(device.getDeviceClass());
    return {std::to_string(device.getId()),
            std::to_string(device.getBusNumber()),
            usbNumber(device),
            std::to_string(milliamperesOf(device)) + " mA",
            hex(device.getDeviceClass(), 2) + (className.empty() ? "" : " " + escapeLine(className)),
            interfaceText(device),
            usbName(device, names)};
}

const char* lifeText(ServiceState::Life life) {
    switch (life) {
        case ServiceState::Life::kAlive:
            return "alive";
        case ServiceState::Life::kDead:
            return "dead";
        case ServiceState::Life::kMissing:
            return "missing";
        case ServiceState::Life::kSilent:
            break;
    }
    return "silent";
}

std::string painted(Format format, Color color, std::string_view text) {
    if (format != Format::kColor || color == Color::kNone || text.empty()) {
        return std::string(text);
    }
    const char* const code = color == Color::kHeading ? "1"
                             : color == Color::kGood  ? "32"
                             : color == Color::kBad   ? "31"
                             : color == Color::kWait  ? "33"
                                                      : "2";
    return std::string("\x1b[") + code + "m" + std::string(text) + "\x1b[0m";
}

Color colorOf(ServiceState::Life life) {
    switch (life) {
        case ServiceState::Life::kAlive:
            return Color::kGood;
        case ServiceState::Life::kSilent:
            return Color::kWait;
        case ServiceState::Life::kDead:
        case ServiceState::Life::kMissing:
            break;
    }
    return Color::kBad;
}

}  // namespace devicectl
