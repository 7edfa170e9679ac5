// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>
#include <utils/RefBase.h>

#include <cstdint>
#include <vector>

#include "client/Environment.h"
#include "client/Events.h"
#include "usb/IUsbManager.h"

namespace client {

class Session;

/**
 * The USB manager as a session uses it: what its records are told apart by, and how it is registered with
 * and read. The functions that take a manager call the daemon: no lock held.
 */
struct UsbAccess {
    using Record = usb::UsbDeviceItf;
    using Manager = usb::IUsbManager;
    using Key = uint32_t;
    static constexpr Service kService = Service::kUsbManager;

    /** Its identifier; a daemon gives none twice, the next one begins anew. */
    static Key keyOf(const Record& device) { return device.getId(); }

    /** Whether both may be one device: the same bus and the same descriptor. */
    static bool isSame(const Record& one, const Record& other);

    /**
     * Registers a manager notifier that tells @p session of @p connection, and makes the process's host
     * notifier tell it too. @return the binder of the former
     */
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
