// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * From a node in /dev to the notifier: disks of all kinds come and go.
 */
#include <android/log.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <array>
#include <fstream>
#include <thread>

#include "tests/integration/volume/SleepHook.h"
#include "tests/integration/volume/VolumeFixture.h"
#include "tests/unit/common/ThreadProbe.h"

using android::sp;
using android::String16;
using android::String8;
using android::Vector;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using volume::VolumeItf;

namespace {

/** No driver has this number: opening such a node fails with ENXIO. */
const dev_t kNoDisk = makedev(120, 77);

std::string added(const std::string& name) {
    return "added " + name + " /mnt/" + name + " /media/" + name;
}

std::string addedUnmounted(const std::string& name) {
    return "added " + name + " unknown unknown";
}

std::string removed(const std::string& name) {
    return "removed " + name;
}

LogLine info(const std::string& text) {
    return {ANDROID_LOG_INFO, "VolumeDetector", text};
}

class VolumeRoadTest : public VolumeFixture {
  protected:
    /** A GPT disk of two volumes, the first one's entry named. */
    LoopDisk& plugGpt(const std::string& name, const std::string& separator = "") {
        const std::string image = mFolder / name;
        makeImage(image, 20);
        makePartitions(image,
                       "label: gpt\nlabel-id: 11111111-2222-3333-4444-555555555555\n"
                       "start=2048, size=16384, name=\"Songs of 1984\", "
                       "uuid=AAAAAAAA-0000-0000-0000-000000000001\n"
                       "start=18432, size=16384, uuid=AAAAAAAA-0000-0000-0000-000000000002\n");
        makeExt4(image, "FIRST", kUuid, 8, 1 << 20);
        makeExt4(image, "SECOND", "6ba7b810-9dad-11d1-80b4-00c04fd430c9", 8, 9 << 20);
        std::unique_ptr<LoopDisk>& disk = mDisks[name];
        disk = std::make_unique<LoopDisk>(image);
        disk->addPartition(1, 1, 8);
        disk->addPartition(2, 9, 8);
        plug(name, disk->number());
        plug(name + separator + "1", disk->partitionNumber(1));
        plug(name + separator + "2", disk->partitionNumber(2));
        return *disk;
    }

    /** Waits until everything that was done to /dev so far was dealt with. */
    void fence() {
        plug("sdfence", kNoDisk);
        ASSERT_TRUE(waitForLine(ANDROID_LOG_WARN,
                                "unknown device (path[/dev/sdfence] name[sdfence]) add, make a fake volume"));
        unplug("sdfence");
        ASSERT_TRUE(waitForLine(ANDROID_LOG_INFO, "volume device remove path[/dev/sdfence] name[sdfence]"));
    }

    /** Plugs "sda" and returns while the notifier hears of it, which takes until mMayGoOn is open. */
    void plugUntilNotified() {
        mRecorder->mInside = [this] {
            mEntered.open();
            EXPECT_TRUE(mMayGoOn.wait());
        };
        plugExt4("sda");
        ASSERT_TRUE(mEntered.wait());
    }

    Gate mMayGoOn;

  private:
    Gate mEntered;
};

}  // namespace

TEST_F(VolumeRoadTest, AVolumeWithoutPartitionTable) {
    plugExt4("sda");
    expectCalls({added("sda")});
    const sp<VolumeItf> volume = mRecorder->volume(0);
    EXPECT_EQ(String8(kUuid), volume->getUuid());
    EXPECT_EQ(String8("MUSIC"), volume->getLabel());
    EXPECT_EQ(String8("ext4"), volume->getFormat());
    EXPECT_EQ(String8("/dev/sda"), volume->getDevicePath());
    EXPECT_EQ(String8("unknown"), volume->getMbrPath());
    EXPECT_EQ(1, mManager->getVolumeCount());
    EXPECT_EQ(volume, mManager->queryVolume(0));
    EXPECT_EQ("rw,nosuid,nodev,noatime,nodiratime", mountOptions("/mnt/sda"));
    std::ofstream("/media/sda/song") << "la";
    EXPECT_EQ(0, access("/mnt/sda/song", R_OK));

    unplug("sda");
    expectCalls({added("sda"), removed("sda")});
    // Of the very record that was added, which is not mounted any more.
    EXPECT_EQ(volume, mRecorder->volume(1));
    EXPECT_EQ(String8("unknown"), volume->getMountPath());
    EXPECT_EQ(0, mManager->getVolumeCount());
}

