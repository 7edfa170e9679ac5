// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * A folder of small files that are read and replaced as a whole.
 */

#include <cstddef>
#include <string>

namespace platform {

/**
 * A folder with one file per record.
 *
 * A reader sees a record as it was before a change or as it is after it, never in between, whatever ends the
 * writer and however many write at once: content goes to a file of its own, which then takes the record's
 * name. Names of such files begin with a dot; a record's name must not.
 *
 * Every operation returns 0 or a negative errno and may be called from any thread, in several processes at
 * once. None throws for a reason of the file system's.
 */
class RecordFolder {
  public:
    /** How long a record must live. */
    enum class Keep {
        kUntilReboot,  //!< survives every process, not the machine's end
        kForGood,      //!< replace() returns when the record would survive a loss of power
    };

    /** Longest name of a record in bytes. */
    static constexpr size_t kMaxName = 255;

    /** @param path absolute; the folder and those above it are made with mode 0755 at the first replace() */
    RecordFolder(std::string path, Keep keep);

    /**
     * Writes the record @p name, in place of the former one.
     *
     * @return -EINVAL for a path that is not absolute or a name that is empty, too long, begins with a dot or
     *         holds a slash or a control character. After any error but that of a missing guarantee
     *         (Keep::kForGood, the folder could not be synchronised) the former record is as it was.
     */
    int replace(const std::string& name, const std::string& content) const;

    /** Removes the record @p name. @return -ENOENT when there is none, -EINVAL as replace() */
    int remove(const std::string& name) const;

    /**
     * Reads the record @p name.
     *
     * @param content  the first @p limit bytes of it; as it was upon failure
     * @return -ENOENT only when there is no such record; a folder that is a broken link gives -ENOTDIR, what
     *         is no plain file -ELOOP, -EISDIR or -EINVAL
     */
    int read(const std::string& name, std::string* content, size_t limit) const;

  private:
    int open(bool create) const;

    const std::string mPath;
    const Keep mKeep;
};

}  // namespace platform
