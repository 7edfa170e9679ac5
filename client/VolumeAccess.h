// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>
#include <utils/RefBase.h>

#include <string>
#include <vector>

#include "client/Environment.h"
#include "client/Events.h"
#include "volume/IVolumeManager.h"

namespace client {

class Session;

/**
 * The volume manager as a session uses it: what its records are told apart by, and how it is registered with
 * and read. The functions that take a manager call the daemon: no lock held.
 */
struct VolumeAccess {
    using Record = volume::VolumeItf;
    using Manager = volume::IVolumeManager;
    using Key = std::string;
    static constexpr Service kService = Service::kVolumeManager;

    /** Its name. */
    static Key keyOf(const Record& volume) { return volume.getName().string(); }

    /** Whether both are one volume, found on one medium and reached in one place. */
    static bool isSame(const Record& one, const Record& other);

    /** Registers a notifier that tells @p session of @p connection. @return its binder */
    static android::sp<android::IBinder> addNotifier(const android::sp<Manager>& manager,
                                                     const android::sp<android::IBinder>& service,
                                                     const android::wp<Session>& session,
                                                     uint64_t connection);

    /** Takes back what addNotifier() registered. */
    static void removeNotifier(const android::sp<Manager>& manager,
                               const android::sp<android::IBinder>& notifier);

    /** What the manager lists; the other arguments do not matter. */
    static std::vector<android::sp<Record>> read(const android::sp<Manager>& manager,
                                                 const Environment& environment,
                                                 const std::vector<android::sp<Record>>& known);
};

}  // namespace client
