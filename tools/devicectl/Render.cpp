// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/Render.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>

#include "tools/devicectl/Text.h"

namespace devicectl {

using android::sp;
using android::String8;
using android::Vector;
using device::DeviceItf;
using usb::UsbDeviceItf;
using volume::VolumeItf;
using Json = nlohmann::ordered_json;

namespace {

std::string toString(const String8& text) {
    return {text.string(), text.size()};
}

/** ASCII only, so that neither a terminal nor a strict reader can be harmed by what a device is called. */
std::string jsonLine(const Json& value) {
    return value.dump(-1, ' ', true, Json::error_handler_t::replace) + "\n";
}

std::string padded(std::string text, size_t width) {
    if (text.size() < width) {
        text.resize(width, ' ');
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

/** The value of a property that may be absent; DeviceItf::getParam() would end the process. */
std::string paramOr(const DeviceItf& device, const char* key, const char* otherwise) {
    for (size_t i = 0; i < device.getParamSize(); ++i) {
        if (device.getParamName(i) == key) {
            return escapeLine(toString(device.getParamValue(i)));
        }
    }
    return otherwise;
}

/** Subsystem, node and path, in columns as far as they fit. */
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

Json volumeJson(const VolumeItf& volume) {
    Json json = Json::object();
    for (const VolumeField& field : kVolumeFields) {
        json[field.key] = toString((volume.*field.get)());
    }
    return json;
}

/** For readers; a dash for what is empty or what the daemon does not know. */
std::string volumeText(const String8& text) {
    return text.isEmpty() || text == "unknown" ? "-" : escapeLine(toString(text));
}

/** As the columns of a device; what comes from the medium stands last. */
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

/** Characters, as far as one code point is one: the bytes of UTF-8 that begin one. */
size_t widthOf(const std::string& text) {
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
    }));
}

/** Rows in columns as wide as their widest text; the last column is not filled up. */
std::string tableText(const std::vector<std::vector<std::string>>& rows) {
    std::vector<size_t> widths;
    for (const std::vector<std::string>& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], widthOf(row[i]));
        }
    }
    std::string text;
    for (const std::vector<std::string>& row : rows) {
        for (size_t i = 0; i < row.size(); ++i) {
            const bool last = i + 1 == row.size();
            text += row[i] + (last ? "\n" : std::string(widths[i] - widthOf(row[i]) + 2, ' '));
        }
    }
    return text;
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

std::string hex(uint32_t value, int digits) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%0*x", digits, value);
    return text.data();
}

std::string usbNumber(const UsbDeviceItf& device) {
    return hex(device.getVendorId(), 4) + ":" + hex(device.getProductId(), 4);
}

/** The descriptor counts in 2 mA (a SuperSpeed device, which the record does not tell, in 8 mA). */
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

Json nameOrNull(const std::string& name) {
    return name.empty() ? Json(nullptr) : Json(name);
}

std::vector<std::string> usbRow(const UsbDeviceItf& device, const UsbNames& names) {
    const std::string className = names.classOf(device.getDeviceClass());
    const std::string vendor = names.vendor(device.getVendorId());
    const std::string product = names.product(device.getVendorId(), device.getProductId());
    std::string name = vendor + (vendor.empty() || product.empty() ? "" : " ") + product;
    return {std::to_string(device.getId()),
            std::to_string(device.getBusNumber()),
            usbNumber(device),
            std::to_string(milliamperesOf(device)) + " mA",
            hex(device.getDeviceClass(), 2) + (className.empty() ? "" : " " + escapeLine(className)),
            interfaceText(device),
            name.empty() ? "-" : escapeLine(name)};
}

bool isQuestion(UsbOperation operation) {
    return operation == UsbOperation::kRole || operation == UsbOperation::kCarplay ||
           operation == UsbOperation::kAoa;
}

