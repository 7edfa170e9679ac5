// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Mounts and links: write-protected media, what is in the way, and what others did to them.
 */
#include <android/log.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

#include "tests/integration/volume/MountHook.h"
#include "tests/integration/volume/VolumeFixture.h"

using android::String8;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const std::string kAdded = "added sda /mnt/sda /media/sda";
const std::string kAddedUnmounted = "added sda unknown unknown";
const std::string kAddedUnlinked = "added sda /mnt/sda unknown";
const std::string kRemoved = "removed sda";
const std::string kReadOnlyLine =
    "Read-only file system[/dev/sda] format[ext4] label[MUSIC], try mount[/mnt/sda]!";

class VolumeMountTest : public VolumeFixture {
  protected:
    /** Disks that are plugged when the test has set the scene. */
    LoopDisk& prepareExt4(bool readOnly = false) {
        makeExt4(mFolder / "sda", "MUSIC", kUuid);
        std::unique_ptr<LoopDisk>& disk = mDisks["sda"];
        disk = std::make_unique<LoopDisk>(mFolder / "sda", readOnly);
        return *disk;
    }

    void plugPrepared() { plug("sda", mDisks["sda"]->number()); }

    /** The medium can be read under /media, and nobody can write to it. */
    static void expectReadOnly() {
        EXPECT_EQ("ro,nosuid,nodev,noatime,nodiratime", mountOptions("/mnt/sda"));
        EXPECT_EQ(0, access("/media/sda/lost+found", F_OK));
        EXPECT_FALSE(std::ofstream("/media/sda/song").is_open());
    }

    void unplugAndExpect(const std::string& call) {
        unplug("sda");
        expectCalls({call, kRemoved});
    }
};

}  // namespace

TEST_F(VolumeMountTest, AWriteProtectedDiskIsMountedReadOnly) {
    EXPECT_TRUE(prepareExt4(/*readOnly=*/true).isReadOnly());
    plugPrepared();
    expectCalls({kAdded});
    EXPECT_TRUE(waitForLine(ANDROID_LOG_WARN, kReadOnlyLine));
    expectReadOnly();
    unplugAndExpect(kAdded);
}

// Older kernels' answer to the same.
TEST_F(VolumeMountTest, AnswersErofsByAReadOnlyMount) {
    prepareExt4();
    std::vector<unsigned long> tries;
    const MountHook hook([&](unsigned long flags) {
        tries.push_back(flags);
        return (flags & MS_RDONLY) != 0 ? 0 : EROFS;
    });
    plugPrepared();
    expectCalls({kAdded});
    const unsigned long flags = MS_NOSUID | MS_NODEV | MS_DIRSYNC | MS_NOATIME | MS_NODIRATIME;
    EXPECT_THAT(tries, ElementsAre(flags, flags | MS_RDONLY));
    EXPECT_TRUE(waitForLine(ANDROID_LOG_WARN, kReadOnlyLine));
    expectReadOnly();
    unplugAndExpect(kAdded);
}

TEST_F(VolumeMountTest, AnswersEaccesOfAReadOnlyDeviceAsErofs) {
    prepareExt4().setReadOnly(true);
    const MountHook hook([&](unsigned long flags) { return (flags & MS_RDONLY) != 0 ? 0 : EACCES; });
    plugPrepared();
    expectCalls({kAdded});
    EXPECT_TRUE(waitForLine(ANDROID_LOG_WARN, kReadOnlyLine));
    expectReadOnly();
    unplugAndExpect(kAdded);
}

TEST_F(VolumeMountTest, EaccesOfAWritableDeviceIsAFailure) {
    prepareExt4();
    size_t tries = 0;
    const MountHook hook([&](unsigned long) {
        ++tries;
        return EACCES;
    });
    plugPrepared();
    expectCalls({kAddedUnmounted});
    EXPECT_EQ(1U, tries);
    EXPECT_TRUE(
        waitForLine(ANDROID_LOG_ERROR, "Unable to mount [/dev/sda] to [/mnt/sda] err(Permission denied)"));
    EXPECT_EQ(0U, countLines(kReadOnlyLine));
    EXPECT_THAT(entriesOf("/mnt"), IsEmpty());
    unplugAndExpect(kAddedUnmounted);
}

