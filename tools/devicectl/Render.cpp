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

std::string eventJson(const Event& event) {
    Json json;
    switch (event.kind) {
        case Event::Kind::kDeviceAdded:
        case Event::Kind::kDeviceRemoved:
            json["event"] = event.kind == Event::Kind::kDeviceAdded ? "device-added" : "device-removed";
            json["time"] = unixSeconds(event.time);
            json.update(deviceJson(*event.device));
            break;
        case Event::Kind::kDeviceEvent:
            json["event"] = "device-event";
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
            return head + "event    code " + std::to_string(event.code) + ", value " +
                   std::to_string(event.value) + "\n";
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
