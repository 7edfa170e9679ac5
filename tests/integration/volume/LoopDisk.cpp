// SPDX-License-Identifier: Apache-2.0
#include "tests/integration/volume/LoopDisk.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/blkpg.h>
#include <linux/fs.h>
#include <linux/loop.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace {

constexpr uint64_t kMebibyte = 1024 * 1024;
constexpr int kAttempts = 100;

/** The test's /dev has only the nodes that it made. */
void makeLoopNode(const std::string& path, unsigned major, unsigned minor, mode_t type) {
    if (mknod(path.c_str(), type | 0600, makedev(major, minor)) != 0) {
        ASSERT_EQ(EEXIST, errno) << path;
    }
}

dev_t numberOf(const std::string& name) {
    unsigned major = 0;
    unsigned minor = 0;
    char colon = 0;
    std::ifstream("/sys/class/block/" + name + "/dev") >> major >> colon >> minor;
    return makedev(major, minor);
}

}  // namespace

int runProgram(const std::vector<std::string>& arguments, const std::string& input) {
    std::vector<char*> argv;
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return -1;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[0], 0);
    pid_t pid = 0;
    const int error = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[0]);
    int status = -1;
    if (error == 0) {
        // A script is far smaller than a pipe.
        const bool written = write(ends[1], input.data(), input.size()) == static_cast<ssize_t>(input.size());
        close(ends[1]);
        waitpid(pid, &status, 0);
        return written && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    close(ends[1]);
    return -1;
}

TemporaryFolder::TemporaryFolder() {
    char path[] = "/tmp/volume-test-XXXXXX";
    EXPECT_NE(nullptr, mkdtemp(path));
    mPath = path;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(mPath, ignored);
}

void makeImage(const std::string& path, uint64_t mebibytes) {
    std::ofstream(path).put('\0');
    std::filesystem::resize_file(path, mebibytes * kMebibyte);
}

void makeExt4(const std::string& path, const std::string& label, const std::string& uuid, uint64_t mebibytes,
              uint64_t offset) {
    if (offset == 0) {
        makeImage(path, mebibytes);
    }
    std::vector<std::string> command = {"mke2fs", "-q", "-F", "-t", "ext4", "-O", "^has_journal"};
    command.insert(command.end(), {"-L", label, "-U", uuid, "-E", "offset=" + std::to_string(offset), path});
    command.push_back(std::to_string(mebibytes) + "M");
    ASSERT_EQ(0, runProgram(command));
}

void makePartitions(const std::string& path, const std::string& script) {
    ASSERT_EQ(0, runProgram({"sfdisk", "-q", path}, script));
}

LoopDisk::LoopDisk(const std::string& image, bool readOnly) {
    makeLoopNode("/dev/loop-control", 10, 237, S_IFCHR);
    const int file = open(image.c_str(), (readOnly ? O_RDONLY : O_RDWR) | O_CLOEXEC);
    const int control = open("/dev/loop-control", O_RDWR | O_CLOEXEC);
    EXPECT_GE(file, 0) << image;
    EXPECT_GE(control, 0) << "no loop devices (root is needed)";
    loop_config config = {};
    config.fd = static_cast<uint32_t>(file);
    // Freed by the kernel when the test ends, however it ends.
    config.info.lo_flags = LO_FLAGS_AUTOCLEAR | (readOnly ? LO_FLAGS_READ_ONLY : 0);
    // Others take free loop devices at the same time.
    for (int attempt = 0; attempt < kAttempts && mFd < 0; ++attempt) {
        mIndex = ioctl(control, LOOP_CTL_GET_FREE);
        if (mIndex < 0) {
            break;
        }
        const dev_t wanted = numberOf(name());
        const std::string node = "/dev/" + name();
        makeLoopNode(node, major(wanted), minor(wanted), S_IFBLK);
        mFd = open(node.c_str(), (readOnly ? O_RDONLY : O_RDWR) | O_CLOEXEC);
        if (mFd >= 0 && ioctl(mFd, LOOP_CONFIGURE, &config) != 0) {
            close(mFd);
            mFd = -1;
        }
        unlink(node.c_str());
        if (mFd < 0) {
            usleep(10000);
        }
    }
    EXPECT_GE(mFd, 0) << "no free loop device";
    if (mFd >= 0 && !readOnly) {
        resetReadOnly();
    }
    close(file);
    close(control);
}

LoopDisk::~LoopDisk() {
    while (!mPartitions.empty()) {
        removePartition(mPartitions.back());
    }
    if (mFd >= 0) {
        resetReadOnly();
        close(mFd);
    }
}

/** The kernel keeps the protection beyond the disk. */
void LoopDisk::resetReadOnly() const {
    const int writable = 0;
    EXPECT_EQ(0, ioctl(mFd, BLKROSET, &writable)) << strerror(errno);
}

dev_t LoopDisk::number() const {
    return numberOf(name());
}

dev_t LoopDisk::partitionNumber(int partition) const {
    return numberOf(name() + "p" + std::to_string(partition));
}

void LoopDisk::addPartition(int partition, uint64_t startMebibytes, uint64_t mebibytes) {
    blkpg_partition data = {};
    data.start = static_cast<long long>(startMebibytes * kMebibyte);
    data.length = static_cast<long long>(mebibytes * kMebibyte);
    data.pno = partition;
    blkpg_ioctl_arg argument = {BLKPG_ADD_PARTITION, 0, sizeof(data), &data};
    ASSERT_EQ(0, ioctl(mFd, BLKPG, &argument)) << strerror(errno);
    mPartitions.push_back(partition);
    ASSERT_NE(0U, partitionNumber(partition));
}

void LoopDisk::removePartition(int partition) {
    blkpg_partition data = {};
    data.pno = partition;
    blkpg_ioctl_arg argument = {BLKPG_DEL_PARTITION, 0, sizeof(data), &data};
    // A look at a partition by the machine's own udev keeps it for moments.
    int result = -1;
    for (int attempt = 0; attempt < kAttempts && result != 0; ++attempt) {
        result = ioctl(mFd, BLKPG, &argument);
        if (result != 0) {
            usleep(100000);
        }
    }
    EXPECT_EQ(0, result) << strerror(errno);
    mPartitions.erase(std::remove(mPartitions.begin(), mPartitions.end(), partition), mPartitions.end());
}

void LoopDisk::setReadOnly(bool readOnly) {
    const int value = readOnly ? 1 : 0;
    ASSERT_EQ(0, ioctl(mFd, BLKROSET, &value)) << strerror(errno);
}

bool LoopDisk::isReadOnly() const {
    int value = -1;
    EXPECT_EQ(0, ioctl(mFd, BLKROGET, &value));
    return value != 0;
}
