// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace devicectl {

/** Of what a word is one that only the running daemon knows. */
enum class LiveKind {
    kNone,
    kServices,    ///< names of services
    kVolumes,     ///< names and labels of volumes
    kUsbNumbers,  ///< VENDOR:PRODUCT of USB devices
    kUsbIds,      ///< identifiers of USB devices
    kNodes,       ///< names of the nodes of volumes and their disks
};

/** What may stand at one place of a command line. A value. */
struct Choices {
    std::vector<std::string> words;
    LiveKind live = LiveKind::kNone;
};

}  // namespace devicectl
