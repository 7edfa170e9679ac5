// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "tools/devicectl/Render.h"

namespace devicectl {

/*
 * What the command wait prints of what it found, as Render.h says. Pure functions, any thread.
 */

std::string renderFoundServices(Format format, const std::vector<ServiceState>& services);

/** The human form is the table of one row. */
std::string renderFoundVolume(Format format, const android::sp<volume::VolumeItf>& volume);

/** The human form is the table of one row. */
std::string renderFoundUsbDevice(Format format, const android::sp<usb::UsbDeviceItf>& device,
                                 const UsbNames& names);

}  // namespace devicectl
