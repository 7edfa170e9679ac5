// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/Render.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>

#include "tools/devicectl/RenderParts.h"
#include "tools/devicectl/Text.h"

namespace devicectl {

using android::sp;
using android::Vector;
using device::DeviceItf;
using usb::UsbDeviceItf;
using volume::VolumeItf;

namespace {

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

std::string eventHuman(Format format, const Event& event, bool properties) {
    const auto word = [format](Color color, const char* text) { return painted(format, color, text) + " "; };
    const std::string head = clockText(event.time) + "  ";
    switch (event.kind) {
        case Event::Kind::kDeviceAdded:
            return head + word(Color::kGood, "added   ") + deviceColumns(*event.device) + "\n" +
                   (properties ? propertyLines(*event.device) : "");
        case Event::Kind::kDeviceRemoved:
            return head + word(Color::kBad, "removed ") + deviceColumns(*event.device) + "\n";
        case Event::Kind::kDeviceEvent:
            return head + word(Color::kWait, "event   ") + codeText(event);
        case Event::Kind::kVolumeAdded:
            return head + word(Color::kGood, "added   ") + volumeColumns(*event.volume) + "\n" +
                   (properties ? volumeLines(*event.volume) : "");
        case Event::Kind::kVolumeRemoved:
            return head + word(Color::kBad, "removed ") + volumeColumns(*event.volume) + "\n";
        case Event::Kind::kVolumeEvent:
            return head + word(Color::kWait, "event   ") + "volume " + codeText(event);
        case Event::Kind::kUsbAttached:
            return head + word(Color::kGood, "attached") + usbColumns(*event.usbDevice) + "\n";
        case Event::Kind::kUsbDetached:
            return head + word(Color::kBad, "detached") + usbColumns(*event.usbDevice) + "\n";
        case Event::Kind::kUsbEvent:
            return head + word(Color::kWait, "event   ") + "usb " + codeText(event);
        case Event::Kind::kUsbHostEvent:
            return head + word(Color::kWait, "event   ") + "usb host " + codeText(event);
        case Event::Kind::kServiceUp:
            return head + word(Color::kHeading, "service ") + event.service + " reports to this monitor\n";
        case Event::Kind::kServiceDown:
            break;
    }
    return head + word(Color::kHeading, "service ") + event.service + " died; waiting for its return\n";
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
    std::vector<std::vector<std::string>> rows{volumeHeading()};
    for (const sp<VolumeItf>& volume : volumes) {
        rows.push_back(volumeRow(*volume));
    }
    return tableText(format, rows);
}

std::string renderUsbDevices(Format format, const std::vector<sp<UsbDeviceItf>>& devices,
                             const UsbNames& names) {
    if (format == Format::kJson) {
        Json list = Json::array();
        for (const sp<UsbDeviceItf>& device : devices) {
            list.push_back(usbListJson(*device, names));
        }
        return jsonLine({{"usb_devices", list}});
    }
    std::vector<std::vector<std::string>> rows{usbHeading()};
    for (const sp<UsbDeviceItf>& device : devices) {
        rows.push_back(usbRow(*device, names));
    }
    return tableText(format, rows);
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
        width = std::max(width, widthOf(escapeLine(service.name)));
    }
    std::string text;
    for (const ServiceState& service : services) {
        text += padded(escapeLine(service.name), width) + "  " +
                painted(format, colorOf(service.life), lifeText(service.life)) + "\n";
    }
    return text;
}

std::string renderEvent(Format format, const Event& event, bool properties) {
    return format == Format::kJson ? eventJson(event) : eventHuman(format, event, properties);
}

}  // namespace devicectl