TEST_F(VolumeMountTest, AReadOnlyMountThatFailsIsGivenUp) {
    prepareExt4();
    size_t tries = 0;
    const MountHook hook([&](unsigned long) {
        ++tries;
        return EROFS;
    });
    plugPrepared();
    expectCalls({kAddedUnmounted});
    EXPECT_EQ(2U, tries);
    EXPECT_TRUE(waitForLine(ANDROID_LOG_ERROR,
                            "Unable to mount [/dev/sda] to [/mnt/sda] err(Read-only file system)"));
    EXPECT_THAT(entriesOf("/mnt"), IsEmpty());
    EXPECT_THAT(entriesOf("/media"), IsEmpty());
    unplugAndExpect(kAddedUnmounted);
}

// A stick whose switch is set was mounted for writing while the kernel looked at it, and failed with the
// first write.
TEST_F(VolumeMountTest, ADiskFoundReadOnlyAfterTheMountIsMountedAnew) {
    LoopDisk& disk = prepareExt4();
    const MountHook hook(nullptr, [&](unsigned long flags) {
        if ((flags & MS_RDONLY) == 0) {
            disk.setReadOnly(true);
        }
    });
    plugPrepared();
    expectCalls({kAdded});
    EXPECT_TRUE(waitForLine(ANDROID_LOG_WARN, kReadOnlyLine));
    expectReadOnly();
    unplugAndExpect(kAdded);
}

TEST_F(VolumeMountTest, ADiskFoundReadOnlyBeforeTheMountIsMountedAnew) {
    LoopDisk& disk = prepareExt4();
    disk.setReadOnly(true);
    const MountHook hook([&](unsigned long flags) {
        disk.setReadOnly((flags & MS_RDONLY) != 0);
        return 0;
    });
    plugPrepared();
    expectCalls({kAdded});
    EXPECT_TRUE(waitForLine(ANDROID_LOG_WARN, kReadOnlyLine));
    expectReadOnly();
    unplugAndExpect(kAdded);
}

TEST_F(VolumeMountTest, AnExistingMountPointStays) {
    ASSERT_EQ(0, mkdir("/mnt/sda", 0700));
    std::ofstream("/mnt/sda/mine") << "x";
    prepareExt4();
    plugPrepared();
    expectCalls({kAddedUnmounted});
    EXPECT_EQ(String8("MUSIC"), mRecorder->volume(0)->getLabel());
    EXPECT_THAT(entriesOf("/media"), IsEmpty());
    EXPECT_EQ("", mountOptions("/mnt/sda"));
    unplugAndExpect(kAddedUnmounted);
    EXPECT_TRUE(waitForLine(ANDROID_LOG_ERROR, "Unable to unmount [/mnt/sda] err(Invalid argument)"));
    EXPECT_EQ(0, access("/mnt/sda/mine", F_OK));
    removeEntry("/mnt/sda/mine");
    removeEntry("/mnt/sda");
}

TEST_F(VolumeMountTest, AForeignMountStays) {
    ASSERT_EQ(0, mkdir("/mnt/sda", 0700));
    ASSERT_EQ(0, mount("tmpfs", "/mnt/sda", "tmpfs", 0, nullptr));
    prepareExt4();
    plugPrepared();
    expectCalls({kAddedUnmounted});
    unplugAndExpect(kAddedUnmounted);
    EXPECT_TRUE(waitForLine(ANDROID_LOG_ERROR, "Unable to unmount [/mnt/sda] err(Operation not permitted)"));
    EXPECT_NE("", mountOptions("/mnt/sda"));
    ASSERT_EQ(0, umount2("/mnt/sda", 0));
    removeEntry("/mnt/sda");
}

TEST_F(VolumeMountTest, ADirectoryThatCannotBeMadeEndsTheStep) {
    ASSERT_EQ(0, symlink("/nowhere", "/mnt/sda"));
    prepareExt4();
    plugPrepared();
    expectCalls({kAddedUnmounted});
    EXPECT_TRUE(waitForLine(ANDROID_LOG_ERROR, "Unable to create mount path[/mnt/sda] err(File exists)"));
    unplugAndExpect(kAddedUnmounted);
    EXPECT_TRUE(
        waitForLine(ANDROID_LOG_ERROR, "Unable to unmount [/mnt/sda] err(No such file or directory)"));
    removeEntry("/mnt/sda");
}

