// SPDX-License-Identifier: Apache-2.0
#include "device/IDeviceManager.h"

#include "device/BpDeviceManager.h"

namespace device {

static_assert(IDeviceManager::kAddNotifier == 1);
static_assert(IDeviceManager::kGetDevicePath == 7);

IMPLEMENT_META_INTERFACE(DeviceManager, "device.DeviceManager")

}  // namespace device
