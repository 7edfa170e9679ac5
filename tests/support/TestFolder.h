// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * A folder for one test, and the files in it.
 */

#include <string>
#include <vector>

/** A new folder that goes with the object, whatever is in it by then. */
class TestFolder {
  public:
    TestFolder();
    ~TestFolder();
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;

    /** Absolute, without a "/" at its end. */
    const std::string& path() const { return mPath; }

    /** The path of @p name in it. */
    std::string path(const std::string& name) const { return mPath + "/" + name; }

    /** Names of everything in it, hidden files too, sorted. */
    std::vector<std::string> names() const;

  private:
    std::string mPath;
};

/** Content of a file; "(no file)" when it cannot be opened, as no file of a test reads. */
std::string contentOf(const std::string& path);

/** Writes a file anew; the test fails when that is not possible. */
void writeFile(const std::string& path, const std::string& content);

/** A user without any right, in all threads, as long as the object lives. Superuser only. */
class Unprivileged {
  public:
    static constexpr unsigned kUser = 65534;

    Unprivileged();
    ~Unprivileged();
    Unprivileged(const Unprivileged&) = delete;
    Unprivileged& operator=(const Unprivileged&) = delete;
};

/** A small memory file system over a folder, as long as the object lives. Superuser, private namespaces only.
 */
class SmallDisk {
  public:
    SmallDisk(const std::string& path, const std::string& size);
    ~SmallDisk();
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    /** Takes all room that is left in it. */
    void fill() const;

    /** Gives it back. */
    void empty() const;

    void makeReadOnly() const;

  private:
    const std::string mPath;
};
