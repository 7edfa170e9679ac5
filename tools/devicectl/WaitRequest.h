// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

namespace devicectl {

/** What the command wait is to wait for. */
struct WaitRequest {
    enum class Kind {
        kService,  ///< text: a service's name, or "all" for those of the daemon
        kVolume,   ///< text: a volume's name or label, as bytes
        kUsb,      ///< vendor and product
    };

    Kind kind = Kind::kService;
    std::string text;  ///< as it stands on the command line
    uint32_t vendor = 0;
    uint32_t product = 0;
};

}  // namespace devicectl