TEST_F(VolumeMountTest, AnExistingLinkStays) {
    ASSERT_EQ(0, symlink("/nowhere", "/media/sda"));
    prepareExt4();
    plugPrepared();
    expectCalls({kAddedUnlinked});
    EXPECT_TRUE(waitForLine(ANDROID_LOG_ERROR, "Unable to link [/mnt/sda] to [/media/sda] err(File exists)"));
    EXPECT_NE("", mountOptions("/mnt/sda"));
    unplugAndExpect(kAddedUnlinked);
    EXPECT_EQ("", mountOptions("/mnt/sda"));
    EXPECT_THAT(entriesOf("/mnt"), IsEmpty());
    removeEntry("/media/sda");
}

TEST_F(VolumeMountTest, AMountThatWasTakenAwayIsNotMissed) {
    prepareExt4();
    plugPrepared();
    expectCalls({kAdded});
    ASSERT_EQ(0, umount2("/mnt/sda", 0));
    unplugAndExpect(kAdded);
    EXPECT_TRUE(waitForLine(ANDROID_LOG_ERROR, "Unable to unmount [/mnt/sda] err(Invalid argument)"));
    // A failed unmount ends the step.
    EXPECT_THAT(entriesOf("/media"), ElementsAre("sda"));
    removeEntry("/media/sda");
    removeEntry("/mnt/sda");
}

TEST_F(VolumeMountTest, AForeignMountInThePlaceOfALostOneStays) {
    prepareExt4();
    plugPrepared();
    expectCalls({kAdded});
    ASSERT_EQ(0, umount2("/mnt/sda", 0));
    ASSERT_EQ(0, mount("tmpfs", "/mnt/sda", "tmpfs", 0, nullptr));
    unplugAndExpect(kAdded);
    EXPECT_TRUE(waitForLine(ANDROID_LOG_ERROR, "Unable to unmount [/mnt/sda] err(Operation not permitted)"));
    EXPECT_NE("", mountOptions("/mnt/sda"));
    ASSERT_EQ(0, umount2("/mnt/sda", 0));
    removeEntry("/media/sda");
    removeEntry("/mnt/sda");
}

TEST_F(VolumeMountTest, AForeignLinkInThePlaceOfALostOneStays) {
    prepareExt4();
    plugPrepared();
    expectCalls({kAdded});
    removeEntry("/media/sda");
    ASSERT_EQ(0, symlink("/mnt/sdaa", "/media/sda"));
    unplugAndExpect(kAdded);
    EXPECT_TRUE(waitForLine(ANDROID_LOG_ERROR, "Unable to unlink [/media/sda] err(Operation not permitted)"));
    EXPECT_THAT(entriesOf("/mnt"), IsEmpty());
    removeEntry("/media/sda");
}

TEST_F(VolumeMountTest, ALostLinkIsLogged) {
    prepareExt4();
    plugPrepared();
    expectCalls({kAdded});
    removeEntry("/media/sda");
    unplugAndExpect(kAdded);
    EXPECT_TRUE(
        waitForLine(ANDROID_LOG_ERROR, "Unable to unlink [/media/sda] err(No such file or directory)"));
}

TEST_F(VolumeMountTest, ADirectoryThatIsInUseStays) {
    prepareExt4();
    const MountHook hook([](unsigned long) {
        // Below the mount, where nobody sees it.
        std::ofstream("/mnt/sda/below") << "x";
        return 0;
    });
    plugPrepared();
    expectCalls({kAdded});
    unplugAndExpect(kAdded);
    EXPECT_TRUE(waitForLine(ANDROID_LOG_ERROR, "Unable to rmdir [/mnt/sda] err(Directory not empty)"));
    EXPECT_EQ("", mountOptions("/mnt/sda"));
    EXPECT_THAT(entriesOf("/media"), IsEmpty());
    removeEntry("/mnt/sda/below");
    removeEntry("/mnt/sda");
}

TEST_F(VolumeMountTest, ADirectoryThatIsInUseStaysWhenTheMountFails) {
    prepareExt4();
    const MountHook hook([](unsigned long) {
        std::ofstream("/mnt/sda/below") << "x";
        return EINVAL;
    });
    plugPrepared();
    expectCalls({kAddedUnmounted});
    EXPECT_TRUE(
        waitForLine(ANDROID_LOG_ERROR, "Unable to mount [/dev/sda] to [/mnt/sda] err(Invalid argument)"));
    EXPECT_TRUE(waitForLine(ANDROID_LOG_ERROR, "Unable to rmdir [/mnt/sda] err(Directory not empty)"));
    unplugAndExpect(kAddedUnmounted);
    removeEntry("/mnt/sda/below");
    removeEntry("/mnt/sda");
}
