// SPDX-License-Identifier: Apache-2.0
#include "client/Client.h"

#include <algorithm>
#include <utility>

#include "client/Session.h"

namespace client {

using android::sp;
using android::status_t;

Client::Client() : Client(Environment::ofTheSystem()) {}

Client::Client(Environment environment) : mSession(new Session(std::move(environment))) {}

Client::~Client() {
    mSession->stop();
}

status_t Client::start(Events events, const Options& options) {
    return mSession->start(std::move(events), options);
}

bool Client::waitUntilConnected(std::chrono::milliseconds limit) {
    // Longer than anything runs, and short enough to count in nanoseconds.
    constexpr std::chrono::milliseconds kLongest = std::chrono::hours(24 * 365 * 100);
    const auto clamped = std::clamp(limit, std::chrono::milliseconds(0), kLongest);
    return mSession->waitUntilConnected(std::chrono::nanoseconds(clamped).count());
}

bool Client::isConnected(Service service) const {
    return mSession->isConnected(service);
}

std::vector<sp<device::DeviceItf>> Client::devices() const {
    return mSession->told<DeviceAccess>();
}

std::vector<sp<volume::VolumeItf>> Client::volumes() const {
    return mSession->told<VolumeAccess>();
}

std::vector<sp<usb::UsbDeviceItf>> Client::usbDevices() const {
    return mSession->told<UsbAccess>();
}

sp<device::IDeviceManager> Client::deviceManager() const {
    return mSession->manager<DeviceAccess>();
}

sp<volume::IVolumeManager> Client::volumeManager() const {
    return mSession->manager<VolumeAccess>();
}

sp<usb::IUsbManager> Client::usbManager() const {
    return mSession->manager<UsbAccess>();
}

}  // namespace client
