// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include <string>
#include <vector>

#include "device/IDeviceManager.h"
#include "usb/IUsbManager.h"
#include "volume/IVolumeManager.h"

namespace client {

/**
 * What a service lists at this moment, as a standard container. Each function calls the daemon several times
 * and waits for its answers; any thread.
 *
 * The list may change meanwhile: volumes() and usbDevices() read until two readings agree, ten times at most.
 * When the daemon dies meanwhile the result is a part of the list, or empty: ask isBinderAlive() of the
 * service's binder. A Client has all of this already, in Client::devices() and its siblings.
 */
class Lists {
  public:
    /**
     * The devices that the device manager lists.
     *
     * The service answers questions about a path only: it is asked for every device of the kernel that could
     * be listed, found under /sys/class and /sys/bus. What the kernel has dropped just now is left out, and
     * so is everything where no sysfs is mounted.
     */
    static std::vector<android::sp<device::DeviceItf>> devices(device::IDeviceManager& manager);

    /** Those of the listed devices that are at one of @p paths, or above one. Asks once for each path. */
    static std::vector<android::sp<device::DeviceItf>> devices(device::IDeviceManager& manager,
                                                               const std::vector<std::string>& paths);

    /** The volumes that the volume manager lists, in ascending order of their names. */
    static std::vector<android::sp<volume::VolumeItf>> volumes(volume::IVolumeManager& manager);

    /** The USB devices that the USB manager lists, hubs included, in the order in which they came. */
    static std::vector<android::sp<usb::UsbDeviceItf>> usbDevices(usb::IUsbManager& manager);

    Lists() = delete;
};

}  // namespace client
