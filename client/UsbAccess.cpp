// SPDX-License-Identifier: Apache-2.0
#include "client/UsbAccess.h"

#include "client/HostNotifier.h"
#include "client/Lists.h"
#include "client/SessionNotifier.h"
#include "usb/BnUsbManagerNotifier.h"

namespace client {

using android::IBinder;
using android::sp;
using android::wp;

namespace {

using ManagerNotifier = SessionNotifier<UsbAccess, usb::UsbManagerNotifierItf>;

class DeviceNotifier : public SessionNotifier<UsbAccess, usb::UsbHostNotifierItf> {
  public:
    using SessionNotifier::SessionNotifier;

    int32_t onUsbDeviceAttached(const sp<usb::UsbDeviceItf>& device) override { return hear(true, device); }
    int32_t onUsbDeviceDetached(const sp<usb::UsbDeviceItf>& device) override { return hear(false, device); }
};

}  // namespace

bool UsbAccess::isSame(const Record& one, const Record& other) {
    return one.getBusNumber() == other.getBusNumber() && one.getVendorId() == other.getVendorId() &&
           one.getProductId() == other.getProductId() && one.getDeviceClass() == other.getDeviceClass() &&
           one.getDeviceSubClass() == other.getDeviceSubClass() &&
           one.getDeviceProtocol() == other.getDeviceProtocol() &&
           one.getInterfaceCount() == other.getInterfaceCount();
}

sp<IBinder> UsbAccess::addNotifier(const sp<Manager>& manager, const sp<IBinder>& service,
                                   const wp<Session>& session, uint64_t connection) {
    sp<IBinder> notifier = new usb::BnUsbManagerNotifier(new ManagerNotifier(session, connection));
    manager->addNotifier(notifier);
    HostNotifier::attach(manager, service,
                         new DeviceNotifier(session, connection, Event::Kind::kHostNumbered));
    return notifier;
}

void UsbAccess::removeNotifier(const sp<Manager>& manager, const sp<IBinder>& notifier) {
    HostNotifier::detach();
    manager->removeNotifier(notifier);
}

std::vector<sp<usb::UsbDeviceItf>> UsbAccess::read(const sp<Manager>& manager,
                                                   const Environment& /*environment*/,
                                                   const std::vector<sp<Record>>& /*known*/) {
    return Lists::usbDevices(*manager);
}

}  // namespace client
