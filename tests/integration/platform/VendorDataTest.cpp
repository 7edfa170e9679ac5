// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The bundled vendor data, on disks that are full, read-only or not there.
 */
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vx_vendor_data.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/KilledWriters.h"
#include "tests/support/TestFolder.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr int kCertificationMode = 173;

/** A text of @p length equal characters: one that is mixed of two is a broken one. */
std::string uniform(unsigned number, size_t length) {
    return std::string(length, static_cast<char>('a' + number % 26));
}

class VendorDataTest : public ::testing::Test {
  protected:
    void SetUp() override { use(mFolder.path()); }

    static void use(const std::string& folder) {
        ASSERT_EQ(0, setenv("VX_VENDOR_DATA_DIR", folder.c_str(), 1));
    }

    static int write(int item, const std::string& text) {
        return vx_vendor_data_write_string(text.data(), item, static_cast<int>(text.size()));
    }

    /** The item's text, or what errno says of why there is none. */
    static std::string read(int item, int length = 1) {
        std::string text(static_cast<size_t>(length), '?');
        errno = 0;
        if (vx_vendor_data_read_string(item, length, text.data()) == 0) {
            return text;
        }
        EXPECT_EQ(std::string(static_cast<size_t>(length), '?'), text) << "changed by a read that failed";
        return strerror(errno);
    }

    TestFolder mFolder;
};

}  // namespace

TEST_F(VendorDataTest, ReadsWhatWasWritten) {
    EXPECT_EQ(0, write(173, "M"));
    EXPECT_EQ(0, write(170, "C"));
    EXPECT_EQ("M", read(173));
    EXPECT_EQ("C", read(170));
    EXPECT_EQ(0, write(173, "T"));
    EXPECT_EQ("T", read(173));
    EXPECT_THAT(mFolder.names(), ElementsAre("170", "173"));
    EXPECT_EQ("T", contentOf(mFolder.path("173")));
}

TEST_F(VendorDataTest, ReadsAsMuchAsIsAskedFor) {
    const std::string text("a\0b\nc", 5);
    EXPECT_EQ(0, write(7, text));
    EXPECT_EQ(text, read(7, 5));
    EXPECT_EQ("a", read(7, 1));
    EXPECT_EQ(text + std::string(3, '\0'), read(7, 8));
    EXPECT_EQ(0, write(7, "x"));
    EXPECT_EQ(std::string("x\0\0", 3), read(7, 3));
}

TEST_F(VendorDataTest, AnItemThatAPersonWroteIsRead) {
    writeFile(mFolder.path("173"), "M\n");
    EXPECT_EQ("M", read(173));
}

TEST_F(VendorDataTest, TheCertificationModeIsOByDefault) {
    EXPECT_EQ("O", read(kCertificationMode));
    EXPECT_EQ(std::string("O\0\0", 3), read(kCertificationMode, 3));
    use(mFolder.path("missing/too"));
    EXPECT_EQ("O", read(kCertificationMode));
    EXPECT_THAT(mFolder.names(), IsEmpty());
}

TEST_F(VendorDataTest, OtherItemsHaveNoDefault) {
    for (const int item : {0, 170, 171, 172, 174, INT_MAX}) {
        EXPECT_EQ("No such file or directory", read(item)) << item;
    }
}

TEST_F(VendorDataTest, RefusesWrongArguments) {
    char buffer[1] = {'?'};
    EXPECT_EQ(-1, vx_vendor_data_read_string(-1, 1, buffer));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(-1, vx_vendor_data_read_string(INT_MIN, 1, buffer));
    EXPECT_EQ(-1, vx_vendor_data_read_string(kCertificationMode, 0, buffer));
    EXPECT_EQ(-1, vx_vendor_data_read_string(kCertificationMode, -1, buffer));
    EXPECT_EQ(-1, vx_vendor_data_read_string(kCertificationMode, VX_VENDOR_DATA_MAX_LENGTH + 1, buffer));
    EXPECT_EQ(-1, vx_vendor_data_read_string(kCertificationMode, 1, nullptr));
    EXPECT_EQ('?', buffer[0]);
    EXPECT_EQ(-1, vx_vendor_data_write_string(buffer, -1, 1));
    EXPECT_EQ(-1, vx_vendor_data_write_string(buffer, 1, 0));
    EXPECT_EQ(-1, vx_vendor_data_write_string(buffer, 1, INT_MIN));
    EXPECT_EQ(-1, vx_vendor_data_write_string(buffer, 1, VX_VENDOR_DATA_MAX_LENGTH + 1));
    EXPECT_EQ(-1, vx_vendor_data_write_string(nullptr, 1, 1));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_THAT(mFolder.names(), IsEmpty());
    const std::string longest(VX_VENDOR_DATA_MAX_LENGTH, 'x');
    EXPECT_EQ(0, write(1, longest));
    EXPECT_EQ(longest, read(1, VX_VENDOR_DATA_MAX_LENGTH));
}