/** The mode that the answer of an operation stands for; null for operations that answer with none. */
const char* usbModeText(UsbOperation operation, int answer) {
    constexpr std::array kCharging{"c", "d", "s"};
    switch (operation) {
        case UsbOperation::kTestGetCharging:
            return answer >= 0 && answer < static_cast<int>(kCharging.size())
                       ? kCharging[static_cast<size_t>(answer)]
                       : "unknown";
        case UsbOperation::kTestGetMode:
            return answer == 'O' ? "normal" : answer == 'M' ? "logo" : answer == 'T' ? "devices" : "unknown";
        default:
            return nullptr;
    }
}

const char* lifeText(ServiceState::Life life) {
    switch (life) {
        case ServiceState::Life::kAlive:
            return "alive";
        case ServiceState::Life::kDead:
            return "dead";
        case ServiceState::Life::kSilent:
            break;
    }
    return "silent";
}

/** Local time of day in milliseconds; a monitor seldom runs for days, and JSON has the whole time. */
std::string clockText(Event::Clock::time_point time) {
    const auto sinceEpoch = time.time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
    const auto millis = std::chrono::floor<std::chrono::milliseconds>(sinceEpoch - seconds).count();
    const std::time_t whole = seconds.count();
    std::tm local{};
    localtime_r(&whole, &local);
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%02d:%02d:%02d.%03d", local.tm_hour, local.tm_min, local.tm_sec,
                  static_cast<int>(millis));
    return text.data();
}

double unixSeconds(Event::Clock::time_point time) {
    const auto micros = std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch());
    return static_cast<double>(micros.count()) / 1e6;
}

const char* codeEventName(Event::Kind kind) {
    switch (kind) {
        case Event::Kind::kVolumeEvent:
            return "volume-event";
        case Event::Kind::kUsbEvent:
            return "usb-event";
        case Event::Kind::kUsbHostEvent:
            return "usb-host-event";
        default:
            return "device-event";
    }
}

std::string codeText(const Event& event) {
    return "code " + std::to_string(event.code) + ", value " + std::to_string(event.value) + "\n";
}

std::string eventJson(const Event& event) {
    Json json;
    switch (event.kind) {
        case Event::Kind::kDeviceAdded:
        case Event::Kind::kDeviceRemoved:
            json["event"] = event.kind == Event::Kind::kDeviceAdded ? "device-added" : "device-removed";
            json["time"] = unixSeconds(event.time);
            json.update(deviceJson(*event.device));
            break;
        case Event::Kind::kVolumeAdded:
        case Event::Kind::kVolumeRemoved:
            json["event"] = event.kind == Event::Kind::kVolumeAdded ? "volume-added" : "volume-removed";
            json["time"] = unixSeconds(event.time);
            json.update(volumeJson(*event.volume));
            break;
        case Event::Kind::kUsbAttached:
        case Event::Kind::kUsbDetached:
            json["event"] = event.kind == Event::Kind::kUsbAttached ? "usb-attached" : "usb-detached";
            json["time"] = unixSeconds(event.time);
            json.update(usbJson(*event.usbDevice));
            break;
        case Event::Kind::kDeviceEvent:
        case Event::Kind::kVolumeEvent:
        case Event::Kind::kUsbEvent:
        case Event::Kind::kUsbHostEvent:
            json["event"] = codeEventName(event.kind);
            json["time"] = unixSeconds(event.time);
            json["code"] = event.code;
            json["value"] = event.value;
            break;
        case Event::Kind::kServiceUp:
        case Event::Kind::kServiceDown:
            json["event"] = "service";
            json["time"] = unixSeconds(event.time);
            json["service"] = event.service;
            json["state"] = event.kind == Event::Kind::kServiceUp ? "up" : "down";
            break;
    }
    return jsonLine(json);
}

