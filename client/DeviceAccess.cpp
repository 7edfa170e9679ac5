// SPDX-License-Identifier: Apache-2.0
#include "client/DeviceAccess.h"

#include <cstring>
#include <map>

#include "client/Lists.h"
#include "client/SessionNotifier.h"
#include "device/BnDeviceManagerNotifier.h"

namespace client {

using android::IBinder;
using android::sp;
using android::wp;

namespace {

class Notifier : public SessionNotifier<DeviceAccess, device::DeviceManagerNotifierItf> {
  public:
    using SessionNotifier::SessionNotifier;

    int32_t onDeviceAdded(const sp<device::DeviceItf>& device) override { return hear(true, device); }
    int32_t onDeviceRemoved(const sp<device::DeviceItf>& device) override { return hear(false, device); }
};

/** Properties that describe a uevent and not its device: a repeated "add" has others. */
bool isOfTheUevent(const android::String8& name) {
    return name == "ACTION" || name == "SEQNUM" || name == "SYNTH_UUID";
}

std::map<std::string, std::string> propertiesOf(const device::DeviceItf& device) {
    std::map<std::string, std::string> properties;
    for (size_t i = 0; i < device.getParamSize(); ++i) {
        if (!isOfTheUevent(device.getParamName(i))) {
            properties.emplace(device.getParamName(i).string(), device.getParamValue(i).string());
        }
    }
    return properties;
}

}  // namespace

bool DeviceAccess::isSame(const Record& one, const Record& other) {
    return one.getSubsystem() == other.getSubsystem() && propertiesOf(one) == propertiesOf(other);
}

sp<IBinder> DeviceAccess::addNotifier(const sp<Manager>& manager, const sp<IBinder>& /*service*/,
                                      const wp<Session>& session, uint64_t connection) {
    sp<IBinder> notifier = new device::BnDeviceManagerNotifier(new Notifier(session, connection));
    manager->addNotifier(notifier);
    return notifier;
}

void DeviceAccess::removeNotifier(const sp<Manager>& manager, const sp<IBinder>& notifier) {
    manager->removeNotifier(notifier);
}

std::vector<sp<device::DeviceItf>> DeviceAccess::read(const sp<Manager>& manager,
                                                      const Environment& environment,
                                                      const std::vector<sp<Record>>& known) {
    std::vector<std::string> paths = environment.devicePaths();
    for (const sp<Record>& device : known) {
        paths.push_back(keyOf(*device));
    }
    return Lists::devices(*manager, paths);
}

}  // namespace client
