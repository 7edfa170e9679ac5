// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "VolumeDetector"

#include "volume/BlockShell.h"

#include <log/log.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "volume/DeviceNames.h"

namespace volume {

using android::String8;

namespace {

constexpr char kPollIntervalParameter[] = "/sys/module/block/parameters/events_dfl_poll_msecs";
constexpr size_t kLineSize = 1024;
/** "/block/sda": from a SCSI disk's path to that of the device that carries it. */
constexpr size_t kBlockSuffixLength = 10;

/** The first line that @p command prints, without its line feed; empty when it prints none. */
String8 firstLineOf(const String8& command) {
    // "e": other threads start shells too, which must not hold this pipe open.
    FILE* const output = popen(command.string(), "re");
    if (output == nullptr) {
        return String8();
    }
    char line[kLineSize] = "";
    if (fgets(line, sizeof(line), output) == nullptr) {
        line[0] = '\0';
    }
    pclose(output);
    line[strcspn(line, "\n")] = '\0';
    return String8(line);
}

void run(const String8& command) {
    // What a command does not achieve shows in what the kernel reports, or does not, afterwards.
    if (system(command.string()) < 0) {
        ALOGW("cannot run [%s]", command.string());
    }
}

}  // namespace

bool isRemovable(const String8& sysPath) {
    return isPlainPath(sysPath.string()) &&
           firstLineOf(String8::format("cat %s/removable", sysPath.string())).string()[0] == '1';
}

void pollRemovableMedia() {
    run(String8::format("echo 1000 > %s", kPollIntervalParameter));
}

void rescanDevice(const String8& sysPath) {
    if (!isPlainPath(sysPath.string()) || sysPath.length() <= kBlockSuffixLength) {
        return;
    }
    const String8 device(sysPath.string(), sysPath.length() - kBlockSuffixLength);
    if (access(device.string(), F_OK) != 0) {
        // A disk with another kind of name; `find` would complain to the log.
        return;
    }
    const String8 attribute = firstLineOf(String8::format("find %s -name rescan", device.string()));
    if (isPlainPath(attribute.string())) {
        run(String8("echo 1 > ") + attribute);
    }
}

void rereadPartitionTable(const String8& name) {
    if (isPlainName(name.string())) {
        run(String8::format("blockdev --rereadpt /dev/%s", name.string()));
    }
}

void removeFirstPartitionNode(const String8& name) {
    if (!isPlainName(name.string())) {
        return;
    }
    const String8 node = firstLineOf(String8::format("find /dev -name %s1", name.string()));
    if (isPlainPath(node.string())) {
        run(String8::format("rm %s -f", node.string()));
    }
}

}  // namespace volume
