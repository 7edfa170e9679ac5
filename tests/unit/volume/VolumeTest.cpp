// SPDX-License-Identifier: Apache-2.0
#include "volume/Volume.h"

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "tests/unit/support/LogCapture.h"
#include "volume/VolumeMbr.h"

using android::sp;
using android::String8;
using ::testing::ElementsAre;
using volume::Volume;
using volume::VolumeItf;
using volume::VolumeMbr;

namespace {

LogLine info(const char* text) {
    return {ANDROID_LOG_INFO, "VolumeDetector", text};
}

sp<Volume> makeVolume() {
    return new Volume(String8("sda1"), String8("55AA-0F0F"), String8("MUSIC"), String8("vfat"),
                      String8("/media/sda1"), String8("/dev/sda1"), String8("/mnt/sda1"),
                      String8("/dev/sda"));
}

}  // namespace

TEST(VolumeTest, KeepsItsEightTextsInOrder) {
    const sp<VolumeItf> record = makeVolume();
    EXPECT_EQ(String8("sda1"), record->getName());
    EXPECT_EQ(String8("55AA-0F0F"), record->getUuid());
    EXPECT_EQ(String8("MUSIC"), record->getLabel());
    EXPECT_EQ(String8("vfat"), record->getFormat());
    EXPECT_EQ(String8("/media/sda1"), record->getAccessPath());
    EXPECT_EQ(String8("/dev/sda1"), record->getDevicePath());
    EXPECT_EQ(String8("/mnt/sda1"), record->getMountPath());
    EXPECT_EQ(String8("/dev/sda"), record->getMbrPath());
    EXPECT_EQ(0, makeVolume()->getMark());
}

TEST(VolumeTest, PlaceholderIsUnknownThroughout) {
    const sp<Volume> record = new Volume();
    for (const String8& text :
         {record->getName(), record->getUuid(), record->getLabel(), record->getFormat(),
          record->getAccessPath(), record->getDevicePath(), record->getMountPath(), record->getMbrPath()}) {
        EXPECT_EQ(String8("unknown"), text);
    }
    EXPECT_EQ(0, record->getMark());
}

TEST(VolumeTest, IdentityJoinsPartitionEntryAndFileSystem) {
    const sp<Volume> record = makeVolume();
    EXPECT_EQ(String8("55AA-0F0F"), record->getUuid());
    record->setPartitionUuid(String8("1234-AB"));
    EXPECT_EQ(String8("1234-AB-55AA-0F0F"), record->getUuid());
    EXPECT_EQ(String8("1234-AB-55AA-0F0F"), record->getUuid());
    record->setPartitionUuid(String8());
    EXPECT_EQ(String8("55AA-0F0F"), record->getUuid());
    record->setUuid(String8());
    EXPECT_EQ(String8(), record->getUuid());
    record->setPartitionUuid(String8("1234-AB"));
    EXPECT_EQ(String8("1234-AB-"), record->getUuid());
}

TEST(VolumeTest, PartitionsNameIsPreferredToTheLabel) {
    const sp<Volume> record = makeVolume();
    EXPECT_EQ(String8("MUSIC"), record->getLabel());
    record->setPartitionLabel(String8("EFI system"));
    EXPECT_EQ(String8("EFI system"), record->getLabel());
    record->setPartitionLabel(String8());
    EXPECT_EQ(String8("MUSIC"), record->getLabel());
}

TEST(VolumeTest, ResetOfTheMountPathLeavesOldReferencesValid) {
    const sp<Volume> record = makeVolume();
    const String8& before = record->getMountPath();
    record->resetMountPath();
    EXPECT_EQ(String8("unknown"), record->getMountPath());
    EXPECT_EQ(String8("/mnt/sda1"), before);
    EXPECT_EQ(String8("/media/sda1"), record->getAccessPath());
}

TEST(VolumeTest, HasADiskOfItsOwn) {
    const sp<Volume> first = makeVolume();
    const sp<Volume> second = makeVolume();
    EXPECT_NE(first->getMbr(), second->getMbr());
    const sp<VolumeMbr> disk = new VolumeMbr(String8("/dev/sdb"));
    first->setMbr(disk);
    EXPECT_EQ(String8("/dev/sdb"), first->getMbrPath());
    EXPECT_EQ(String8("/dev/sda"), second->getMbrPath());
}

