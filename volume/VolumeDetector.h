// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * Finds the volumes of removable disks.
 */

#include <utils/RefBase.h>

#include <cstddef>

#include "common/UeventObserver.h"
#include "volume/Volume.h"
#include "volume/VolumeDetectorNotifierItf.h"

namespace volume {

class VolumeDetectorImpl;

/**
 * Finds removable disks by the nodes that appear in /dev and by the kernel's uevents, mounts what they carry
 * and keeps the list of volumes, from start() to stop(). A volume N, the name of its device node, is mounted
 * on
 * "/mnt/N" with a link "/media/N".
 *
 * What is there before start() is not looked for.
 *
 * Thread words are at each operation; the notifier is called on the queue thread "VolumeDetectorQueue" only.
 */
class VolumeDetector : public virtual android::RefBase {
  public:
    /** Begins to hear uevents of @p observer, which must not be null; rests otherwise until start(). */
    explicit VolumeDetector(const android::sp<UeventObserver>& observer);

    /** Sets who is told. What was found before is not told any more. Any thread. */
    void setNotifier(const android::sp<VolumeDetectorNotifierItf>& notifier);

    /**
     * Starts the queue and the watch on /dev. Volumes still listed from an earlier time, whose device went
     * away or was exchanged meanwhile, are unmounted and reported. Start and stop: one thread at a time.
     *
     * @return false when the queue's thread did not come up; nothing runs then
     */
    bool start();

    /**
     * Stops the watch on /dev and the queue, and with them every report. Volumes stay mounted and listed.
     *
     * Waits for the probe or mount in progress, and for a notifier in progress within the bound of
     * MessageQueue::stop(); it may be called from inside a notifier. Start and stop: one thread at a time.
     */
    void stop();

    /** Number of volumes. Any thread. */
    size_t count() const;

    /** The volume at @p index, in ascending order of the names; past the end a placeholder. Any thread. */
    android::sp<Volume> query(size_t index) const;

  protected:
    /** Stops, if it runs. Volumes stay mounted. */
    ~VolumeDetector() override;

  private:
    android::sp<VolumeDetectorImpl> mDetector;
};

}  // namespace volume
