// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/devicectl/Render.h"

namespace devicectl {

/** What the command watch shows, as bytes that the daemon and the kernel gave. A value. */
struct WatchModel {
    struct Controller {
        std::string name;        ///< "usb 0", "card 1"
        std::string path;        ///< below the sysfs root
        bool isPresent = false;  ///< whether the kernel has it
    };

    struct UsbNode {
        uint32_t id = 0;
        uint32_t bus = 0;
        std::vector<uint32_t> ports;  ///< from the root hub down; empty when not known
        std::string number;           ///< VENDOR:PRODUCT
        std::string name;
        uint32_t milliamperes = 0;
        bool isHub = false;
    };

    struct Usage {
        uint64_t total = 0;  ///< bytes
        uint64_t used = 0;   ///< bytes
    };

    struct Volume {
        std::string name;
        std::string label;
        std::string format;
        std::string accessPath;
        std::optional<Usage> usage;  ///< of a mounted one
    };

    std::vector<ServiceState> services;
    std::vector<Controller> controllers;
    std::vector<UsbNode> usb;
    std::vector<Volume> volumes;
};

}  // namespace devicectl
