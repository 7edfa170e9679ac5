// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/KeyedVector.h>
#include <utils/RefBase.h>
#include <utils/String8.h>

#include <optional>

#include "volume/MountTable.h"
#include "volume/Volume.h"

namespace volume {

/**
 * Mounts volumes under /mnt, links them under /media, and takes back what it has mounted and linked, and only
 * that.
 *
 * One thread at a time: the volume detector's operation lock is held around every call. No operation takes a
 * lock of its own, and each may take as long as the disk does.
 */
class VolumeMounter {
  public:
    /**
     * Mounts @p volume and links it. Where that succeeds, its mount path and access path are set; what fails
     * is logged and leaves nothing behind.
     *
     * Nothing is mounted or linked where "/mnt/NAME" exists: what is there stays. If it is the mount that
     * this object made for an earlier record of the same name, the paths are set to what they were.
     */
    void mountVolume(const android::sp<Volume>& volume);

    /**
     * Takes the mount of @p name back, its link and its directory. What others put in their place stays; a
     * failure is logged.
     *
     * @return whether it was unmounted
     */
    bool unmountVolume(const android::String8& name);

  private:
    struct Mount {
        /** Empty when the system did not tell. */
        std::optional<MountIdentity> identity;
        bool linked = false;
    };

    void keepPaths(const android::sp<Volume>& volume, const android::String8& mountPath,
                   const android::String8& accessPath) const;
    bool mountDevice(const Volume& volume, const android::String8& device, const android::String8& mountPath);
    bool linkVolume(const android::String8& mountPath, const android::String8& accessPath);
    void unlinkVolume(const android::String8& mountPath, const android::String8& accessPath);

    /** By volume name. */
    android::KeyedVector<android::String8, Mount> mMounts;
};

}  // namespace volume
