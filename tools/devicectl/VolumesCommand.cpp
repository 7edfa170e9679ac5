// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/CallLimit.h"
#include "tools/devicectl/Commands.h"
#include "tools/devicectl/StandardStreams.h"
#include "tools/devicectl/VolumeOperations.h"

namespace devicectl {

using android::IBinder;
using android::interface_cast;
using android::sp;
using volume::IVolumeManager;

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
