// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IInterface.h>

#include "usb/IUsbManagerNotifier.h"

namespace usb {

/**
 * The client's end of its manager notifier: unpacks the service's calls and passes them to the client's own
 * object.
 *
 * The operation runs on the client's binder threads (android::ProcessState::startThreadPool()), one at a time
 * as the service sends events.
 */
class BnUsbManagerNotifier : public android::BnInterface<IUsbManagerNotifier> {
  public:
    /** Passes everything to @p impl. Aborts the process when it is null. */
    explicit BnUsbManagerNotifier(const android::sp<UsbManagerNotifierItf>& impl);

    int32_t onEvent(int32_t event, int32_t value) override;  ///< To the client's object.

    /** @return -1 when the request is not for this interface; an error status when it is cut short */
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags = 0) override;

  protected:
    ~BnUsbManagerNotifier() override = default;

  private:
    const android::sp<UsbManagerNotifierItf> mImpl;
};

}  // namespace usb
