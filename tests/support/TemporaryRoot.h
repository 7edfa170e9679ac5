// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * Where the temporary files of a test program go.
 */

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

/**
 * A folder for all that the program and the processes of its death tests put into TMPDIR. Such a process ends
 * where it stands, and leaves what it has made: this program removes it with the folder.
 *
 * Add it before other environments, and before anything looks for TMPDIR.
 */
class TemporaryRoot : public ::testing::Environment {
  public:
    void SetUp() override {
        if (getenv(kVariable) != nullptr) {
            // The process of a death test: the folder is its parent's.
            return;
        }
        std::string folder = std::filesystem::temp_directory_path() / "test-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(folder.data()));
        mFolder = folder;
        // Users without rights reach what is in it.
        ASSERT_EQ(0, chmod(mFolder.c_str(), 0755));
        ASSERT_EQ(0, setenv("TMPDIR", mFolder.c_str(), 1));
        ASSERT_EQ(0, setenv(kVariable, mFolder.c_str(), 1));
    }

    void TearDown() override {
        if (mFolder.empty()) {
            return;
        }
        std::error_code error;
        std::filesystem::remove_all(mFolder, error);
        EXPECT_FALSE(error) << mFolder << ": " << error.message();
        // The next of several runs has one of its own.
        ASSERT_EQ(0, setenv("TMPDIR", std::filesystem::path(mFolder).parent_path().c_str(), 1));
        ASSERT_EQ(0, unsetenv(kVariable));
        mFolder.clear();
    }

  private:
    static constexpr const char* kVariable = "TEMPORARY_ROOT_OF_TEST";

    std::string mFolder;
};
