// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/ChangeEars.h"

#include "usb/BnUsbHostNotifier.h"
#include "usb/IUsbManager.h"
#include "usb/UsbHostNotifierItf.h"
#include "volume/BnVolumeManagerNotifier.h"
#include "volume/IVolumeManager.h"
#include "volume/VolumeManagerNotifierItf.h"

namespace devicectl {

using android::IBinder;
using android::interface_cast;
using android::sp;
using usb::IUsbManager;
using volume::IVolumeManager;

namespace {

/** A notifier of the interface @p Notifier that tells of each change without looking at it. Binder threads.
 */
template <typename Notifier>
class ChangeNotifier : public Notifier {
  public:
    int32_t onEvent(int32_t /*event*/, int32_t /*value*/) override { return tell(); }

  protected:
    explicit ChangeNotifier(const sp<WakeUp>& wakeUp) : mWakeUp(wakeUp) {}

    int32_t tell() {
        mWakeUp->post();
        return 0;
    }

  private:
    const sp<WakeUp> mWakeUp;
};

class VolumeChangeNotifier : public ChangeNotifier<volume::VolumeManagerNotifierItf> {
  public:
    explicit VolumeChangeNotifier(const sp<WakeUp>& wakeUp) : ChangeNotifier(wakeUp) {}

    int32_t onVolumeAdded(const sp<volume::VolumeItf>& /*volume*/) override { return tell(); }
    int32_t onVolumeRemoved(const sp<volume::VolumeItf>& /*volume*/) override { return tell(); }
};

class UsbChangeNotifier : public ChangeNotifier<usb::UsbHostNotifierItf> {
  public:
    explicit UsbChangeNotifier(const sp<WakeUp>& wakeUp) : ChangeNotifier(wakeUp) {}

    int32_t onUsbDeviceAttached(const sp<usb::UsbDeviceItf>& /*device*/) override { return tell(); }
    int32_t onUsbDeviceDetached(const sp<usb::UsbDeviceItf>& /*device*/) override { return tell(); }
};

}  // namespace

RegistrationKind volumeChanges(const sp<WakeUp>& wakeUp) {
    return {IVolumeManager::kServiceName,
            [wakeUp] { return new volume::BnVolumeManagerNotifier(new VolumeChangeNotifier(wakeUp)); },
            [](const sp<IBinder>& service, const sp<IBinder>& ear) {
                interface_cast<IVolumeManager>(service)->addNotifier(ear);
            },
            [](const sp<IBinder>& service, const sp<IBinder>& ear) {
                interface_cast<IVolumeManager>(service)->removeNotifier(ear);
            }};
}

RegistrationKind usbChanges(const sp<WakeUp>& wakeUp) {
    return {IUsbManager::kServiceName,
            [wakeUp] { return new usb::BnUsbHostNotifier(new UsbChangeNotifier(wakeUp)); },
            [](const sp<IBinder>& service, const sp<IBinder>& ear) {
                interface_cast<IUsbManager>(service)->addHostNotifier(ear);
            },
            // The call of that name removes the other kind of notifier, and without one ends the daemon.
            [](const sp<IBinder>& /*service*/, const sp<IBinder>& /*ear*/) {}};
}

}  // namespace devicectl
