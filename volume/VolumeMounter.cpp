// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "VolumeDetector"

#include "volume/VolumeMounter.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <log/log.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "volume/DeviceNames.h"
#include "volume/PrintableText.h"

namespace volume {

using android::sp;
using android::String8;

namespace {

constexpr unsigned long kMountFlags = MS_NOSUID | MS_NODEV | MS_DIRSYNC | MS_NOATIME | MS_NODIRATIME;
constexpr mode_t kMountPointMode = 0755;

bool exists(const char* path) {
    return access(path, F_OK) == 0;
}

/** Whether the kernel takes the device for write-protected now. */
bool isReadOnly(const char* device) {
    const int fd = open(device, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    int readOnly = 0;
    const int result = ioctl(fd, BLKROGET, &readOnly);
    close(fd);
    return result == 0 && readOnly != 0;
}

/**
 * Mounts for writing. Returns 0, or the error, which is EROFS whenever the volume can only be read.
 *
 * Recent kernels answer EACCES where EROFS was the answer, and a stick whose switch is set is taken for
 * writable for moments, while the kernel looks at it: what was so mounted would fail with its first write.
 */
int mountWritable(const char* device, const char* mountPath, const char* format) {
    const bool readOnlyBefore = isReadOnly(device);
    if (mount(device, mountPath, format, kMountFlags, nullptr) != 0) {
        const int error = errno;
        // ISO 9660 is read-only by itself, on whatever device.
        const bool refused =
            error == EACCES && (readOnlyBefore || isReadOnly(device) || strcmp(format, "iso9660") == 0);
        return refused ? EROFS : error;
    }
    if (!readOnlyBefore && !isReadOnly(device)) {
        return 0;
    }
    // Nobody can have entered yet; the other form is for what the kernel itself may still hold.
    if (umount2(mountPath, 0) != 0 && umount2(mountPath, MNT_DETACH) != 0) {
        return 0;
    }
    return EROFS;
}

int mountReadOnly(const char* device, const char* mountPath, const char* format) {
    return mount(device, mountPath, format, kMountFlags | MS_RDONLY, nullptr) == 0 ? 0 : errno;
}

/** Whether @p path is a link to @p target. */
bool isLinkTo(const char* path, const String8& target) {
    std::string found(target.length() + 1, '\0');
    const ssize_t length = readlink(path, &found[0], found.size());
    return length == static_cast<ssize_t>(target.length()) &&
           found.compare(0, target.length(), target.string()) == 0;
}

}  // namespace

void VolumeMounter::mountVolume(const sp<Volume>& volume) {
    const String8& name = volume->getName();
    const String8 device = joinPath(sDeviceDir, name);
    const String8 mountPath = joinPath(sMountDir, name);
    const String8 accessPath = joinPath(sAccessDir, name);
    if (exists(mountPath.string())) {
        keepPaths(volume, mountPath, accessPath);
        return;
    }
    if (mkdir(mountPath.string(), kMountPointMode) != 0) {
        ALOGE("Unable to create mount path[%s] err(%s)", mountPath.string(), strerror(errno));
        return;
    }
    if (!mountDevice(*volume, device, mountPath)) {
        if (rmdir(mountPath.string()) != 0) {
            ALOGE("Unable to rmdir [%s] err(%s)", mountPath.string(), strerror(errno));
        }
        return;
    }
    volume->setMountPath(mountPath);

    Mount mount;
    mount.identity = mountAt(mountPath.string());
    mount.linked = linkVolume(mountPath, accessPath);
    if (mount.linked) {
        volume->setAccessPath(accessPath);
    }
    mMounts.add(name, mount);
}

/** For a volume that was probed again while it is mounted. */
void VolumeMounter::keepPaths(const sp<Volume>& volume, const String8& mountPath,
                              const String8& accessPath) const {
    const ssize_t index = mMounts.indexOfKey(volume->getName());
    if (index < 0) {
        return;
    }
    const Mount& ours = mMounts.valueAt(static_cast<size_t>(index));
    if (ours.identity.has_value() && mountAt(mountPath.string()) == ours.identity) {
        volume->setMountPath(mountPath);
        if (ours.linked) {
            volume->setAccessPath(accessPath);
        }
    }
}

bool VolumeMounter::mountDevice(const Volume& volume, const String8& device, const String8& mountPath) {
    const char* const format = volume.getFormat().string();
    int error = mountWritable(device.string(), mountPath.string(), format);
    if (error == EROFS) {
        ALOGW("Read-only file system[%s] format[%s] label[%s], try mount[%s]!", device.string(), format,
              printableText(volume.getLabel().string()).string(), mountPath.string());
        error = mountReadOnly(device.string(), mountPath.string(), format);
    }
    if (error != 0) {
        ALOGE("Unable to mount [%s] to [%s] err(%s)", device.string(), mountPath.string(), strerror(error));
    }
    return error == 0;
}

bool VolumeMounter::linkVolume(const String8& mountPath, const String8& accessPath) {
    if (symlink(mountPath.string(), accessPath.string()) != 0) {
        ALOGE("Unable to link [%s] to [%s] err(%s)", mountPath.string(), accessPath.string(),
              strerror(errno));
        return false;
    }
    return true;
}

bool VolumeMounter::unmountVolume(const String8& name) {
    const String8 mountPath = joinPath(sMountDir, name);
    const String8 accessPath = joinPath(sAccessDir, name);

    Mount ours;
    const ssize_t index = mMounts.indexOfKey(name);
    const bool mounted = index >= 0;
    if (mounted) {
        ours = mMounts.valueAt(static_cast<size_t>(index));
        mMounts.removeItemsAt(static_cast<size_t>(index));
    }
    const std::optional<MountIdentity> present = mountAt(mountPath.string());
    int error = 0;
    if (mounted && (!ours.identity.has_value() || present == ours.identity)) {
        error = umount2(mountPath.string(), MNT_FORCE | MNT_DETACH) == 0 ? 0 : errno;
    } else if (present.has_value()) {
        // Somebody else's, in the place of ours or without ours.
        error = EPERM;
    } else {
        // What the kernel would answer.
        error = exists(mountPath.string()) ? EINVAL : ENOENT;
    }
    if (error != 0) {
        ALOGE("Unable to unmount [%s] err(%s)", mountPath.string(), strerror(error));
        return false;
    }

    if (ours.linked) {
        unlinkVolume(mountPath, accessPath);
    }
    if (rmdir(mountPath.string()) != 0) {
        ALOGE("Unable to rmdir [%s] err(%s)", mountPath.string(), strerror(errno));
    }
    return true;
}

void VolumeMounter::unlinkVolume(const String8& mountPath, const String8& accessPath) {
    struct stat status = {};
    const bool foreign =
        lstat(accessPath.string(), &status) == 0 && !isLinkTo(accessPath.string(), mountPath);
    if (foreign || unlink(accessPath.string()) != 0) {
        ALOGE("Unable to unlink [%s] err(%s)", accessPath.string(), strerror(foreign ? EPERM : errno));
    }
}

}  // namespace volume
