// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include <cstdint>

#include "volume/VolumeItf.h"

namespace volume {

/**
 * Hears what the volume manager reports: the one interface between the manager's core, the fan-out to
 * clients and the clients themselves.
 *
 * In the daemon the operations run on the volume detector's queue thread, in a client on one of its binder
 * threads. The daemon waits for a client's answer: return soon.
 */
class VolumeManagerNotifierItf : public virtual android::RefBase {
  public:
    /**
     * @p volume was detected and, where its file system is known, mounted. A volume that changes is reported
     * removed first. The result is passed back to the daemon, which does nothing with it.
     */
    virtual int32_t onVolumeAdded(const android::sp<VolumeItf>& volume) = 0;

    /**
     * @p volume went away; its name identifies it. In the daemon it is the record of its onVolumeAdded(), in
     * a client a new one; its mount path may read "unknown" by then.
     */
    virtual int32_t onVolumeRemoved(const android::sp<VolumeItf>& volume) = 0;

    /** A manager event. The volume manager raises none at present. */
    virtual int32_t onEvent(int32_t event, int32_t value) = 0;

  protected:
    ~VolumeManagerNotifierItf() override = default;
};

}  // namespace volume
