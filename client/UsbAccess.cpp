// SPDX-License-Identifier: Apache-2.0
#include "client/UsbAccess.h"

#include "client/HostNotifier.h"
#include "client/Lists.h"
#include "client/Session.h"
#include "usb/BnUsbManagerNotifier.h"

namespace client {

using android::IBinder;
using android::sp;
using android::wp;

namespace {

class ManagerNotifier : public usb::UsbManagerNotifierItf {
  public:
    ManagerNotifier(const wp<Session>& session, uint64_t connection)
        : mSession(session), mConnection(connection) {}

    int32_t onEvent(int32_t event, int32_t value) override {
        return Session::hearNumber<UsbAccess>(mSession, mConnection, Event::Kind::kNumbered, event, value);
    }

  private:
    const wp<Session> mSession;
    const uint64_t mConnection;
};

class DeviceNotifier : public usb::UsbHostNotifierItf {
  public:
    DeviceNotifier(const wp<Session>& session, uint64_t connection)
        : mSession(session), mConnection(connection) {}

    int32_t onUsbDeviceAttached(const sp<usb::UsbDeviceItf>& device) override {
        return Session::hear<UsbAccess>(mSession, mConnection, true, device);
    }
    int32_t onUsbDeviceDetached(const sp<usb::UsbDeviceItf>& device) override {
        return Session::hear<UsbAccess>(mSession, mConnection, false, device);
    }
    int32_t onEvent(int32_t event, int32_t value) override {
        return Session::hearNumber<UsbAccess>(mSession, mConnection, Event::Kind::kHostNumbered, event,
                                              value);
    }

  private:
    const wp<Session> mSession;
    const uint64_t mConnection;
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
    HostNotifier::attach(manager, service, new DeviceNotifier(session, connection));
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
