// SPDX-License-Identifier: Apache-2.0
#include "client/HostNotifier.h"

#include "usb/BnUsbHostNotifier.h"

namespace client {

using android::IBinder;
using android::Mutex;
using android::sp;

/** Of this process with the daemon it was connected to last. */
struct HostNotifier::Registration {
    /** Guards the members below; held for moments only. */
    Mutex lock;
    sp<IBinder> service GUARDED_BY(lock);
    sp<HostNotifier> notifier GUARDED_BY(lock);
};

/** Never destroyed: notices may come until the very end of the process. */
HostNotifier::Registration& HostNotifier::registration() {
    static auto* const sRegistration = new Registration();
    return *sRegistration;
}

void HostNotifier::attach(const sp<usb::IUsbManager>& manager, const sp<IBinder>& service,
                          const sp<usb::UsbHostNotifierItf>& target) {
    Registration& registered = registration();
    // Goes only after the lock is released.
    sp<IBinder> former;
    sp<HostNotifier> notifier;
    {
        Mutex::Autolock lock(registered.lock);
        if (registered.service == service) {
            registered.notifier->setTarget(target);
            return;
        }
        // Until here the reference kept other binders from taking that one's place in memory.
        former = registered.service;
        notifier = new HostNotifier();
        notifier->setTarget(target);
        registered.service = service;
        registered.notifier = notifier;
    }
    manager->addHostNotifier(new usb::BnUsbHostNotifier(notifier));
}

void HostNotifier::detach() {
    Registration& registered = registration();
    Mutex::Autolock lock(registered.lock);
    if (registered.notifier != nullptr) {
        registered.notifier->setTarget(nullptr);
    }
}

int32_t HostNotifier::onUsbDeviceAttached(const sp<usb::UsbDeviceItf>& device) {
    const sp<usb::UsbHostNotifierItf> heard = target();
    return heard != nullptr ? heard->onUsbDeviceAttached(device) : 0;
}

int32_t HostNotifier::onUsbDeviceDetached(const sp<usb::UsbDeviceItf>& device) {
    const sp<usb::UsbHostNotifierItf> heard = target();
    return heard != nullptr ? heard->onUsbDeviceDetached(device) : 0;
}

int32_t HostNotifier::onEvent(int32_t event, int32_t value) {
    const sp<usb::UsbHostNotifierItf> heard = target();
    return heard != nullptr ? heard->onEvent(event, value) : 0;
}

void HostNotifier::setTarget(const sp<usb::UsbHostNotifierItf>& target) {
    Mutex::Autolock lock(mLock);
    mTarget = target;
}

sp<usb::UsbHostNotifierItf> HostNotifier::target() {
    Mutex::Autolock lock(mLock);
    return mTarget;
}

}  // namespace client
