// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * The kernel attributes of a unit, as files that tell in which order what was written to them.
 */

#include <map>
#include <set>
#include <string>
#include <vector>

/**
 * Lays empty folders over those of the kernel's that the unit's attributes are in, in this process's mount
 * namespace, which must be a private one. Superuser only.
 *
 * An attribute is a pipe: what a shell writes stays in it until it is taken, and the kernel tells the order
 * in which the pipes were opened and closed. The commands `ifconfig` and `insmod` are scripts that write
 * their arguments to an attribute of their own.
 *
 * One thread; the commands may run on any.
 */
class AttributeBed {
  public:
    /** Every attribute that the USB side writes, made by make(). */
    static const std::vector<std::string>& all();

    AttributeBed();
    ~AttributeBed();
    AttributeBed(const AttributeBed&) = delete;
    AttributeBed& operator=(const AttributeBed&) = delete;

    /** Empty, or what failed in the construction. */
    const std::string& problem() const { return mProblem; }

    /**
     * What was written since the last time, in order: "PATH=VALUE" for each write, line feed included, and
     * "ifconfig ARGUMENTS" or "insmod ARGUMENTS" for each command.
     */
    std::vector<std::string> take();

    /** Waits until @p count writes are complete since the last time. @return false when that takes too long
     */
    bool waitForWrites(size_t count);

    /** Fills the pipe of @p path: the next write is held up until release(). One attribute at a time. */
    void block(const std::string& path);
    /** Waits until something has opened @p path. @return false when that takes too long */
    bool waitForOpen(const std::string& path);
    /** Takes out of the pipe of @p path what block() put there. */
    void release(const std::string& path);

    /** Makes a plain file of @p content, for reading. */
    static void put(const std::string& path, const std::string& content);

  private:
    struct Attribute {
        std::string path;
        int fd;
    };

    void lay(const std::string& folder);
    void make(const std::string& path);
    void makeCommand(const std::string& name);
    int descriptorOf(const std::string& path) const;
    void readEvents();
    std::string contents(int watch);

    std::string mProblem;
    std::string mPathBefore;
    int mInotify = -1;
    std::vector<std::string> mLaid;
    std::map<int, Attribute> mAttributes;
    /** Watches of the attributes closed, in order; a watch for each close. */
    std::vector<int> mClosed;
    std::set<int> mOpened;
    /** Bytes that block() put into a pipe. */
    size_t mBlocked = 0;
};
