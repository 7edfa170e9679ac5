// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>
#include <binder/IInterface.h>
#include <utils/String8.h>
#include <utils/Vector.h>

#include "device/DeviceItf.h"

namespace device {

/**
 * The service "DeviceManager": devices of the unit's card and USB controllers, queries and notifications.
 *
 * In a client, the proxy that android::interface_cast<IDeviceManager>() makes of the service's binder; every
 * operation is one synchronous call, from any thread. When the call fails (the daemon died, the binder is not
 * of this interface) results are 0, empty or null; IBinder::isBinderAlive() of asBinder() tells a dead
 * daemon.
 */
class IDeviceManager : public android::IInterface {
  public:
    DECLARE_META_INTERFACE(DeviceManager)

    /** Name under which the service is registered. */
    static constexpr const char* kServiceName = "DeviceManager";

    /** Transaction codes. The values are the wire contract. */
    enum Transaction : uint32_t {
        kAddNotifier = 1,
        kRemoveNotifier = 2,
        kStartup = 3,
        kShutdown = 4,
        kGetDevice = 5,
        kGetDevices = 6,
        kGetDevicePath = 7,
    };

    /** Starts the manager, and with it the daemon's uevent thread. @return 0; a repeated start is harmless */
    virtual int startup() = 0;

    /** Stops the manager, and with it the daemon's uevent thread. @return 0; a repeated stop is harmless */
    virtual int shutdown() = 0;

    /**
     * Registers the calling process's notifier.
     *
     * One per process: a second one without a removal in between, or a null binder, is a broken contract and
     * ends the daemon.
     *
     * @param notifier binder of a BnDeviceManagerNotifier of the caller; kept until it is removed or dies
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

    /**
     * The first device of @p subsystem whose property "DEVNAME" is @p devName; null if there is none.
     *
     * Only for subsystems whose devices all have a node ("block"): where one without "DEVNAME" is met before
     * a match, the question ends the daemon.
     */
    virtual android::sp<DeviceItf> getDevice(const android::String8& subsystem,
                                             const android::String8& devName) = 0;

    /** The devices whose paths are strict prefixes of @p path, in order of arrival. */
    virtual android::Vector<android::sp<DeviceItf>> getDevices(const android::String8& path) = 0;

    /**
     * The path of a controller of the unit, below the sysfs root.
     * @param type a ControllerType, of device/DeviceManagerItf.h: 1 USB host, 2 card
     * @param id   0 to 2 for USB host controllers, 0 to 1 for card controllers
     * @return "unknown" when there is none such
     */
    virtual android::String8 getDevicePath(int type, int id) = 0;
};

}  // namespace device
