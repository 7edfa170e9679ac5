// SPDX-License-Identifier: Apache-2.0
#include <utils/Vector.h>

#include "tools/devicectl/CallLimit.h"
#include "tools/devicectl/Commands.h"
#include "tools/devicectl/StandardStreams.h"
#include "volume/IVolumeManager.h"

namespace devicectl {

using android::IBinder;
using android::interface_cast;
using android::sp;
using android::Vector;
using volume::IVolumeManager;
using volume::VolumeItf;

namespace {

/** Name of the placeholder that stands for an index past the end; no device is called so. */
constexpr const char* kPastTheEnd = "unknown";
/** Walks until two agree; a list that changes all the time is shown as it was last seen. */
constexpr int kMostWalks = 10;

using Volumes = Vector<sp<VolumeItf>>;

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

}  // namespace

ExitCode runVolumes(const Options& options, const ServiceAccess& access) {
    sp<IBinder> service;
    const ExitCode found = access.find(IVolumeManager::kServiceName, &service);
    if (found != kOk) {
        return found;
    }
    Volumes volumes;
    {
        const CallLimit limit(access.answerSeconds(), IVolumeManager::kServiceName);
        volumes = listVolumes(*interface_cast<IVolumeManager>(service));
    }
    // A list that ends early, or is empty, is an answer only from a service that lives.
    const ExitCode alive = access.confirmAlive(IVolumeManager::kServiceName, service);
    return alive != kOk ? alive : print(renderVolumes(options.format, volumes));
}

}  // namespace devicectl