std::string eventHuman(const Event& event, bool properties) {
    const std::string head = clockText(event.time) + "  ";
    switch (event.kind) {
        case Event::Kind::kDeviceAdded:
            return head + "added    " + deviceColumns(*event.device) + "\n" +
                   (properties ? propertyLines(*event.device) : "");
        case Event::Kind::kDeviceRemoved:
            return head + "removed  " + deviceColumns(*event.device) + "\n";
        case Event::Kind::kDeviceEvent:
            return head + "event    " + codeText(event);
        case Event::Kind::kVolumeAdded:
            return head + "added    " + volumeColumns(*event.volume) + "\n" +
                   (properties ? volumeLines(*event.volume) : "");
        case Event::Kind::kVolumeRemoved:
            return head + "removed  " + volumeColumns(*event.volume) + "\n";
        case Event::Kind::kVolumeEvent:
            return head + "event    volume " + codeText(event);
        case Event::Kind::kUsbAttached:
            return head + "attached " + usbColumns(*event.usbDevice) + "\n";
        case Event::Kind::kUsbDetached:
            return head + "detached " + usbColumns(*event.usbDevice) + "\n";
        case Event::Kind::kUsbEvent:
            return head + "event    usb " + codeText(event);
        case Event::Kind::kUsbHostEvent:
            return head + "event    usb host " + codeText(event);
        case Event::Kind::kServiceUp:
            return head + "service  " + event.service + " reports to this monitor\n";
        case Event::Kind::kServiceDown:
            break;
    }
    return head + "service  " + event.service + " died; waiting for its return\n";
}

}  // namespace

std::string renderActions(Format format, std::string_view verb, const std::vector<ManagerAction>& actions) {
    if (format == Format::kJson) {
        Json managers = Json::array();
        for (const ManagerAction& action : actions) {
            managers.push_back(
                {{"name", action.manager}, {"service", action.service}, {"result", action.result}});
        }
        return jsonLine({{"action", verb}, {"managers", managers}});
    }
    std::string text;
    for (const ManagerAction& action : actions) {
        if (action.result == 0) {
            text += action.manager + ": " + (verb == "start" ? "started" : "stopped") + "\n";
        }
    }
    return text;
}

std::string renderDevice(Format format, const sp<DeviceItf>& device) {
    if (format == Format::kJson) {
        return jsonLine({{"device", device != nullptr ? deviceJson(*device) : Json(nullptr)}});
    }
    if (device == nullptr) {
        return "";
    }
    return "path       " + escapeLine(toString(device->getPath())) + "\nsubsystem  " +
           escapeLine(toString(device->getSubsystem())) + "\n" + propertyLines(*device);
}

std::string renderDevices(Format format, const Vector<sp<DeviceItf>>& devices) {
    if (format == Format::kJson) {
        Json list = Json::array();
        for (const sp<DeviceItf>& device : devices) {
            list.push_back(deviceJson(*device));
        }
        return jsonLine({{"devices", list}});
    }
    std::string text;
    for (const sp<DeviceItf>& device : devices) {
        text += deviceColumns(*device) + "\n";
    }
    return text;
}

std::string renderVolumes(Format format, const Vector<sp<VolumeItf>>& volumes) {
    if (format == Format::kJson) {
        Json list = Json::array();
        for (const sp<VolumeItf>& volume : volumes) {
            list.push_back(volumeJson(*volume));
        }
        return jsonLine({{"volumes", list}});
    }
    std::vector<std::vector<std::string>> rows(1);
    for (const VolumeField& field : kVolumeFields) {
        rows.front().emplace_back(field.heading);
    }
    for (const sp<VolumeItf>& volume : volumes) {
        std::vector<std::string>& row = rows.emplace_back();
        for (const VolumeField& field : kVolumeFields) {
            row.push_back(volumeText(((*volume).*field.get)()));
        }
    }
    return tableText(rows);
}

std::string renderUsbDevices(Format format, const std::vector<sp<UsbDeviceItf>>& devices,
                             const UsbNames& names) {
    if (format == Format::kJson) {
        Json list = Json::array();
        for (const sp<UsbDeviceItf>& device : devices) {
            Json json = usbJson(*device);
            json["class_name"] = nameOrNull(names.classOf(device->getDeviceClass()));
            json["vendor_name"] = nameOrNull(names.vendor(device->getVendorId()));
            json["product_name"] = nameOrNull(names.product(device->getVendorId(), device->getProductId()));
            list.push_back(json);
        }
        return jsonLine({{"usb_devices", list}});
    }
    std::vector<std::vector<std::string>> rows{
        {"ID", "BUS", "NUMBER", "POWER", "CLASS", "INTERFACES", "NAME"}};
    for (const sp<UsbDeviceItf>& device : devices) {
        rows.push_back(usbRow(*device, names));
    }
    return tableText(rows);
}

