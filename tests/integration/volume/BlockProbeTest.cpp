// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What is taken for a disk and what for a volume, on images: libblkid looks at a file as at a device.
 */
#include "volume/BlockProbe.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/integration/volume/LoopDisk.h"

using android::String8;
using volume::BlockProbe;
using volume::ProbedValue;

namespace {

constexpr uintmax_t kImageSize = 8 * 1024 * 1024;
/** Where a DOS table has its first entry, and how long one is. */
constexpr std::streamoff kFirstEntry = 446;
constexpr size_t kEntrySize = 16;

class BlockProbeTest : public ::testing::Test {
  protected:
    void SetUp() override {
        std::string folder = (std::filesystem::temp_directory_path() / "block-probe-XXXXXX").string();
        ASSERT_NE(nullptr, mkdtemp(folder.data()));
        mFolder = folder;
        mImage = folder + "/image";
        std::ofstream(mImage).close();
        std::filesystem::resize_file(mImage, kImageSize);
    }

    void TearDown() override { std::filesystem::remove_all(mFolder); }

    void write(std::streamoff offset, const std::string& bytes) const {
        std::fstream image(mImage, std::ios::in | std::ios::out | std::ios::binary);
        image.seekp(offset).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }

    /** An entry of a DOS table: one MiB from the first MiB on. */
    static std::string dosEntry() {
        std::array<char, kEntrySize> entry{};
        entry[4] = 0x07;
        entry[9] = 0x08;
        entry[13] = 0x08;
        return {entry.data(), entry.size()};
    }

    /** Probes the image; the value of @p name, "-" when there is none. */
    std::string probedValue(const char* name) {
        EXPECT_EQ(0, mProbe.read(String8(mImage.c_str())));
        for (const ProbedValue& value : mProbe.values()) {
            if (value.name == String8(name)) {
                return value.value.value_or(String8("NULL")).string();
            }
        }
        return "-";
    }

    std::string mFolder;
    std::string mImage;
    BlockProbe mProbe;
};

}  // namespace

TEST_F(BlockProbeTest, NothingIsAVolume) {
    EXPECT_EQ("-", probedValue("TYPE"));
    EXPECT_FALSE(mProbe.isDisk());
}

TEST_F(BlockProbeTest, APartitionTableIsADiskWithAndWithoutEntries) {
    write(510, "\x55\xaa");
    write(440, "\x01\x02\x03\x04");
    EXPECT_EQ("dos", probedValue("PTTYPE"));
    EXPECT_TRUE(mProbe.isDisk());
    write(kFirstEntry, dosEntry());
    EXPECT_EQ("dos", probedValue("PTTYPE"));
    EXPECT_TRUE(mProbe.isDisk());
}

// Its boot sector looks like a DOS table without entries: such sticks stayed unmounted.
TEST_F(BlockProbeTest, ExfatWithoutAPartitionTableIsAVolume) {
    ASSERT_EQ(0, runProgram({"mkfs.exfat", "-L", "MUSIC", mImage}, ""));
    EXPECT_EQ("exfat", probedValue("TYPE"));
    EXPECT_FALSE(mProbe.isDisk());
}

TEST_F(BlockProbeTest, WhatWasProbedBeforeIsForgotten) {
    write(510, "\x55\xaa");
    write(440, "\x01\x02\x03\x04");
    EXPECT_EQ("dos", probedValue("PTTYPE"));
    write(0, std::string(512, '\0'));
    EXPECT_EQ("-", probedValue("PTTYPE"));
    EXPECT_FALSE(mProbe.isDisk());
}
