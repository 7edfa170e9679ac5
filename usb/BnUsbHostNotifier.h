// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IInterface.h>

#include "usb/IUsbHostNotifier.h"

namespace usb {

/**
 * The client's end of its host notifier: unpacks the service's calls and passes them to the client's own
 * object.
 *
 * The operations run on the client's binder threads (android::ProcessState::startThreadPool()), one at a time
 * as the service sends them.
 */
class BnUsbHostNotifier : public android::BnInterface<IUsbHostNotifier> {
  public:
    /** Passes everything to @p impl. Aborts the process when it is null. */
    explicit BnUsbHostNotifier(const android::sp<UsbHostNotifierItf>& impl);

    int32_t onEvent(int32_t event, int32_t value) override;  ///< To the client's object.
    int32_t onUsbDeviceAttached(const android::sp<UsbDeviceItf>& device) override;  ///< Likewise.
    int32_t onUsbDeviceDetached(const android::sp<UsbDeviceItf>& device) override;  ///< Likewise.

    /** @return -1 when the request is not for this interface; an error status when it is cut short */
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags = 0) override;

  protected:
    ~BnUsbHostNotifier() override = default;

  private:
    const android::sp<UsbHostNotifierItf> mImpl;
};

}  // namespace usb
