// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/MemoryFile.h"

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace devicectl {

MemoryFile::MemoryFile() : mFd(memfd_create("devicectl-dump", MFD_CLOEXEC)) {}

MemoryFile::~MemoryFile() {
    if (mFd >= 0) {
        close(mFd);
    }
}

int MemoryFile::read(std::string* text) const {
    std::array<char, 65536> block{};
    off_t offset = 0;
    for (;;) {
        const ssize_t count = pread(mFd, block.data(), block.size(), offset);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return count < 0 ? errno : 0;
        }
        text->append(block.data(), static_cast<size_t>(count));
        offset += count;
    }
}

}  // namespace devicectl
