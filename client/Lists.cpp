// SPDX-License-Identifier: Apache-2.0
#include "client/Lists.h"

#include <functional>
#include <map>
#include <set>

#include "client/DevicePaths.h"

namespace client {

using android::sp;
using android::String8;

namespace {

constexpr int kReadings = 10;

/** What no listed volume is called: the end of the list. */
constexpr const char* kNoVolume = "unknown";

std::string keyOf(const sp<volume::VolumeItf>& volume) {
    return std::string(volume->getName().string()) + '\n' + volume->getUuid().string();
}

uint32_t keyOf(const sp<usb::UsbDeviceItf>& device) {
    return device->getId();
}

template <typename Record>
bool agree(const std::vector<Record>& one, const std::vector<Record>& other) {
    if (one.size() != other.size()) {
        return false;
    }
    for (size_t i = 0; i < one.size(); ++i) {
        if (keyOf(one[i]) != keyOf(other[i])) {
            return false;
        }
    }
    return true;
}

/** A list that is walked by index moves when an entry leaves it, and the walk then misses another one. */
template <typename Record>
std::vector<Record> readUntilItAgrees(const std::function<std::vector<Record>()>& read) {
    std::vector<Record> last = read();
    for (int i = 1; i < kReadings; ++i) {
        std::vector<Record> next = read();
        const bool same = agree(last, next);
        last.swap(next);
        if (same) {
            break;
        }
    }
    return last;
}

}  // namespace

std::vector<sp<device::DeviceItf>> Lists::devices(device::IDeviceManager& manager) {
    return devices(manager, devicePaths());
}

std::vector<sp<device::DeviceItf>> Lists::devices(device::IDeviceManager& manager,
                                                  const std::vector<std::string>& paths) {
    std::vector<sp<device::DeviceItf>> found;
    std::set<std::string> seen;
    for (const std::string& path : deepest(paths)) {
        // The service answers for what is strictly above, and compares text: "1-1" is above "1-10/" to it.
        const std::string asked = path + "/";
        for (const sp<device::DeviceItf>& device : manager.getDevices(String8(asked.c_str()))) {
            const std::string above = std::string(device->getPath().string()) + "/";
            if (asked.compare(0, above.size(), above) == 0 && seen.insert(above).second) {
                found.push_back(device);
            }
        }
    }
    return found;
}

std::vector<sp<volume::VolumeItf>> Lists::volumes(volume::IVolumeManager& manager) {
    return readUntilItAgrees<sp<volume::VolumeItf>>([&manager] {
        std::vector<sp<volume::VolumeItf>> volumes;
        for (int index = 0;; ++index) {
            const sp<volume::VolumeItf> volume = manager.queryVolume(index);
            if (volume == nullptr || volume->getName() == kNoVolume) {
                return volumes;
            }
            volumes.push_back(volume);
        }
    });
}

std::vector<sp<usb::UsbDeviceItf>> Lists::usbDevices(usb::IUsbManager& manager) {
    return readUntilItAgrees<sp<usb::UsbDeviceItf>>([&manager] {
        // The service's order has no meaning; one that an arrival moved on is met twice.
        std::map<uint32_t, sp<usb::UsbDeviceItf>> byId;
        const int count = manager.getUsbDeviceCount();
        for (int index = 0; index < count; ++index) {
            const sp<usb::UsbDeviceItf> device = manager.queryUsbDevice(index);
            if (device == nullptr) {
                break;
            }
            byId[device->getId()] = device;
        }
        std::vector<sp<usb::UsbDeviceItf>> devices;
        devices.reserve(byId.size());
        for (const auto& [id, device] : byId) {
            devices.push_back(device);
        }
        return devices;
    });
}

}  // namespace client
