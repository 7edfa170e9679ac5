// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "VolumeDetector"

#include "volume/BlockProbe.h"

#include <blkid/blkid.h>
#include <fcntl.h>
#include <log/log.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace volume {

using android::String8;

namespace {

/**
 * Half a second: longer than any disk was seen to take, shorter than a user notices. Counted in tries, so
 * that a stalled machine does not use the time up.
 */
constexpr int kOpenTries = 250;
constexpr useconds_t kOpenStepMicros = 2000;

constexpr int kSuperblockFlags = BLKID_SUBLKS_LABEL | BLKID_SUBLKS_LABELRAW | BLKID_SUBLKS_UUID |
                                 BLKID_SUBLKS_UUIDRAW | BLKID_SUBLKS_TYPE | BLKID_SUBLKS_SECTYPE |
                                 BLKID_SUBLKS_USAGE | BLKID_SUBLKS_VERSION | BLKID_SUBLKS_MAGIC |
                                 BLKID_SUBLKS_BADCSUM;

class Descriptor {
  public:
    explicit Descriptor(int fd) : mFd(fd) {}
    ~Descriptor() {
        if (mFd >= 0) {
            close(mFd);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return mFd; }

  private:
    const int mFd;
};

struct FreeProbe {
    void operator()(blkid_probe probe) const { blkid_free_probe(probe); }
};
using ProbeHandle = std::unique_ptr<std::remove_pointer_t<blkid_probe>, FreeProbe>;

/** As open(2), of what can be a disk: opening a pipe could wait for ever, and a character device may act. */
int openOnce(const char* path) {
    struct stat status = {};
    if (stat(path, &status) != 0) {
        return -1;
    }
    if (!S_ISBLK(status.st_mode) && !S_ISREG(status.st_mode)) {
        errno = ENOTBLK;
        return -1;
    }
    return open(path, O_RDONLY | O_CLOEXEC);
}

/** The node is there about a millisecond before the disk behind it; until then it answers ENXIO. */
int openWhenReady(const char* path) {
    int fd = openOnce(path);
    for (int tries = 1; fd < 0 && errno == ENXIO && tries < kOpenTries; ++tries) {
        usleep(kOpenStepMicros);
        fd = openOnce(path);
    }
    return fd;
}

std::optional<String8> textOf(const char* text) {
    return text != nullptr ? std::optional<String8>(text) : std::nullopt;
}

}  // namespace

int BlockProbe::read(const String8& path) {
    mValues.clear();
    mTableIsEmpty = false;
    const Descriptor device(openWhenReady(path.string()));
    if (device.get() < 0) {
        ALOGE("open device path: %s error[%s]\n", path.string(), strerror(errno));
        return -1;
    }
    return readDevice(device.get());
}

int BlockProbe::readDevice(int fd) {
    const ProbeHandle probe(blkid_new_probe());
    if (probe == nullptr) {
        ALOGE("new blkid proble fail\n");
        return -1;
    }
    if (blkid_probe_set_device(probe.get(), fd, 0, 0) != 0) {
        ALOGE("blkid proble set device fail\n");
        return -1;
    }
    blkid_probe_enable_partitions(probe.get(), 1);
    blkid_probe_set_partitions_flags(probe.get(), BLKID_PARTS_ENTRY_DETAILS);
    blkid_probe_enable_superblocks(probe.get(), 1);
    blkid_probe_set_superblocks_flags(probe.get(), kSuperblockFlags);
    if (blkid_do_safeprobe(probe.get()) < 0) {
        ALOGE("blkid do probe fail\n");
        return -1;
    }

    const int count = blkid_probe_numof_values(probe.get());
    for (int i = 0; i < count; ++i) {
        const char* name = nullptr;
        const char* value = nullptr;
        if (blkid_probe_get_value(probe.get(), i, &name, &value, nullptr) == 0) {
            // libblkid ends every value with a NUL of its own.
            mValues.add({textOf(name), textOf(value)});
        }
    }
    // Last: it makes the probe forget its values.
    const blkid_partlist table = blkid_probe_get_partitions(probe.get());
    mTableIsEmpty = table != nullptr && blkid_partlist_numof_partitions(table) == 0;
    return 0;
}

bool BlockProbe::isDisk() const {
    bool hasTable = false;
    bool isExfat = false;
    for (const ProbedValue& value : mValues) {
        hasTable = hasTable || value.name == String8("PTTYPE");
        isExfat = isExfat || (value.name == String8("TYPE") && value.value == String8("exfat"));
    }
    return hasTable && !(isExfat && mTableIsEmpty);
}

}  // namespace volume
