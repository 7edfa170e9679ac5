// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>
#include <binder/IInterface.h>

#include "volume/VolumeItf.h"

namespace volume {

/**
 * The service "VolumeManager": the volumes on the unit's removable disks, and notifications of them.
 *
 * In a client, the proxy that android::interface_cast<IVolumeManager>() makes of the service's binder; every
 * operation is one synchronous call, from any thread. When the call fails (the daemon died, the binder is not
 * of this interface) results are 0 or null; IBinder::isBinderAlive() of asBinder() tells a dead daemon.
 */
class IVolumeManager : public android::IInterface {
  public:
    DECLARE_META_INTERFACE(VolumeManager)

    /** Name under which the service is registered. */
    static constexpr const char* kServiceName = "VolumeManager";

    /** Transaction codes. The values are the wire contract. */
    enum Transaction : uint32_t {
        kAddNotifier = 1,
        kRemoveNotifier = 2,
        kStartup = 3,
        kShutdown = 4,
        kGetVolumeCount = 5,
        kQueryVolume = 6,
    };

    /** Starts the manager: disks that come from now on are mounted. @return 0; a repeated start is harmless
     */
    virtual int startup() = 0;

    /** Stops the manager; what is mounted stays mounted. @return 0; a repeated stop is harmless */
    virtual int shutdown() = 0;

    /**
     * Registers the calling process's notifier.
     *
     * One per process: a second one without a removal in between, or a null binder, is a broken contract and
     * ends the daemon.
     *
     * @param notifier binder of a BnVolumeManagerNotifier of the caller; kept until it is removed or dies
     * @return 0
     */
    virtual int addNotifier(const android::sp<android::IBinder>& notifier) = 0;

    /**
     * Removes the calling process's notifier.
     *
     * Call it only with a notifier registered: otherwise, and with a null binder, it ends the daemon.
     *
     * @param notifier the binder that was registered
     * @return 0
     */
    virtual int removeNotifier(const android::sp<android::IBinder>& notifier) = 0;

    /** How many volumes are listed. */
    virtual int getVolumeCount() = 0;

    /**
     * The volume at @p index of the list, which is in ascending order of the device names.
     *
     * The list may change between two calls. A caller that walks it sees its end as the volume whose name is
     * "unknown", which no listed volume has: any index outside of the list yields the placeholder, all of
     * whose texts are "unknown".
     *
     * @return null only when the call fails
     */
    virtual android::sp<VolumeItf> queryVolume(int index) = 0;
};

}  // namespace volume
