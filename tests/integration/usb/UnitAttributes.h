// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * The attributes of a unit's kernel, as plain files.
 *
 * Programs that use it link with "--wrap=write": what the product writes to an attribute is noted, in order
 * over all attributes, and then written.
 */

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

/**
 * Lays empty file systems over the folders of the unit's attributes, in the mount namespace of a test's own:
 * nothing that is written there reaches the kernel. "/proc" stays what it is but for the unit's own folder.
 * "/mnt" becomes a folder of the test's own. Superuser only; once per process.
 *
 * @return empty, or what failed
 */
std::string coverUnitFolders();

/** One set of attributes, laid at construction and gone at the end. Any thread, one object at a time. */
class UnitAttributes {
  public:
    /** @param root  what stands before the paths, for test beds that lead paths elsewhere */
    explicit UnitAttributes(std::string root = std::string());
    ~UnitAttributes();
    UnitAttributes(const UnitAttributes&) = delete;
    UnitAttributes& operator=(const UnitAttributes&) = delete;

    /** Creates or replaces an attribute; a reader sees the former or the new content. */
    void lay(const std::string& path, const std::string& content = std::string()) const;

    /** Creates every attribute that the certification mode knows, empty, the ports without a device. */
    void layAll() const;

    void remove(const std::string& path) const;
    std::string read(const std::string& path) const;

    /** What was written and taken since the start or the last forget(), as "name=value", folder left out. */
    static std::vector<std::string> writes();

    /** As writes(), with the whole path: for attributes whose folder matters. */
    static std::vector<std::string> fullWrites();

    static void forget();

    /** Waits until @p count values were written. @return false when that takes too long */
    static bool waitForWrites(size_t count);

    /** Has the next @p times writes to the attribute fail. */
    void refuse(const std::string& path, int times) const;

    /** How many writes to the attribute are still to fail. */
    int refusalsLeft(const std::string& path) const;

  private:
    const std::string mRoot;
};
