// SPDX-License-Identifier: Apache-2.0
#include "tests/support/TestFolder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

TestFolder::TestFolder() {
    const char* const base = getenv("TMPDIR");
    std::string name = std::string(base != nullptr ? base : "/tmp") + "/test-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) {
        ADD_FAILURE() << "mkdtemp " << name << ": " << strerror(errno);
        abort();
    }
    mPath = name;
    // Users without rights reach it too; a test that wants otherwise says so.
    chmod(mPath.c_str(), 0755);
}

TestFolder::~TestFolder() {
    std::error_code ignored;
    fs::remove_all(mPath, ignored);
}

std::vector<std::string> TestFolder::names() const {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(mPath)) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string contentOf(const std::string& path) {
    const std::ifstream file(path, std::ios::binary);
    if (!file) {
        return "(no file)";
    }
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

void writeFile(const std::string& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
    file.close();
    ASSERT_TRUE(file.good()) << path;
}

Unprivileged::Unprivileged() {
    EXPECT_EQ(0, setresgid(kUser, kUser, 0)) << "(root is needed)";
    EXPECT_EQ(0, setresuid(kUser, kUser, 0)) << "(root is needed)";
}

Unprivileged::~Unprivileged() {
    EXPECT_EQ(0, setresuid(0, 0, 0));
    EXPECT_EQ(0, setresgid(0, 0, 0));
}

SmallDisk::SmallDisk(const std::string& path, const std::string& size) : mPath(path) {
    EXPECT_EQ(0, mount("tmpfs", mPath.c_str(), "tmpfs", 0, ("size=" + size).c_str()))
        << strerror(errno) << " (root is needed)";
}

SmallDisk::~SmallDisk() {
    EXPECT_EQ(0, umount2(mPath.c_str(), MNT_DETACH)) << strerror(errno);
}

void SmallDisk::fill() const {
    const int fd = open((mPath + "/filler").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(fd, 0) << strerror(errno);
    const std::string block(4096, 'x');
    while (write(fd, block.data(), block.size()) > 0) {
    }
    EXPECT_EQ(ENOSPC, errno);
    close(fd);
}

void SmallDisk::empty() const {
    EXPECT_EQ(0, unlink((mPath + "/filler").c_str())) << strerror(errno);
}

void SmallDisk::makeReadOnly() const {
    EXPECT_EQ(0, mount(nullptr, mPath.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr)) << strerror(errno);
}
