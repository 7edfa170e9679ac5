// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>
#include <utils/String8.h>
#include <utils/Vector.h>

#include "device/DeviceItf.h"
#include "device/DeviceManagerNotifierItf.h"

namespace device {

/** Controller types that getDevicePath() knows. The values are part of the client interface. */
enum ControllerType : int {
    kControllerUsbHost = 1,  ///< USB host controllers, ids 0 to 2
    kControllerCard = 2,     ///< SD/MMC card controllers, ids 0 to 1
};

/**
 * The device manager as its users see it. All operations: any thread.
 */
class DeviceManagerItf : public virtual android::RefBase {
  public:
    /**
     * Starts listening. A second start in a row only logs.
     * @return 0 always
     */
    virtual int startup() = 0;

    /**
     * Stops listening; the devices listed stay listed. A second stop in a row only logs.
     * @return 0 always
     */
    virtual int shutdown() = 0;

    /**
     * Sets the one notifier that hears of every device. Before start only.
     * @return 0 always
     */
    virtual int setNotifier(const android::sp<DeviceManagerNotifierItf>& notifier) = 0;

    /**
     * The first device, in order of arrival, of @p subsystem whose "DEVNAME" property is @p devName; null if
     * there is none.
     *
     * Aborts the process when a device of that subsystem has no "DEVNAME" and is met before a match: meant
     * for subsystems whose devices all have a node, such as "block".
     */
    virtual android::sp<DeviceItf> getDevice(const android::String8& subsystem,
                                             const android::String8& devName) = 0;

    /** Every device whose path is a strict prefix of @p path, in order of arrival. */
    virtual android::Vector<android::sp<DeviceItf>> getDevices(const android::String8& path) = 0;

    /**
     * The path of a controller of the unit.
     *
     * @param type a ControllerType
     * @param id   0 to 2 for USB host controllers, 0 to 1 for card controllers
     * @return "unknown" for any other type or id
     */
    virtual android::String8 getDevicePath(int type, int id) = 0;

  protected:
    ~DeviceManagerItf() override = default;
};

}  // namespace device
