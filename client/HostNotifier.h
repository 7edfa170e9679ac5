// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>
#include <utils/Mutex.h>

#include "usb/IUsbManager.h"
#include "usb/UsbHostNotifierItf.h"

namespace client {

/**
 * The process's USB host notifier. A daemon cannot be told to drop one, and a second one of the same process
 * ends it: what was registered once stays, for as long as daemon and process live, and the clients of this
 * process take turns at it.
 *
 * Any thread.
 */
class HostNotifier : public usb::UsbHostNotifierItf {
  public:
    /**
     * Has what @p manager reports told to @p target, and to nobody else any more; registers with it unless
     * this process is registered already. Calls the daemon.
     *
     * @param service the manager's binder, which stands for one life of the daemon
     */
    static void attach(const android::sp<usb::IUsbManager>& manager,
                       const android::sp<android::IBinder>& service,
                       const android::sp<usb::UsbHostNotifierItf>& target);

    /** Has nothing told any more. */
    static void detach();

    int32_t onUsbDeviceAttached(const android::sp<usb::UsbDeviceItf>& device) override;
    int32_t onUsbDeviceDetached(const android::sp<usb::UsbDeviceItf>& device) override;
    int32_t onEvent(int32_t event, int32_t value) override;

  private:
    struct Registration;

    static Registration& registration();
    void setTarget(const android::sp<usb::UsbHostNotifierItf>& target);
    android::sp<usb::UsbHostNotifierItf> target();

    /** Guards mTarget; held for moments only. Taken inside the registration's lock. */
    android::Mutex mLock;
    android::sp<usb::UsbHostNotifierItf> mTarget GUARDED_BY(mLock);
};

}  // namespace client
