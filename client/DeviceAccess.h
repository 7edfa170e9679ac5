// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>
#include <utils/RefBase.h>

#include <string>
#include <vector>

#include "client/Environment.h"
#include "client/Events.h"
#include "device/IDeviceManager.h"

namespace client {

class Session;

/**
 * The device manager as a session uses it: what its records are told apart by, and how it is registered with
 * and read. The functions that take a manager call the daemon: no lock held.
 */
struct DeviceAccess {
    using Record = device::DeviceItf;
    using Manager = device::IDeviceManager;
    using Key = std::string;
    static constexpr Service kService = Service::kDeviceManager;

    /** Its path. */
    static Key keyOf(const Record& device) { return device.getPath().string(); }

    /** Whether both are one device: the same subsystem and properties, but for those of the uevent itself. */
    static bool isSame(const Record& one, const Record& other);

    /** Registers a notifier that tells @p session of @p connection. @return its binder */
    static android::sp<android::IBinder> addNotifier(const android::sp<Manager>& manager,
                                                     const android::sp<android::IBinder>& service,
                                                     const android::wp<Session>& session,
                                                     uint64_t connection);

    /** Takes back what addNotifier() registered. */
    static void removeNotifier(const android::sp<Manager>& manager,
                               const android::sp<android::IBinder>& notifier);

    /** What the manager lists; @p known is what it listed earlier. */
    static std::vector<android::sp<Record>> read(const android::sp<Manager>& manager,
                                                 const Environment& environment,
                                                 const std::vector<android::sp<Record>>& known);
};

}  // namespace client