// A mode that is merely unreadable is not "O": the caller tries again, and says so.
TEST_F(VendorDataTest, AStoreThatCannotBeReadFails) {
    const std::string item = mFolder.path("173");
    ASSERT_EQ(0, mkdir(item.c_str(), 0755));
    EXPECT_EQ("Is a directory", read(kCertificationMode));
    ASSERT_EQ(0, rmdir(item.c_str()));

    ASSERT_EQ(0, mkfifo(item.c_str(), 0644));
    EXPECT_EQ("Invalid argument", read(kCertificationMode));
    ASSERT_EQ(0, unlink(item.c_str()));

    ASSERT_EQ(0, symlink("nowhere", item.c_str()));
    EXPECT_EQ("Too many levels of symbolic links", read(kCertificationMode));
    ASSERT_EQ(0, unlink(item.c_str()));

    writeFile(item, "");
    EXPECT_EQ("No data available", read(kCertificationMode));

    writeFile(item, "M");
    ASSERT_EQ(0, chmod(item.c_str(), 0600));
    {
        const Unprivileged user;
        EXPECT_EQ("Permission denied", read(kCertificationMode));
    }
    EXPECT_EQ("M", read(kCertificationMode));
}

TEST_F(VendorDataTest, AFolderThatCannotBeReachedFails) {
    writeFile(mFolder.path("file"), "");
    use(mFolder.path("file"));
    EXPECT_EQ("Not a directory", read(kCertificationMode));
    EXPECT_EQ(-1, write(kCertificationMode, "M"));

    // A link to a partition that is not mounted: nobody knows what was written there.
    ASSERT_EQ(0, symlink("unmounted/data", mFolder.path("link").c_str()));
    use(mFolder.path("link"));
    EXPECT_EQ("Not a directory", read(kCertificationMode));
    EXPECT_EQ(-1, write(kCertificationMode, "M"));

    use("relative");
    EXPECT_EQ("Invalid argument", read(kCertificationMode));

    ASSERT_EQ(0, mkdir(mFolder.path("locked").c_str(), 0700));
    use(mFolder.path("locked"));
    const Unprivileged user;
    EXPECT_EQ("Permission denied", read(kCertificationMode));
    EXPECT_EQ(-1, write(kCertificationMode, "M"));
}

TEST_F(VendorDataTest, AWriteMakesTheFolder) {
    use(mFolder.path("lib/vendor"));
    EXPECT_EQ(0, write(kCertificationMode, "T"));
    EXPECT_EQ("T", read(kCertificationMode));
}

TEST_F(VendorDataTest, AFullDiskLeavesTheFormerItem) {
    const SmallDisk disk(mFolder.path(), "64k");
    ASSERT_EQ(0, write(kCertificationMode, "M"));
    disk.fill();
    EXPECT_EQ(-1, write(kCertificationMode, "T"));
    EXPECT_EQ(ENOSPC, errno);
    EXPECT_EQ("M", read(kCertificationMode));
    EXPECT_THAT(mFolder.names(), ElementsAre("173", "filler"));
    disk.empty();
    EXPECT_EQ(0, write(kCertificationMode, "T"));
    EXPECT_EQ("T", read(kCertificationMode));
}

TEST_F(VendorDataTest, AReadOnlyDiskIsRead) {
    const SmallDisk disk(mFolder.path(), "64k");
    ASSERT_EQ(0, write(kCertificationMode, "M"));
    disk.makeReadOnly();
    EXPECT_EQ(-1, write(kCertificationMode, "T"));
    EXPECT_EQ(EROFS, errno);
    EXPECT_EQ("M", read(kCertificationMode));
}

TEST_F(VendorDataTest, ReadersNeverSeeHalfAnItem) {
    constexpr size_t kLength = 4096;
    ASSERT_EQ(0, write(5, uniform(0, kLength)));
    std::atomic<int> writing{2};
    std::atomic<unsigned> failed{0};
    std::atomic<unsigned> broken{0};
    std::vector<std::thread> threads;
    for (unsigned writer = 0; writer < 2; ++writer) {
        threads.emplace_back([&, writer] {
            for (unsigned i = 0; i < 200; ++i) {
                failed += write(5, uniform(i * 2 + writer, kLength)) == 0 ? 0U : 1U;
            }
            --writing;
        });
    }
    for (int reader = 0; reader < 2; ++reader) {
        threads.emplace_back([&] {
            do {
                const std::string text = read(5, kLength);
                broken += text == std::string(kLength, text[0]) ? 0U : 1U;
            } while (writing > 0);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0U, failed);
    EXPECT_EQ(0U, broken);
    EXPECT_THAT(mFolder.names(), ElementsAre("5"));
}

TEST_F(VendorDataTest, AKilledWriterLosesNothingOld) {
    constexpr size_t kLength = 4000;
    ASSERT_EQ(0, write(5, uniform(0, kLength)));
    killWriters(
        60, [](unsigned i) { return write(5, uniform(i, kLength)) == 0; },
        [] {
            const std::string text = read(5, kLength);
            EXPECT_EQ(std::string(kLength, text[0]), text);
        });
}
