// SPDX-License-Identifier: Apache-2.0
#include "device/IDeviceManager.h"

#include "device/BpDeviceManager.h"

namespace device {

static_assert(IDeviceManager::kAddNotifier == android::IBinder::FIRST_CALL_TRANSACTION);
static_assert(IDeviceManager::kGetDevicePath == 7);

IMPLEMENT_META_INTERFACE(DeviceManager, "device.DeviceManager")

}  // namespace device
