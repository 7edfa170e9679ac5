// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace usb {

/**
 * An attribute of the kernel (sysfs, procfs, module parameter), open for writing.
 *
 * Each write is one system call: the kernel takes every one as a value of its own. For one thread.
 */
class AttributeFile {
  public:
    AttributeFile() = default;
    ~AttributeFile();
    AttributeFile(const AttributeFile&) = delete;
    AttributeFile& operator=(const AttributeFile&) = delete;

    /** Opens @p path, which must exist, and empties it where it is a plain file. @return false upon failure
     */
    bool open(const char* path);

    /** Writes @p value, without a line's end. @return whether the kernel took all of it */
    bool write(const std::string& value);

    /** Closes the file; does nothing when there is none. */
    void close();

    /** Opens, writes and closes. @return whether the kernel took the value */
    static bool put(const char* path, const std::string& value);

    /** Reads the first word of the attribute @p path. @return false when it cannot be opened */
    static bool readWord(const char* path, std::string* word);

  private:
    int mFile = -1;
};

}  // namespace usb