std::string renderUsbAnswer(Format format, const UsbRequest& request, int answer) {
    const bool question = isQuestion(request.operation);
    const char* const mode = usbModeText(request.operation, answer);
    if (format == Format::kJson) {
        Json json{{"operation", request.name}};
        if (question) {
            json["answer"] = answer != 0;
        } else if (mode != nullptr) {
            json["mode"] = mode;
        } else {
            json["result"] = answer;
        }
        return jsonLine(json);
    }
    if (question) {
        return answer != 0 ? "yes\n" : "no\n";
    }
    return mode != nullptr ? std::string(mode) + "\n" : "";
}

std::string usbRefusal(const UsbRequest& request, int answer) {
    const std::string number = std::to_string(request.number);
    switch (request.operation) {
        case UsbOperation::kList:
        case UsbOperation::kTestGetCharging:
        case UsbOperation::kTestGetMode:
            return "";
        case UsbOperation::kRole:
            return answer != 0 ? "" : "port " + number + " is no host's, or the unit does not tell";
        case UsbOperation::kCarplay:
            return answer != 0 ? "" : "device " + number + " has no CarPlay, does not answer or is not there";
        case UsbOperation::kAoa:
            return answer != 0
                       ? ""
                       : "device " + number + " has no accessory mode, does not answer or is not there";
        case UsbOperation::kRoleSwitch:
            return answer >= 0 ? ""
                               : "device " + number + " did not take the request (" + std::to_string(answer) +
                                     "); the log of the service tells why";
        case UsbOperation::kAoaDescription:
            return answer == 0 ? "" : "the daemon cannot read " + request.text;
        case UsbOperation::kTestPost:
        case UsbOperation::kTestHubTier:
        case UsbOperation::kTestRefuseClass:
        case UsbOperation::kTestAcceptClass:
            return answer == 0 ? "" : "refused: the daemon runs in normal operation";
        case UsbOperation::kTestSetCharging:
        case UsbOperation::kTestSetMode:
            return answer == 0 ? "" : "the mode could not be stored; the log of the service tells why";
        default:
            break;
    }
    // Of all operations this one answers with 1 when it is done.
    const int done = request.operation == UsbOperation::kAutoRole ? 1 : 0;
    return answer == done ? "" : "the service answered " + std::to_string(answer) + "; its log tells why";
}

std::string renderController(Format format, int type, int id, std::string_view path) {
    if (format == Format::kJson) {
        const Json shown = path.empty() ? Json(nullptr) : Json(path);
        return jsonLine({{"controller", {{"type", type}, {"id", id}, {"path", shown}}}});
    }
    return path.empty() ? "" : escapeLine(path) + "\n";
}

std::string renderDump(Format format, std::string_view service, const std::vector<std::string>& arguments,
                       std::string_view text) {
    if (format == Format::kJson) {
        return jsonLine({{"service", service}, {"arguments", arguments}, {"text", text}});
    }
    return escapeText(text);
}

std::string renderServices(Format format, const std::vector<ServiceState>& services) {
    if (format == Format::kJson) {
        Json list = Json::array();
        for (const ServiceState& service : services) {
            list.push_back({{"name", service.name}, {"state", lifeText(service.life)}});
        }
        return jsonLine({{"services", list}});
    }
    size_t width = 0;
    for (const ServiceState& service : services) {
        width = std::max(width, escapeLine(service.name).size());
    }
    std::string text;
    for (const ServiceState& service : services) {
        text += padded(escapeLine(service.name), width) + "  " + lifeText(service.life) + "\n";
    }
    return text;
}

std::string renderEvent(Format format, const Event& event, bool properties) {
    return format == Format::kJson ? eventJson(event) : eventHuman(event, properties);
}

}  // namespace devicectl
