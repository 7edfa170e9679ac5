// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * What a service lists at this moment, as a standard container. Each function calls the daemon several times
 * and waits for its answers; any thread.
 *
 * The list may change meanwhile: each function reads until two readings agree, ten times at most. When the
 * daemon dies meanwhile the result is what was read until then: ask isBinderAlive() of the service's binder.
 */

#include <utils/RefBase.h>

#include <string>
#include <vector>

#include "device/IDeviceManager.h"
#include "usb/IUsbManager.h"
#include "volume/IVolumeManager.h"

namespace client {

/**
 * The devices that the device manager lists.
 *
 * The service answers questions about a path only: it is asked for every device of the kernel that could be
 * listed, found under /sys/class and /sys/bus. What the kernel has dropped just now is left out, and so is
 * everything where no sysfs is mounted.
 */
std::vector<android::sp<device::DeviceItf>> listDevices(device::IDeviceManager& manager);

/** Those of the listed devices that are at one of @p paths, or above one. Asks once for each path. */
std::vector<android::sp<device::DeviceItf>> listDevices(device::IDeviceManager& manager,
                                                        const std::vector<std::string>& paths);

/** The volumes that the volume manager lists, in ascending order of their names. */
std::vector<android::sp<volume::VolumeItf>> listVolumes(volume::IVolumeManager& manager);

/** The USB devices that the USB manager lists, hubs included. */
std::vector<android::sp<usb::UsbDeviceItf>> listUsbDevices(usb::IUsbManager& manager);

}  // namespace client