TEST(VolumeTest, MarksAreOnlyStored) {
    const sp<Volume> record = new Volume();
    record->setMark(1);
    EXPECT_EQ(1, record->getMark());
    const sp<VolumeMbr> disk = new VolumeMbr();
    EXPECT_EQ(0, disk->getMark());
    disk->setMark(1);
    EXPECT_EQ(1, disk->getMark());
}

// The cached identity was written again at each question, under the eyes of other readers.
TEST(VolumeTest, MayBeReadAndResetFromSeveralThreads) {
    const sp<Volume> record = makeVolume();
    record->setPartitionUuid(String8("1234-AB"));
    std::atomic<int> wrong{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 4; ++i) {
        readers.emplace_back([&] {
            for (int round = 0; round < 2000; ++round) {
                const String8& path = record->getMountPath();
                const bool known = path == "/mnt/sda1" || path == "unknown";
                if (record->getUuid() != "1234-AB-55AA-0F0F" || !known) {
                    ++wrong;
                }
            }
        });
    }
    record->resetMountPath();
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(0, wrong);
}

TEST(VolumeTest, DumpsTheRawFields) {
    const sp<Volume> record = makeVolume();
    record->setPartitionUuid(String8("1234-AB"));
    record->setPartitionLabel(String8("part"));
    LogCapture log;
    record->dump();
    EXPECT_THAT(log.take("VolumeDetector"),
                ElementsAre(info("----dump volume start----"), info("name             [sda1]"),
                            info("device path      [/dev/sda1]"), info("uuid             [55AA-0F0F]"),
                            info("label            [MUSIC]"), info("partition uuid   [1234-AB]"),
                            info("partition label  [part]"), info("format           [vfat]"),
                            info("mount path       [/mnt/sda1]"), info("access path      [/media/sda1]"),
                            info("----dump volume end----")));
    record->resetMountPath();
    record->dump();
    EXPECT_THAT(log.take("VolumeDetector"), ::testing::Contains(info("mount path       [unknown]")));
}

// A label with line feeds wrote lines of the log that nobody had logged.
TEST(VolumeTest, DumpsNoControlCharacter) {
    const sp<Volume> record = makeVolume();
    record->setLabel(String8("A\n\x1b[2JB\x7f"));
    record->setPartitionLabel(String8("\r\t"));
    LogCapture log;
    record->dump();
    const std::vector<LogLine> lines = log.take("VolumeDetector");
    EXPECT_THAT(lines, ::testing::Contains(info("label            [A??[2JB?]")));
    EXPECT_THAT(lines, ::testing::Contains(info("partition label  [??]")));
    // To clients it goes as it is.
    record->setPartitionLabel(String8());
    EXPECT_EQ(String8("A\n\x1b[2JB\x7f"), record->getLabel());
}

TEST(VolumeMbrTest, IsEmptyAtFirstAndUnknownWithoutAPath) {
    const sp<VolumeMbr> unknown = new VolumeMbr();
    EXPECT_EQ(String8("unknown"), unknown->getPath());
    const sp<VolumeMbr> disk = new VolumeMbr(String8("/dev/sda"));
    EXPECT_EQ(String8("/dev/sda"), disk->getPath());
    EXPECT_EQ(String8(), disk->getUuid());
    EXPECT_EQ(String8(), disk->getType());
    EXPECT_EQ(0, disk->getVolumeCount());
    EXPECT_EQ(0, disk->getMark());
}

TEST(VolumeMbrTest, Dumps) {
    const sp<VolumeMbr> disk = new VolumeMbr(String8("/dev/sda"));
    disk->setUuid(String8("0badcafe"));
    disk->setType(String8("gpt"));
    disk->setVolumeCount(3);
    LogCapture log;
    disk->dump();
    EXPECT_THAT(log.take("VolumeDetector"),
                ElementsAre(info("----dump MBR start----"), info("mbr path         [/dev/sda]"),
                            info("uuid             [0badcafe]"), info("type             [gpt]"),
                            info("volume count     [3]"), info("----dump MBR end----")));
}
