// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IInterface.h>

#include "device/IDeviceManagerNotifier.h"

namespace device {

/**
 * The client's end of its notifier: unpacks the service's calls and passes them to the client's own object.
 *
 * The operations run on the client's binder threads (android::ProcessState::startThreadPool()), one at a time
 * as the service sends them.
 */
class BnDeviceManagerNotifier : public android::BnInterface<IDeviceManagerNotifier> {
  public:
    /** Passes everything to @p impl. Aborts the process when it is null. */
    explicit BnDeviceManagerNotifier(const android::sp<DeviceManagerNotifierItf>& impl);

    int32_t onEvent(int32_t event, int32_t value) override;                  ///< To the client's object.
    int32_t onDeviceAdded(const android::sp<DeviceItf>& device) override;    ///< Likewise.
    int32_t onDeviceRemoved(const android::sp<DeviceItf>& device) override;  ///< Likewise.

    /** @return -1 when the request is not for this interface; an error status when it is cut short */
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags = 0) override;

  protected:
    ~BnDeviceManagerNotifier() override = default;

  private:
    const android::sp<DeviceManagerNotifierItf> mImpl;
};

}  // namespace device