TEST_F(VolumeRoadTest, EveryLineOfAVolumesWay) {
    plugExt4("sda");
    ASSERT_TRUE(waitForLine(ANDROID_LOG_INFO, "----dump volume end----"));
    std::vector<LogLine> lines = mLog.take();
    // What libblkid finds beyond these, and the test's own nodes, differ from machine to machine.
    const auto isValue = [](const LogLine& line) {
        return line.text.rfind("Partition : name[", 0) == 0 || line.text.rfind("[/dev/loop", 0) == 0;
    };
    EXPECT_NE(lines.end(),
              std::find(lines.begin(), lines.end(), info("Partition : name[LABEL]: value[MUSIC]")));
    EXPECT_NE(lines.end(),
              std::find(lines.begin(), lines.end(), info("Partition : name[TYPE]: value[ext4]")));
    lines.erase(std::remove_if(lines.begin(), lines.end(), isValue), lines.end());
    EXPECT_THAT(
        lines,
        ElementsAre(LogLine{ANDROID_LOG_INFO, "FileSystemObserver", "[/dev/sda] add"},
                    info("device add path[/dev/sda] name[sda]"), info("volume add path[/dev/sda] name[sda]"),
                    LogLine{ANDROID_LOG_WARN, kTag, "volume [sda] has no mbr"}, info("notify attach\n"),
                    info("----dump MBR start----"), info("mbr path         [unknown]"),
                    info("uuid             []"), info("type             []"), info("volume count     [0]"),
                    info("----dump MBR end----"), info("----dump volume start----"),
                    info("name             [sda]"), info("device path      [/dev/sda]"),
                    info("uuid             [" + std::string(kUuid) + "]"), info("label            [MUSIC]"),
                    info("partition uuid   []"), info("partition label  []"), info("format           [ext4]"),
                    info("mount path       [/mnt/sda]"), info("access path      [/media/sda]"),
                    info("----dump volume end----")));
    unplug("sda");
    ASSERT_TRUE(waitForLine(ANDROID_LOG_INFO, "----dump volume end----"));
    lines = mLog.take();
    ASSERT_LE(3U, lines.size());
    EXPECT_EQ((LogLine{ANDROID_LOG_INFO, "FileSystemObserver", "[/dev/sda] remove"}), lines[0]);
    EXPECT_EQ(info("volume device remove path[/dev/sda] name[sda]"), lines[1]);
    EXPECT_EQ(info("notify dettach\n"), lines[2]);
}

TEST_F(VolumeRoadTest, AGptDiskOfTwoVolumes) {
    plugGpt("sdb");
    expectCalls({added("sdb1"), added("sdb2")});
    const sp<VolumeItf> first = mManager->queryVolume(0);
    const sp<VolumeItf> second = mManager->queryVolume(1);
    EXPECT_EQ(String8("aaaaaaaa-0000-0000-0000-000000000001-6ba7b810-9dad-11d1-80b4-00c04fd430c8"),
              first->getUuid());
    EXPECT_EQ(String8("Songs of 1984"), first->getLabel());
    EXPECT_EQ(String8("/dev/sdb"), first->getMbrPath());
    // An entry without a name leaves the file system's label.
    EXPECT_EQ(String8("SECOND"), second->getLabel());
    EXPECT_EQ(String8("/dev/sdb"), second->getMbrPath());
    EXPECT_TRUE(waitForLine(ANDROID_LOG_INFO, "volume mbr add path[/dev/sdb] name[sdb]"));
    EXPECT_TRUE(
        waitForLine(ANDROID_LOG_INFO, "MBR : name[PTUUID]: value[11111111-2222-3333-4444-555555555555]"));
    EXPECT_TRUE(waitForLine(ANDROID_LOG_INFO, "notify mbr volume attach\n"));
    EXPECT_TRUE(waitForLine(ANDROID_LOG_INFO, "volume device mbr[sdb] name[sdb2]"));
    EXPECT_TRUE(waitForLine(ANDROID_LOG_INFO, "volume count     [2]"));
    EXPECT_TRUE(waitForLine(ANDROID_LOG_INFO, "type             [gpt]"));
    unplug("sdb1");
    unplug("sdb2");
    unplug("sdb");
    ASSERT_TRUE(mRecorder->waitFor(4));
    EXPECT_TRUE(waitForLine(ANDROID_LOG_INFO, "notify mbr volume dettach\n"));
}

