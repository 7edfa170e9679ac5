// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include "volume/VolumeItf.h"
#include "volume/VolumeManagerNotifierItf.h"

namespace volume {

/**
 * The volume manager as its users see it. All operations: any thread.
 */
class VolumeManagerItf : public virtual android::RefBase {
  public:
    /**
     * Starts listening for disks. A second start in a row only logs.
     * @return 0 always
     */
    virtual int startup() = 0;

    /**
     * Stops listening; what is mounted stays mounted and listed. A second stop in a row only logs.
     * @return 0 always
     */
    virtual int shutdown() = 0;

    /**
     * Sets the one notifier that hears of every volume. Before start only.
     * @return 0 always
     */
    virtual int setNotifier(const android::sp<VolumeManagerNotifierItf>& notifier) = 0;

    /** How many volumes are listed. */
    virtual int getVolumeCount() = 0;

    /**
     * The volume at @p index of the list, in ascending order of the device names.
     *
     * The list changes as disks come and go: a caller that walks it by index may see it change on the way.
     *
     * @return never null; the placeholder, whose texts are all "unknown", unless 0 <= @p index < count
     */
    virtual android::sp<VolumeItf> queryVolume(int index) = 0;

  protected:
    ~VolumeManagerItf() override = default;
};

}  // namespace volume
