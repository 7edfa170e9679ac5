// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/VolumeOperations.h"

#include "client/Lists.h"

namespace devicectl {

using android::String8;

namespace {

/** What the daemon says of what it does not know. */
constexpr const char* kUnknown = "unknown";

}  // namespace

Volumes listVolumes(volume::IVolumeManager& manager) {
    Volumes volumes;
    for (const auto& volume : client::Lists::volumes(manager)) {
        volumes.add(volume);
    }
    return volumes;
}

bool isKnown(const String8& text) {
    return !text.isEmpty() && text != kUnknown;
}

}  // namespace devicectl
