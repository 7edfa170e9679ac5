// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/Status.h"

#include <algorithm>
#include <charconv>
#include <system_error>

#include "tools/devicectl/RenderParts.h"

namespace devicectl {

namespace {

constexpr std::string_view kClients = "notifier size[";
constexpr std::string_view kDevice = "---device[";

using Service = Status::Service;

Json orNull(const std::optional<int>& count) {
    return count ? Json(*count) : Json(nullptr);
}

std::string orDash(const std::optional<int>& count) {
    return count ? std::to_string(*count) : "-";
}

/** "1 volume", "2 volumes" */
std::string counted(const std::optional<int>& count, const std::string& what) {
    return orDash(count) + " " + what + (count == 1 ? "" : "s");
}

std::string holdings(const Status& status, const std::string& service) {
    if (service == "VolumeManager") {
        return counted(status.volumes, "volume") + ", " + orDash(status.mounted) + " mounted";
    }
    return service == "UsbManager" ? counted(status.usbDevices, "USB device")
                                   : counted(status.devices, "device");
}

/** The first service that is not up; null when all are. */
const Service* firstDown(const Status& status) {
    const auto found =
        std::find_if(status.services.begin(), status.services.end(),
                     [](const Service& service) { return service.life != ServiceState::Life::kAlive; });
    return found != status.services.end() ? &*found : nullptr;
}

std::string statusJson(const Status& status) {
    Json services = Json::array();
    for (const Service& service : status.services) {
        services.push_back({{"name", service.name},
                            {"state", lifeText(service.life)},
                            {"clients", orNull(service.clients)}});
    }
    return jsonLine({{"all_up", firstDown(status) == nullptr},
                     {"client_version", status.version},
                     {"services", services},
                     {"devices", orNull(status.devices)},
                     {"volumes", orNull(status.volumes)},
                     {"mounted", orNull(status.mounted)},
                     {"usb_devices", orNull(status.usbDevices)}});
}

}  // namespace

std::string renderStatus(Format format, const Status& status) {
    if (format == Format::kJson) {
        return statusJson(status);
    }
    std::vector<std::vector<std::string>> rows{{"SERVICE", "CLIENTS", "HOLDS", "STATE"}};
    for (const Service& service : status.services) {
        // Colors have no width: they stand in the last column alone.
        rows.push_back({service.name, orDash(service.clients), holdings(status, service.name),
                        painted(format, colorOf(service.life), lifeText(service.life))});
    }
    return tableText(format, rows) + "devicectl " + status.version + "\n";
}

std::string complaintOf(const Status& status) {
    const Service* const service = firstDown(status);
    if (service == nullptr) {
        return "";
    }
    switch (service->life) {
        case ServiceState::Life::kMissing:
            return "service " + service->name + " is not registered: start device-service";
        case ServiceState::Life::kDead:
            return "service " + service->name +
                   " is registered but its process is dead: restart device-service";
        default:
            return "no answer from " + service->name + ": its process hangs or is stopped";
    }
}

ExitCode exitCodeOf(const Status& status) {
    const Service* const service = firstDown(status);
    if (service == nullptr) {
        return kOk;
    }
    return service->life == ServiceState::Life::kMissing ? kNoService
           : service->life == ServiceState::Life::kDead  ? kDaemonDied
                                                         : kFailed;
}

std::optional<int> clientsIn(const std::string& dump) {
    const size_t found = dump.find(kClients);
    if (found == std::string::npos) {
        return std::nullopt;
    }
    int count = 0;
    const char* const begin = dump.data() + found + kClients.size();
    const auto [rest, error] = std::from_chars(begin, dump.data() + dump.size(), count);
    return error == std::errc() ? std::optional(count) : std::nullopt;
}

int devicesIn(const std::string& dump) {
    int count = 0;
    for (size_t line = 0; line < dump.size();) {
        // Only at the beginning of a line: what a device is called may hold the same text.
        count += dump.compare(line, kDevice.size(), kDevice) == 0 ? 1 : 0;
        const size_t end = dump.find('\n', line);
        line = end == std::string::npos ? dump.size() : end + 1;
    }
    return count;
}

}  // namespace devicectl
