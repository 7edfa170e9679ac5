// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * The writing side of the unit's publish/subscribe store.
 */

#include <velta_pps/PPSNotification.h>

namespace velta_pps {

/**
 * The one publisher of this process.
 *
 * The bundled store keeps each record as a file of its name in /run/velta-pps, or in the folder that the
 * environment variable VELTA_PPS_DIR names (an absolute path; ignored in programs that gain privileges at
 * their start). See docs/store.md.
 */
class Publisher {
  public:
    /** Created at the first call, never destroyed. Any thread. */
    static Publisher& self();

    Publisher(const Publisher&) = delete;
    Publisher& operator=(const Publisher&) = delete;

    /**
     * Publishes, replaces or withdraws a record. Any thread; of two calls at once for one name either is the
     * last. Never waits for a reader.
     *
     * @return 0 when it is done; withdrawing what is not there is done. Otherwise the negative errno, and the
     *         record is as it was: -EINVAL for an operation that does not exist or for a name that is empty,
     *         begins with a dot or holds a slash or a control character, -E2BIG for a record over 1 MiB, and
     *         what the file system answers.
     */
    int publish(const PPSNotification& notification);

  private:
    Publisher() = default;
    ~Publisher() = default;
};

}  // namespace velta_pps