TEST_F(VolumeRoadTest, AnMbrDisk) {
    const std::string image = mFolder / "sda";
    makeImage(image, 12);
    makePartitions(image, "label: dos\nlabel-id: 0x1234abcd\nstart=2048, size=16384, type=83\n");
    makeExt4(image, "CARD", kUuid, 8, 1 << 20);
    LoopDisk disk(image);
    disk.addPartition(1, 1, 8);
    plug("sda", disk.number());
    plug("sda1", disk.partitionNumber(1));
    expectCalls({added("sda1")});
    EXPECT_EQ(String8("1234abcd-01-6ba7b810-9dad-11d1-80b4-00c04fd430c8"), mRecorder->volume(0)->getUuid());
    EXPECT_EQ(String8("CARD"), mRecorder->volume(0)->getLabel());
    unplug("sda1");
    unplug("sda");
    expectCalls({added("sda1"), removed("sda1")});
}

TEST_F(VolumeRoadTest, ACardAndAStickAtOnce) {
    plugGpt("mmcblk10", "p");
    plugExt4("sdaa", "STICK");
    expectCalls({added("mmcblk10p1"), added("mmcblk10p2"), added("sdaa")});
    EXPECT_EQ(String8("/dev/mmcblk10"), mRecorder->volume(1)->getMbrPath());
    EXPECT_EQ(3, mManager->getVolumeCount());
    unplug("mmcblk10p1");
    unplug("mmcblk10p2");
    unplug("mmcblk10");
    ASSERT_TRUE(mRecorder->waitFor(5));
    EXPECT_EQ(1, mManager->getVolumeCount());
    EXPECT_EQ(String8("sdaa"), mManager->queryVolume(0)->getName());
    unplug("sdaa");
    ASSERT_TRUE(mRecorder->waitFor(6));
}

TEST_F(VolumeRoadTest, ADiskIsTheFirstOneWhoseNameBeginsTheVolumes) {
    makeImage(mFolder / "first", 4);
    makePartitions(mFolder / "first", "label: gpt\n");
    LoopDisk first(mFolder / "first");
    plugGpt("sdaa");
    expectCalls({added("sdaa1"), added("sdaa2")});
    EXPECT_EQ(String8("/dev/sdaa"), mRecorder->volume(0)->getMbrPath());
    plug("sda", first.number());
    unplug("sdaa1");
    plug("sdaa1", mDisks["sdaa"]->partitionNumber(1));
    expectCalls({added("sdaa1"), added("sdaa2"), removed("sdaa1"), added("sdaa1")});
    EXPECT_EQ(String8("/dev/sda"), mRecorder->volume(3)->getMbrPath());
    unplug("sda");
    unplug("sdaa1");
    unplug("sdaa2");
    unplug("sdaa");
    ASSERT_TRUE(mRecorder->waitFor(6));
}

TEST_F(VolumeRoadTest, TwoSticksOfOneLabel) {
    plugExt4("sda", "SAME");
    plugExt4("sdb", "SAME", "6ba7b810-9dad-11d1-80b4-00c04fd430c9");
    expectCalls({added("sda"), added("sdb")});
    EXPECT_EQ(mRecorder->volume(0)->getLabel(), mRecorder->volume(1)->getLabel());
    EXPECT_NE(mRecorder->volume(0)->getUuid(), mRecorder->volume(1)->getUuid());
    unplug("sda");
    unplug("sdb");
    ASSERT_TRUE(mRecorder->waitFor(4));
}

