// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace devicectl {

/**
 * A file in memory. A service that is handed a pipe would die of a reader that goes, and wait for one that is
 * slow; here it can do neither. One thread.
 */
class MemoryFile {
  public:
    MemoryFile();
    ~MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    /** -1 if the kernel gave none. */
    int fd() const { return mFd; }

    /** Appends all that was written. @return 0 or the error's number */
    int read(std::string* text) const;

  private:
    const int mFd;
};

}  // namespace devicectl
