// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

namespace volume {

/** Tells one mount from another in the same place. */
struct MountIdentity {
    /** The kernel's number of the mount; given to another one after the unmount. */
    int id = 0;
    /** Of the file system, as "8:1"; of its own for one that spans disks. */
    std::string device;
    /** What was mounted, such as "/dev/sda1". */
    std::string source;

    bool operator==(const MountIdentity& other) const {
        return id == other.id && device == other.device && source == other.source;
    }
};

/**
 * The mount that is on top at @p path now; empty when there is none. @p path must be absolute and without
 * links, spaces and control characters.
 *
 * Read from this process's mount table: no file system is touched, so a dead one cannot hold it up.
 */
std::optional<MountIdentity> mountAt(const char* path);

}  // namespace volume
