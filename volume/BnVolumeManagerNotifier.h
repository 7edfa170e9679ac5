// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IInterface.h>

#include "volume/IVolumeManagerNotifier.h"

namespace volume {

/**
 * The client's end of its notifier: unpacks the service's calls and passes them to the client's own object.
 *
 * The operations run on the client's binder threads (android::ProcessState::startThreadPool()), one at a time
 * as the service sends them.
 */
class BnVolumeManagerNotifier : public android::BnInterface<IVolumeManagerNotifier> {
  public:
    /** Passes everything to @p impl. Aborts the process when it is null. */
    explicit BnVolumeManagerNotifier(const android::sp<VolumeManagerNotifierItf>& impl);

    int32_t onEvent(int32_t event, int32_t value) override;                  ///< To the client's object.
    int32_t onVolumeAdded(const android::sp<VolumeItf>& volume) override;    ///< Likewise.
    int32_t onVolumeRemoved(const android::sp<VolumeItf>& volume) override;  ///< Likewise.

    /** @return -1 when the request is not for this interface; an error status when it is cut short */
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags = 0) override;

  protected:
    ~BnVolumeManagerNotifier() override = default;

  private:
    const android::sp<VolumeManagerNotifierItf> mImpl;
};

}  // namespace volume