TEST_F(VolumeRoadTest, ADeviceThatCannotBeReadIsAPlaceholder) {
    plug("sdc", kNoDisk);
    expectCalls({addedUnmounted("sdc")});
    EXPECT_TRUE(
        waitForLine(ANDROID_LOG_ERROR, "open device path: /dev/sdc error[No such device or address]\n"));
    EXPECT_TRUE(
        waitForLine(ANDROID_LOG_WARN, "unknown device (path[/dev/sdc] name[sdc]) add, make a fake volume"));
    const sp<VolumeItf> volume = mRecorder->volume(0);
    EXPECT_EQ(String8("/dev/sdc"), volume->getDevicePath());
    EXPECT_EQ(String8("unknown"), volume->getUuid());
    EXPECT_EQ(String8("unknown"), volume->getLabel());
    EXPECT_EQ(String8("unknown"), volume->getFormat());
    EXPECT_EQ(String8("unknown"), volume->getMbrPath());
    unplug("sdc");
    expectCalls({addedUnmounted("sdc"), removed("sdc")});
}

TEST_F(VolumeRoadTest, AnUnformattedDiskHasAName) {
    makeImage(mFolder / "empty", 4);
    LoopDisk disk(mFolder / "empty");
    plug("sda", disk.number());
    expectCalls({addedUnmounted("sda")});
    EXPECT_EQ(String8("unknown"), mRecorder->volume(0)->getFormat());
    EXPECT_TRUE(
        waitForLine(ANDROID_LOG_ERROR, "Unable to mount [/dev/sda] to [/mnt/sda] err(No such device)"));
    EXPECT_EQ(0U, countLines("unknown device (path[/dev/sda] name[sda]) add, make a fake volume"));
    EXPECT_THAT(entriesOf("/mnt"), IsEmpty());
    unplug("sda");
    expectCalls({addedUnmounted("sda"), removed("sda")});
}

TEST_F(VolumeRoadTest, AFileSystemThatNobodyCanMount) {
    makeImage(mFolder / "swap", 4);
    ASSERT_EQ(0, runProgram({"mkswap", "-q", "-L", "SWAP", mFolder / "swap"}));
    LoopDisk disk(mFolder / "swap");
    plug("sda", disk.number());
    expectCalls({addedUnmounted("sda")});
    EXPECT_EQ(String8("swap"), mRecorder->volume(0)->getFormat());
    unplug("sda");
    ASSERT_TRUE(mRecorder->waitFor(2));
}

TEST_F(VolumeRoadTest, AFileSystemThatClaimsMoreThanTheDisk) {
    makeExt4(mFolder / "cut", "CUT", kUuid, 64);
    ASSERT_EQ(0, truncate((mFolder / "cut").c_str(), 4 << 20));
    LoopDisk disk(mFolder / "cut");
    plug("sda", disk.number());
    expectCalls({addedUnmounted("sda")});
    EXPECT_EQ(String8("ext4"), mRecorder->volume(0)->getFormat());
    EXPECT_THAT(entriesOf("/mnt"), IsEmpty());
    unplug("sda");
    ASSERT_TRUE(mRecorder->waitFor(2));
}

// The kernel shows a node about a millisecond before its disk can be opened: good sticks became placeholders.
TEST_F(VolumeRoadTest, WaitsForADiskThatIsNotReadyWithoutHoldingTheLists) {
    makeExt4(mFolder / "late", "LATE", kUuid);
    LoopDisk disk(mFolder / "late");
    plugExt4("sda");
    ASSERT_TRUE(mRecorder->waitFor(1));

    plug("late", disk.number());
    int waits = 0;
    const SleepHook hook([&] {
        // Queries are answered while the node answers ENXIO; the lists must not be locked.
        EXPECT_EQ(1, mManager->getVolumeCount());
        EXPECT_EQ(String8("sda"), mManager->queryVolume(0)->getName());
        if (++waits == 3) {
            // In place: the observer of /dev hears of neither name.
            EXPECT_EQ(0, rename("/dev/late", "/dev/sdb1"));
        }
    });
    plug("sdb1", kNoDisk);
    expectCalls({added("sda"), added("sdb1")});
    EXPECT_EQ(3, waits);
    EXPECT_EQ(0U, mLog.count([](const LogLine& line) { return line.priority == ANDROID_LOG_ERROR; }));
    unplug("sda");
    unplug("sdb1");
    ASSERT_TRUE(mRecorder->waitFor(4));
}

TEST_F(VolumeRoadTest, WhatIsNoDiskDoesNotHangIt) {
    // Opening a pipe waits for somebody to write.
    ASSERT_EQ(0, mkfifo("/dev/sdpipe", 0600));
    expectCalls({addedUnmounted("sdpipe")});
    EXPECT_TRUE(
        waitForLine(ANDROID_LOG_ERROR, "open device path: /dev/sdpipe error[Block device required]\n"));
    unplug("sdpipe");
    ASSERT_TRUE(mRecorder->waitFor(2));
}

