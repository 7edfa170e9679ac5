// SPDX-License-Identifier: Apache-2.0
#include <binder/IServiceManager.h>
#include <utils/Errors.h>
#include <utils/String16.h>
#include <utils/Vector.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <thread>
#include <utility>
#include <vector>

#include "client/Lists.h"
#include "device/IDeviceManager.h"
#include "tools/devicectl/Commands.h"
#include "tools/devicectl/MemoryFile.h"
#include "tools/devicectl/StandardStreams.h"
#include "tools/devicectl/Status.h"
#include "tools/devicectl/VolumeOperations.h"

namespace devicectl {

using android::IBinder;
using android::interface_cast;
using android::sp;
using android::String16;
using android::Vector;
using device::IDeviceManager;
using usb::IUsbManager;
using volume::IVolumeManager;
using volume::VolumeItf;

namespace {

/** A service that says nothing for so long is silent. */
constexpr std::chrono::seconds kSilence{2};

/** What one service tells. */
struct Report {
    Status::Service service;
    std::optional<int> held;
    std::optional<int> mounted;
};

std::optional<std::string> dumpOf(const sp<IBinder>& service, const char* argument) {
    const MemoryFile file;
    Vector<String16> arguments;
    if (argument != nullptr) {
        arguments.add(String16(argument));
    }
    std::string text;
    if (file.fd() < 0 || service->dump(file.fd(), arguments) != android::OK || file.read(&text) != 0) {
        return std::nullopt;
    }
    return text;
}

void countVolumes(const sp<IBinder>& service, Report* report) {
    const Volumes volumes = listVolumes(*interface_cast<IVolumeManager>(service));
    report->held = static_cast<int>(volumes.size());
    report->mounted =
        static_cast<int>(std::count_if(volumes.begin(), volumes.end(), [](const sp<VolumeItf>& volume) {
            return isKnown(volume->getMountPath());
        }));
}

Report ask(const std::string& name) {
    Report report;
    report.service.name = name;
    const sp<IBinder> service = android::defaultServiceManager()->checkService(String16(name.c_str()));
    if (service == nullptr) {
        return report;
    }
    const std::optional<std::string> clients = dumpOf(service, "notifier");
    if (clients) {
        report.service.clients = clientsIn(*clients);
    }
    if (name == IVolumeManager::kServiceName) {
        countVolumes(service, &report);
    } else if (name == IUsbManager::kServiceName) {
        report.held =
            static_cast<int>(client::Lists::usbDevices(*interface_cast<IUsbManager>(service)).size());
    } else {
        const std::optional<std::string> devices = dumpOf(service, nullptr);
        report.held = devices ? std::optional(devicesIn(*devices)) : std::nullopt;
    }
    // Last: of a service that died on the way nothing counts.
    const bool alive = service->pingBinder() != android::DEAD_OBJECT;
    if (!alive) {
        report = {{name, ServiceState::Life::kDead, std::nullopt}, std::nullopt, std::nullopt};
    } else {
        report.service.life = ServiceState::Life::kAlive;
    }
    return report;
}

/** Asks on a thread of its own, which is left behind when the service does not answer. */
std::future<Report> askBeside(const std::string& name) {
    std::packaged_task<Report()> task([name] { return ask(name); });
    std::future<Report> answer = task.get_future();
    std::thread(std::move(task)).detach();
    return answer;
}

}  // namespace

ExitCode runStatus(const Options& options) {
    constexpr std::array kNames{IDeviceManager::kServiceName, IVolumeManager::kServiceName,
                                IUsbManager::kServiceName};
    // The service manager's proxy is made before several threads ask for it.
    android::defaultServiceManager();
    std::vector<std::future<Report>> answers;
    answers.reserve(kNames.size());
    for (const char* const name : kNames) {
        answers.push_back(askBeside(name));
    }
    Status status;
    status.version = DEVICE_SERVICE_VERSION;
    const auto deadline = std::chrono::steady_clock::now() + kSilence;
    for (size_t i = 0; i < kNames.size(); ++i) {
        Report report{{kNames[i], ServiceState::Life::kSilent, std::nullopt}, std::nullopt, std::nullopt};
        if (answers[i].wait_until(deadline) == std::future_status::ready) {
            report = answers[i].get();
        }
        status.services.push_back(report.service);
        const std::string name = kNames[i];
        if (name == IVolumeManager::kServiceName) {
            status.volumes = report.held;
            status.mounted = report.mounted;
        } else {
            (name == IUsbManager::kServiceName ? status.usbDevices : status.devices) = report.held;
        }
    }
    const ExitCode printed = print(renderStatus(options.format, status));
    const std::string complaint = complaintOf(status);
    if (complaint.empty()) {
        return printed;
    }
    reportError(complaint);
    return exitCodeOf(status);
}

}  // namespace devicectl
