// SPDX-License-Identifier: Apache-2.0
#include "client/Events.h"

#include "device/IDeviceManager.h"
#include "usb/IUsbManager.h"
#include "volume/IVolumeManager.h"

namespace client {

const char* Events::nameOf(Service service) {
    switch (service) {
        case Service::kDeviceManager:
            return device::IDeviceManager::kServiceName;
        case Service::kVolumeManager:
            return volume::IVolumeManager::kServiceName;
        case Service::kUsbManager:
            return usb::IUsbManager::kServiceName;
    }
    return "unknown";
}

}  // namespace client