TEST_F(VolumeRoadTest, RefusesNamesThatWouldLeaveTheFolders) {
    for (const char* name : {"sd..", "sda b", "sda;id", "sda$(id)", "sda`id`", "sda\n", "sda'", "sda*"}) {
        plug(name, kNoDisk);
        unplug(name);
    }
    plug("tty7", kNoDisk);
    unplug("tty7");
    fence();
    EXPECT_EQ(16U, mLog.count([](const LogLine& line) {
        return line.priority == ANDROID_LOG_WARN && line.text.rfind("device path[/dev/sd", 0) == 0;
    }));
    EXPECT_EQ(1U, mLog.count([](const LogLine& line) { return line.text.rfind("device add ", 0) == 0; }));
    ASSERT_TRUE(eventually([this] { return mManager->getVolumeCount() == 0; }));
}

TEST_F(VolumeRoadTest, ThePatternMatchesAnywhere) {
    const std::string image = mFolder / "x";
    makeExt4(image, "X", kUuid);
    LoopDisk disk(image);
    plug("xsdq", disk.number());
    // It is mounted by its name, which is no node here.
    expectCalls({addedUnmounted("sdq")});
    EXPECT_EQ(String8("/dev/xsdq"), mRecorder->volume(0)->getDevicePath());
    EXPECT_EQ(String8("X"), mRecorder->volume(0)->getLabel());
    unplug("xsdq");
    expectCalls({addedUnmounted("sdq"), removed("sdq")});
}

TEST_F(VolumeRoadTest, HostileLabelsAreData) {
    const std::string labels[] = {"a\nb\x01\x7f", "'\";$(id)`id`", "../../x", "\xff\xfe\x80"};
    std::vector<std::string> calls;
    char name[] = "sda";
    for (const std::string& label : labels) {
        plugExt4(name, label);
        calls.push_back(added(name));
        calls.push_back(removed(name));
        ASSERT_TRUE(mRecorder->waitFor(calls.size() - 1));
        EXPECT_EQ(String8(label.c_str()), mRecorder->volume(calls.size() - 2)->getLabel());
        unplug(name);
        expectCalls(calls);
        ++name[2];
    }
    EXPECT_TRUE(waitForLine(ANDROID_LOG_INFO, "Partition : name[LABEL]: value[a?b??]"));
}

