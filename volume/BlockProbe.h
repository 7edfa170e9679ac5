// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/String8.h>
#include <utils/Vector.h>

#include <optional>

namespace volume {

/** One finding about a block device, such as "LABEL" with "MUSIC"; either text may be missing. */
struct ProbedValue {
    std::optional<android::String8> name;
    /** Data from the medium: any bytes but NUL. */
    std::optional<android::String8> value;
};

/**
 * What libblkid finds on a block device: its partition table, or the partition entry and file system of a
 * volume. One thread.
 */
class BlockProbe {
  public:
    /**
     * Opens the device at @p path and looks at it. The device is closed upon return.
     *
     * The kernel shows a node before its disk can be opened; such an open is repeated for half a second.
     *
     * @return 0, also when nothing was recognised; -1, with an error line, when the device cannot be opened
     * or read
     */
    int read(const android::String8& path);

    /**
     * Whether the device has a partition table, so that it is a disk and no volume.
     *
     * libblkid before 2.39 takes the boot sector of exFAT for a DOS table without entries: exFAT under a
     * table without entries is a volume.
     */
    bool isDisk() const;

    /** In libblkid's order. */
    const android::Vector<ProbedValue>& values() const { return mValues; }

  private:
    int readDevice(int fd);

    /** Whether a partition table was found that has no entry. */
    bool mTableIsEmpty = false;
    android::Vector<ProbedValue> mValues;
};

}  // namespace volume
