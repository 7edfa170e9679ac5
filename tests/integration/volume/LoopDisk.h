// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * Real block devices for tests: images in a folder of their own behind loop devices.
 */

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

/** Runs a program to its end; its output goes where the test's goes. @return its exit status, -1 if none */
int runProgram(const std::vector<std::string>& arguments, const std::string& input = "");

/** A folder that goes with everything in it. */
class TemporaryFolder {
  public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    std::string operator/(const std::string& name) const { return mPath + "/" + name; }

  private:
    std::string mPath;
};

/** A file of this size in which nothing is written. */
void makeImage(const std::string& path, uint64_t mebibytes);

/** An ext4 file system in an image, which is made or, with an offset in bytes, only written into. */
void makeExt4(const std::string& path, const std::string& label, const std::string& uuid,
              uint64_t mebibytes = 8, uint64_t offset = 0);

/** Writes a partition table into an image; @p script is sfdisk's. */
void makePartitions(const std::string& path, const std::string& script);

/** An image behind a free loop device. Root only; every failure is a failure of the test. */
class LoopDisk {
  public:
    explicit LoopDisk(const std::string& image, bool readOnly = false);
    ~LoopDisk();
    LoopDisk(const LoopDisk&) = delete;
    LoopDisk& operator=(const LoopDisk&) = delete;

    /** "loop3". */
    std::string name() const { return "loop" + std::to_string(mIndex); }
    /** The disk's device number; 0 for none. */
    dev_t number() const;
    /** That of a partition; 0 for none. */
    dev_t partitionNumber(int partition) const;

    /** Makes the kernel know a partition, of MiB. */
    void addPartition(int partition, uint64_t startMebibytes, uint64_t mebibytes);
    void removePartition(int partition);
    /** Makes the kernel take the disk for write-protected, or not. */
    void setReadOnly(bool readOnly);
    bool isReadOnly() const;

  private:
    void resetReadOnly() const;

    int mIndex = -1;
    int mFd = -1;
    std::vector<int> mPartitions;
};