TEST_F(VolumeRoadTest, PartitionTablesMadeToHurt) {
    // An extended partition whose first record points to itself for ever, and one that overlaps it.
    const std::string image = mFolder / "loop";
    makeImage(image, 8);
    std::vector<unsigned char> table(512);
    const auto entry = [&table](int index, unsigned char type, uint32_t start, uint32_t size) {
        unsigned char* const at = &table[static_cast<size_t>(446 + 16 * index)];
        at[4] = type;
        for (int byte = 0; byte < 4; ++byte) {
            at[8 + byte] = static_cast<unsigned char>(start >> (8 * byte));
            at[12 + byte] = static_cast<unsigned char>(size >> (8 * byte));
        }
    };
    entry(0, 0x83, 1, 0xffffffffU);
    entry(1, 0x05, 64, 8192);
    entry(2, 0x83, 32, 4096);
    entry(3, 0x83, 0xfffffff0U, 0xfffffff0U);
    table[510] = 0x55;
    table[511] = 0xaa;
    const auto writeAt = [&](off_t offset) {
        std::fstream file(image, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(offset);
        file.write(reinterpret_cast<const char*>(table.data()), 512);
    };
    writeAt(0);
    table.assign(512, 0);
    entry(0, 0x83, 1, 10);
    entry(1, 0x05, 0, 8192);
    table[510] = 0x55;
    table[511] = 0xaa;
    writeAt(static_cast<off_t>(64) * 512);

    LoopDisk disk(image);
    plug("sda", disk.number());
    ASSERT_TRUE(waitForLine(ANDROID_LOG_INFO, "notify mbr volume attach\n"));
    unplug("sda");
    ASSERT_TRUE(waitForLine(ANDROID_LOG_INFO, "notify mbr volume dettach\n"));
    EXPECT_THAT(mRecorder->calls(), IsEmpty());
}

TEST_F(VolumeRoadTest, APartitionTableWrittenAnew) {
    LoopDisk& disk = plugGpt("sda");
    ASSERT_TRUE(mRecorder->waitFor(2));
    unplug("sda1");
    unplug("sda2");
    ASSERT_TRUE(mRecorder->waitFor(4));
    disk.removePartition(1);
    disk.removePartition(2);
    makePartitions(mFolder / "sda", "label: dos\nlabel-id: 0x77777777\nstart=4096, size=16384, type=83\n");
    makeExt4(mFolder / "sda", "NEW", kUuid, 8, 2 << 20);
    disk.addPartition(1, 2, 8);
    plug("sda1", disk.partitionNumber(1));
    expectCalls({added("sda1"), added("sda2"), removed("sda1"), removed("sda2"), added("sda1")});
    EXPECT_EQ(String8("NEW"), mRecorder->volume(4)->getLabel());
    EXPECT_EQ(1, mManager->getVolumeCount());
    unplug("sda1");
    unplug("sda");
    ASSERT_TRUE(mRecorder->waitFor(6));
}

TEST_F(VolumeRoadTest, TheSameStickTenTimes) {
    makeExt4(mFolder / "stick", "STICK", kUuid);
    LoopDisk disk(mFolder / "stick");
    std::vector<std::string> calls;
    for (int i = 0; i < 10; ++i) {
        plug("sda", disk.number());
        calls.push_back(added("sda"));
        expectCalls(calls);
        EXPECT_EQ(0, access("/media/sda/lost+found", F_OK));
        unplug("sda");
        calls.push_back(removed("sda"));
        expectCalls(calls);
    }
}

TEST_F(VolumeRoadTest, EightSticksAtOnce) {
    std::vector<std::string> calls;
    for (char letter = 'a'; letter < 'i'; ++letter) {
        plugExt4(std::string("sd") + letter);
        calls.push_back(added(std::string("sd") + letter));
    }
    expectCalls(calls);
    EXPECT_EQ(8, mManager->getVolumeCount());
    for (char letter = 'a'; letter < 'i'; ++letter) {
        unplug(std::string("sd") + letter);
    }
    ASSERT_TRUE(mRecorder->waitFor(16));
    EXPECT_EQ(0, mManager->getVolumeCount());
}

TEST_F(VolumeRoadTest, RemovedWhileOneReadsAndOneWrites) {
    plugExt4("sda");
    ASSERT_TRUE(mRecorder->waitFor(1));
    const int writer = open("/media/sda/written", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    const int reader = open("/media/sda", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(writer, 0);
    ASSERT_GE(reader, 0);
    ASSERT_EQ(2, write(writer, "la", 2));
    unplug("sda");
    expectCalls({added("sda"), removed("sda")});
    EXPECT_EQ("", mountOptions("/mnt/sda"));
    EXPECT_THAT(entriesOf("/mnt"), IsEmpty());
    EXPECT_THAT(entriesOf("/media"), IsEmpty());
    close(writer);
    close(reader);
}

TEST_F(VolumeRoadTest, TenQuickChangesAreOnePass) {
    ASSERT_NO_FATAL_FAILURE(plugUntilNotified());
    makeExt4(mFolder / "b", "B", kUuid);
    LoopDisk disk(mFolder / "b");
    for (int i = 0; i < 5; ++i) {
        plug("sdb", disk.number());
        ASSERT_TRUE(eventually([this] { return mManager->getVolumeCount() == 2; }));
        if (i < 4) {
            unplug("sdb");
            ASSERT_TRUE(eventually([this] { return mManager->getVolumeCount() == 1; }));
        }
    }
    // The lists are ahead of the notifier, which hears only what is left of the changes.
    mMayGoOn.open();
    expectCalls({added("sda"), added("sdb")});
    unplug("sda");
    unplug("sdb");
    ASSERT_TRUE(mRecorder->waitFor(4));
    EXPECT_EQ(2U, countLines("notify attach\n"));
    EXPECT_EQ(2U, countLines("notify dettach\n"));
}

TEST_F(VolumeRoadTest, AVolumeThatCameAndWentUnnoticedIsNotReported) {
    ASSERT_NO_FATAL_FAILURE(plugUntilNotified());
    plug("sdb", kNoDisk);
    ASSERT_TRUE(eventually([this] { return mManager->getVolumeCount() == 2; }));
    unplug("sdb");
    ASSERT_TRUE(eventually([this] { return mManager->getVolumeCount() == 1; }));
    mMayGoOn.open();
    unplug("sda");
    expectCalls({added("sda"), removed("sda")});
}

// Such a volume was in the list, but never told as gone: who had read the list kept it for ever.
TEST_F(VolumeRoadTest, AVolumeThatGoesBeforeItsTurnIsToldAsGone) {
    std::array<Gate, 2> entered;
    std::array<Gate, 2> leave;
    size_t call = 0;
    mRecorder->mInside = [&] {
        if (call < entered.size()) {
            entered[call].open();
            EXPECT_TRUE(leave[call].wait());
            ++call;
        }
    };
    plugExt4("sda");
    ASSERT_TRUE(entered[0].wait());
    // One pass for these three.
    plugExt4("sdb");
    plug("sdc", kNoDisk);
    plug("sdd", kNoDisk);
    ASSERT_TRUE(eventually([this] { return mManager->getVolumeCount() == 4; }));
    leave[0].open();
    ASSERT_TRUE(entered[1].wait());
    // Their turn comes when they are gone, and another one is in the place of the last.
    unplug("sdc");
    unplug("sdd");
    ASSERT_TRUE(eventually([this] { return mManager->getVolumeCount() == 2; }));
    plug("sdd", kNoDisk);
    ASSERT_TRUE(eventually([this] { return mManager->getVolumeCount() == 3; }));
    leave[1].open();
    expectCalls({added("sda"), added("sdb"), addedUnmounted("sdc"), addedUnmounted("sdd"), removed("sdc"),
                 removed("sdd"), addedUnmounted("sdd")});
    EXPECT_EQ(mRecorder->volume(3), mRecorder->volume(5)) << "the one that was told as there";
    EXPECT_NE(mRecorder->volume(5), mRecorder->volume(6));
    for (const char* const name : {"sda", "sdb", "sdd"}) {
        unplug(name);
    }
    ASSERT_TRUE(mRecorder->waitFor(10));
}

TEST_F(VolumeRoadTest, AVolumeThatChangedIsReportedRemovedFirst) {
    ASSERT_NO_FATAL_FAILURE(plugUntilNotified());
    unplug("sda");
    ASSERT_TRUE(eventually([this] { return mManager->getVolumeCount() == 0; }));
    plug("sda", mDisks["sda"]->number());
    ASSERT_TRUE(eventually([this] { return mManager->getVolumeCount() == 1; }));
    mMayGoOn.open();
    ASSERT_TRUE(mRecorder->waitFor(3));
    EXPECT_EQ(removed("sda"), mRecorder->calls()[1]);
    EXPECT_EQ(added("sda"), mRecorder->calls()[2]);
    EXPECT_NE(mRecorder->volume(1), mRecorder->volume(2));
    unplug("sda");
    ASSERT_TRUE(mRecorder->waitFor(4));
}

TEST_F(VolumeRoadTest, QueriesPastTheEndYieldThePlaceholder) {
    for (const int index : {0, 1, -1, INT32_MAX, INT32_MIN}) {
        const sp<VolumeItf> volume = mManager->queryVolume(index);
        ASSERT_NE(nullptr, volume) << index;
        EXPECT_EQ(String8("unknown"), volume->getName());
        EXPECT_EQ(String8("unknown"), volume->getMbrPath());
    }
    EXPECT_EQ(0, mManager->getVolumeCount());
}

TEST_F(VolumeRoadTest, StopsAndStartsAgain) {
    mManager->shutdown();
    EXPECT_TRUE(eventually([] { return countThreads("ObserverThread") == 0; }));
    EXPECT_TRUE(eventually([] { return countThreads("VolumeDetectorQ") == 0; }));
    mManager->startup();
    plugExt4("sda");
    expectCalls({added("sda")});

    // What is mounted stays so, and its departure while nobody listens is noticed at the next start.
    mManager->shutdown();
    EXPECT_EQ(1, mManager->getVolumeCount());
    EXPECT_EQ(0, access("/media/sda/lost+found", F_OK));
    unplug("sda");
    mManager->startup();
    expectCalls({added("sda"), removed("sda")});
    EXPECT_EQ("", mountOptions("/mnt/sda"));

    plug("sda", mDisks["sda"]->number());
    expectCalls({added("sda"), removed("sda"), added("sda")});
    unplug("sda");
    ASSERT_TRUE(mRecorder->waitFor(4));
}

TEST_F(VolumeRoadTest, WhatStaysPluggedOverAStopStaysAsItIs) {
    plugExt4("sda");
    ASSERT_TRUE(mRecorder->waitFor(1));
    mManager->shutdown();
    mManager->startup();
    fence();
    EXPECT_EQ(0, access("/media/sda/lost+found", F_OK));
    unplug("sda");
    // In one pass with the fence's departure, before or after it, or in a pass of its own.
    ASSERT_TRUE(eventually([this] {
        const std::vector<std::string> calls = mRecorder->calls();
        return std::count(calls.begin(), calls.end(), removed("sda")) > 0;
    }));
    const std::vector<std::string> calls = mRecorder->calls();
    EXPECT_EQ(1, std::count(calls.begin(), calls.end(), added("sda")));
    EXPECT_EQ(1, std::count(calls.begin(), calls.end(), removed("sda")));
}

TEST_F(VolumeRoadTest, AStickExchangedOverAStopIsGone) {
    plugExt4("sda", "ONE");
    ASSERT_TRUE(mRecorder->waitFor(1));
    mManager->shutdown();
    unplug("sda");
    makeExt4(mFolder / "two", "TWO", kUuid);
    LoopDisk two(mFolder / "two");
    plug("sda", two.number());
    mManager->startup();
    // What is there before a start is not looked for.
    expectCalls({added("sda"), removed("sda")});
    EXPECT_EQ("", mountOptions("/mnt/sda"));
    EXPECT_EQ(0, mManager->getVolumeCount());
    unplug("sda");
}

TEST_F(VolumeRoadTest, AnOldMountGivesWayWhenItsDepartureWasMissed) {
    plugExt4("sda", "ONE");
    ASSERT_TRUE(mRecorder->waitFor(1));
    makeExt4(mFolder / "two", "TWO", "6ba7b810-9dad-11d1-80b4-00c04fd430c9");
    LoopDisk two(mFolder / "two");
    // A rename out of the folder and one onto the old name tell of nothing; the new entry that matches is
    // "xsda", whose device is called sda too.
    ASSERT_EQ(0, mknod("/dev/other", S_IFBLK | 0600, two.number()));
    ASSERT_EQ(0, rename("/dev/other", "/dev/sda"));
    ASSERT_EQ(0, link("/dev/sda", "/dev/xsda"));
    expectCalls({added("sda"), removed("sda"), added("sda")});
    EXPECT_EQ(String8("TWO"), mRecorder->volume(2)->getLabel());
    EXPECT_EQ(0, access("/media/sda/lost+found", F_OK));
    unplug("xsda");
    ASSERT_TRUE(mRecorder->waitFor(4));
    unplug("sda");
}

TEST_F(VolumeRoadTest, ShutDownFromInsideANotification) {
    Gate done;
    bool first = true;
    mRecorder->mInside = [&] {
        if (first) {
            first = false;
            EXPECT_EQ(0, mManager->shutdown());
            done.open();
        }
    };
    plugExt4("sda");
    ASSERT_TRUE(done.wait());
    EXPECT_TRUE(eventually([] { return countThreads("VolumeDetectorQ") == 0; }));
    mManager->startup();
    unplug("sda");
    expectCalls({added("sda"), removed("sda")});
}

TEST_F(VolumeRoadTest, ASlowNotifierDelaysNoQueryAndNoMount) {
    ASSERT_NO_FATAL_FAILURE(plugUntilNotified());
    plugExt4("sdb");
    EXPECT_TRUE(eventually([this] { return mManager->getVolumeCount() == 2; }));
    EXPECT_EQ(0, access("/media/sdb/lost+found", F_OK));
    mMayGoOn.open();
    expectCalls({added("sda"), added("sdb")});
    unplug("sda");
    unplug("sdb");
    ASSERT_TRUE(mRecorder->waitFor(4));
}
