// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/devicectl/ExitCode.h"
#include "tools/devicectl/Render.h"

namespace devicectl {

/** The daemon at a glance. A number is absent when the service that knows it gave no answer. A value. */
struct Status {
    struct Service {
        std::string name;
        ServiceState::Life life = ServiceState::Life::kMissing;
        std::optional<int> clients;  ///< registered notifiers, those of USB devices left out
    };

    std::string version;            ///< of this client
    std::vector<Service> services;  ///< in the order of their registration
    std::optional<int> devices;
    std::optional<int> volumes;
    std::optional<int> mounted;  ///< of the volumes
    std::optional<int> usbDevices;
};

/** Text as Render.h says. */
std::string renderStatus(Format format, const Status& status);

/** The first thing that is wrong, in one line; empty when all is up. */
std::string complaintOf(const Status& status);

/** kOk when all is up; otherwise kNoService, kDaemonDied or kFailed for what complaintOf() tells. */
ExitCode exitCodeOf(const Status& status);

/** The number behind "notifier size[" in a service's dump of its clients; nothing if it is not there. */
std::optional<int> clientsIn(const std::string& dump);

/** How many devices the device manager's dump lists. */
int devicesIn(const std::string& dump);

}  // namespace devicectl
