// SPDX-License-Identifier: Apache-2.0
#include "device/IDeviceManagerNotifier.h"

#include "device/BpDeviceManagerNotifier.h"

namespace device {

static_assert(IDeviceManagerNotifier::kOnEvent == 1);
static_assert(IDeviceManagerNotifier::kOnDeviceRemoved == 3);

IMPLEMENT_META_INTERFACE(DeviceManagerNotifier, "device.DeviceManagerNotifier")

}  // namespace device
