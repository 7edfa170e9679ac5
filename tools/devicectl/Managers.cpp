// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/Managers.h"

#include <algorithm>
#include <array>

#include "device/IDeviceManager.h"
#include "usb/IUsbManager.h"
#include "volume/IVolumeManager.h"

namespace devicectl {

using android::IBinder;
using android::interface_cast;
using android::sp;

namespace {

template <typename Interface>
constexpr Manager managerOf(const char* name) {
    return {name, Interface::kServiceName,
            [](const sp<IBinder>& service) { return interface_cast<Interface>(service)->startup(); },
            [](const sp<IBinder>& service) { return interface_cast<Interface>(service)->shutdown(); }};
}

/** In starting order. The device manager turns the kernel's events on, for which the others must be ready. */
constexpr std::array kManagers{
    managerOf<volume::IVolumeManager>("volume"),
    managerOf<usb::IUsbManager>("usb"),
    managerOf<device::IDeviceManager>("device"),
};

}  // namespace

const Manager* findManager(std::string_view name) {
    const auto found = std::find_if(kManagers.begin(), kManagers.end(),
                                    [name](const Manager& manager) { return manager.name == name; });
    return found != kManagers.end() ? &*found : nullptr;
}

std::string managerNames() {
    std::string names;
    for (const Manager& manager : kManagers) {
        names += (names.empty() ? "" : ", ") + std::string(manager.name);
    }
    return names;
}

std::vector<const Manager*> managersToStart(std::string_view name) {
    std::vector<const Manager*> chosen;
    for (const Manager& manager : kManagers) {
        if (name.empty() || manager.name == name) {
            chosen.push_back(&manager);
        }
    }
    return chosen;
}

std::vector<const Manager*> managersToStop(std::string_view name) {
    std::vector<const Manager*> chosen = managersToStart(name);
    std::reverse(chosen.begin(), chosen.end());
    return chosen;
}

}  // namespace devicectl
