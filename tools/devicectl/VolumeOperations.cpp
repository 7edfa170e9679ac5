// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/VolumeOperations.h"

namespace devicectl {

using android::sp;
using android::String8;
using volume::IVolumeManager;
using volume::VolumeItf;

namespace {

/** Name of the placeholder that stands for an index past the end; no device is called so. */
constexpr const char* kPastTheEnd = "unknown";
/** Walks until two agree; a list that changes all the time is shown as it was last seen. */
constexpr int kMostWalks = 10;

/** The list by one walk. It may change on the way, which shifts the volumes behind the change. */
Volumes walk(IVolumeManager& manager) {
    Volumes volumes;
    const int count = manager.getVolumeCount();
    for (int index = 0; index < count; ++index) {
        const sp<VolumeItf> volume = manager.queryVolume(index);
        if (volume == nullptr || volume->getName() == kPastTheEnd) {
            break;
        }
        volumes.add(volume);
    }
    return volumes;
}

bool isSame(const VolumeItf& left, const VolumeItf& right) {
    return left.getName() == right.getName() && left.getUuid() == right.getUuid() &&
           left.getMountPath() == right.getMountPath() && left.getAccessPath() == right.getAccessPath();
}

bool isSame(const Volumes& left, const Volumes& right) {
    if (left.size() != right.size()) {
        return false;
    }
    for (size_t i = 0; i < left.size(); ++i) {
        if (!isSame(*left[i], *right[i])) {
            return false;
        }
    }
    return true;
}

}  // namespace

Volumes listVolumes(IVolumeManager& manager) {
    Volumes volumes = walk(manager);
    for (int walks = 1; walks < kMostWalks; ++walks) {
        const Volumes again = walk(manager);
        const bool agrees = isSame(volumes, again);
        volumes = again;
        if (agrees) {
            break;
        }
    }
    return volumes;
}

bool isKnown(const String8& text) {
    return !text.isEmpty() && text != kPastTheEnd;
}

}  // namespace devicectl
