// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What the volume manager does upon the kernel's uevents, with the real shell and attributes of the test's
 * own.
 */
#include <android/log.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/integration/volume/VolumeFixture.h"
#include "tests/unit/common/ThreadProbe.h"

using android::sp;
using android::String8;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

/** A folder of sysfs that is empty and can be mounted over. */
constexpr char kFakeRoot[] = "/sys/fs/fuse/connections";
constexpr char kFakeHost[] = "/sys/fs/fuse/connections/host0/target0";
/** What a uevent calls the fake disk. */
constexpr char kFakeDisk[] = "/fs/fuse/connections/host0/target0/block/sda";
constexpr char kPollParameter[] = "/sys/module/block/parameters/events_dfl_poll_msecs";
const dev_t kNoDisk = makedev(120, 77);

std::string contentOf(const std::string& path) {
    std::string content;
    std::getline(std::ifstream(path), content, '\0');
    return content;
}

class VolumeUeventTest : public VolumeFixture {
  protected:
    void SetUp() override {
        VolumeFixture::SetUp();
        ASSERT_EQ(0, mount("tmpfs", kFakeRoot, "tmpfs", 0, nullptr));
        std::filesystem::create_directories(std::string(kFakeHost) + "/block/sda");
        std::ofstream(mFolder / "poll") << "-1\n";
        ASSERT_EQ(0, mount((mFolder / "poll").c_str(), kPollParameter, nullptr, MS_BIND, nullptr));
        ASSERT_EQ(0, mInjector->open());
        mUevents->start();
    }

    void TearDown() override {
        EXPECT_EQ(0, umount2(kFakeRoot, MNT_DETACH));
        EXPECT_EQ(0, umount2(kPollParameter, MNT_DETACH));
        mInjector.reset();
        VolumeFixture::TearDown();
    }

    void inject(const std::string& action, const std::vector<std::string>& properties = {},
                const std::string& path = kFakeDisk, const std::string& type = "disk") {
        std::vector<std::string> all = {"DEVTYPE=" + type};
        all.insert(all.end(), properties.begin(), properties.end());
        ASSERT_EQ(0, mInjector->send(action, path, "block", all));
    }

    void setAttribute(const std::string& name, const std::string& value) {
        std::ofstream(kFakeHost + name) << value;
    }

    /**
     * Waits until every uevent so far was dealt with. The machine's own uevents are heard here too: only the
     * path tells the test's from those.
     */
    void fence() {
        ASSERT_EQ(0, mInjector->send("online", "/fence", "block", {"DEVTYPE=disk"}));
        ASSERT_TRUE(waitForLine(ANDROID_LOG_WARN, "invalidate device add path[/sys/fence] "));
    }

    std::unique_ptr<UeventInjector> mInjector = std::make_unique<UeventInjector>();
};

}  // namespace

TEST_F(VolumeUeventTest, ARemovableDiskHasItsMediumPolled) {
    setAttribute("/block/sda/removable", "1\n");
    inject("add", {"DEVNAME=sda"});
    EXPECT_TRUE(eventually([this] { return contentOf(mFolder / "poll") == "1000\n"; }));
    EXPECT_TRUE(waitForLine(ANDROID_LOG_INFO, "processUevent: Uevent subsystem=block, DEVTYPE=disk!\n"));
}

TEST_F(VolumeUeventTest, AFixedDiskIsLeftAlone) {
    setAttribute("/block/sda/removable", "0\n");
    inject("add", {"DEVNAME=sda"});
    fence();
    EXPECT_EQ("-1\n", contentOf(mFolder / "poll"));
}

TEST_F(VolumeUeventTest, AChangeIsAnsweredByARescan) {
    setAttribute("/rescan", "");
    inject("change", {"DEVNAME=sda", "DISK_MEDIA_CHANGE=1"});
    EXPECT_TRUE(eventually([] { return contentOf(std::string(kFakeHost) + "/rescan") == "1\n"; }));
}

TEST_F(VolumeUeventTest, AChangeOfNothingInParticularIsAnsweredByARescan) {
    setAttribute("/rescan", "");
    inject("change", {"DEVNAME=sda"});
    EXPECT_TRUE(eventually([] { return contentOf(std::string(kFakeHost) + "/rescan") == "1\n"; }));
}

// Each rescan had the kernel tell of the write protection anew, without end.
TEST_F(VolumeUeventTest, NewsOfWriteProtectionAloneIsNoReasonToRescan) {
    setAttribute("/rescan", "");
    inject("change", {"DEVNAME=sda", "DISK_RO=1"});
    fence();
    EXPECT_EQ("", contentOf(std::string(kFakeHost) + "/rescan"));
    inject("change", {"DEVNAME=sda", "DISK_RO=1", "DISK_MEDIA_CHANGE=1"});
    EXPECT_TRUE(eventually([] { return contentOf(std::string(kFakeHost) + "/rescan") == "1\n"; }));
}

TEST_F(VolumeUeventTest, PathsThatMeanSomethingToAShellRunNothing) {
    const std::string mark = mFolder / "mark";
    const std::vector<std::string> paths = {"/$(touch " + mark + ")/block/sda",
                                            "/;touch " + mark + ";/block/sda", "/`touch " + mark + "`",
                                            "/../../x/block/sda", "/x"};
    for (const std::string& path : paths) {
        inject("add", {}, path);
        inject("change", {}, path);
        inject("offline", {}, path);
        inject("online", {"DEVNAME=sd$(touch " + mark + ")"}, path);
        inject("online", {"DEVNAME=../sda"}, path);
        inject("online", {"DEVNAME=sda/../.."}, path);
        inject("online", {}, path);
    }
    fence();
    EXPECT_NE(0, access(mark.c_str(), F_OK));
    EXPECT_EQ("-1\n", contentOf(mFolder / "poll"));
    EXPECT_THAT(mRecorder->calls(), IsEmpty());
}

TEST_F(VolumeUeventTest, OnlyWholeDisksConcernIt) {
    inject("online", {}, "/nobody", "partition");
    ASSERT_EQ(0, mInjector->send("online", "/nobody", "usb", {"DEVTYPE=disk"}));
    ASSERT_EQ(0, mInjector->send("online", "/nobody", "", {"DEVTYPE=disk"}));
    ASSERT_EQ(0, mInjector->send("online", "/nobody", "block"));
    fence();
    EXPECT_EQ(0U, countLines("invalidate device add path[/sys/nobody] "));
}

TEST_F(VolumeUeventTest, LogsActionsThatItDoesNotHandle) {
    inject("move");
    inject("unheard-of");
    EXPECT_TRUE(waitForLine(ANDROID_LOG_WARN, "processUevent unhandle action[4]\n"));
    EXPECT_TRUE(waitForLine(ANDROID_LOG_WARN, "processUevent unhandle action[0]\n"));
}

TEST_F(VolumeUeventTest, ARemovalIsTheNodesToTell) {
    plugExt4("sda");
    ASSERT_TRUE(mRecorder->waitFor(1));
    inject("remove", {"DEVNAME=sda"});
    fence();
    EXPECT_EQ(1, mManager->getVolumeCount());
    unplug("sda");
    ASSERT_TRUE(mRecorder->waitFor(2));
}

TEST_F(VolumeUeventTest, RefusesPathsOfOtherDisks) {
    inject("online", {"DEVNAME=nbd0"}, "/devices/virtual/block/nbd0");
    inject("offline", {"DEVNAME=nbd0"}, "/devices/virtual/block/nbd0");
    EXPECT_TRUE(
        waitForLine(ANDROID_LOG_WARN, "invalidate device add path[/sys/devices/virtual/block/nbd0] "));
    EXPECT_TRUE(
        waitForLine(ANDROID_LOG_WARN, "invalidate device remove path[/sys/devices/virtual/block/nbd0]"));
}

// A card that was probed twice took its own mount down.
TEST_F(VolumeUeventTest, AVolumeThatComesOnlineAgainKeepsItsMount) {
    plugExt4("sda");
    ASSERT_TRUE(mRecorder->waitFor(1));
    const int file = open("/media/sda/open", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(file, 0);
    inject("online", {"DEVNAME=sda"});
    expectCalls({"added sda /mnt/sda /media/sda", "removed sda", "added sda /mnt/sda /media/sda"});
    EXPECT_TRUE(waitForLine(ANDROID_LOG_INFO, "processUevent: volume device add path[/dev/sda] name[sda]"));
    EXPECT_EQ(2, write(file, "la", 2));
    close(file);
    EXPECT_EQ(0, access("/media/sda/open", F_OK));
    EXPECT_NE(mRecorder->volume(0), mRecorder->volume(2));
    EXPECT_EQ(String8("/mnt/sda"), mRecorder->volume(1)->getMountPath());
    unplug("sda");
    ASSERT_TRUE(mRecorder->waitFor(4));
}

TEST_F(VolumeUeventTest, ADiskThatCannotBeReadOnlineIsLogged) {
    inject("online", {"DEVNAME=sda"});
    EXPECT_TRUE(
        waitForLine(ANDROID_LOG_ERROR, "open device path: /dev/sda error[No such file or directory]\n"));
    EXPECT_TRUE(
        waitForLine(ANDROID_LOG_WARN, "processUevent: unknown device (path[/dev/sda] name[sda]) add\n"));
    EXPECT_EQ(0, mManager->getVolumeCount());
}

TEST_F(VolumeUeventTest, APlaceholderThatComesOnlineAsADiskGoes) {
    plug("sda", kNoDisk);
    ASSERT_TRUE(mRecorder->waitFor(1));
    makeImage(mFolder / "disk", 4);
    makePartitions(mFolder / "disk", "label: gpt\n");
    LoopDisk disk(mFolder / "disk");
    // In place: the observer of /dev hears nothing.
    ASSERT_EQ(0, mknod("/dev/other", S_IFBLK | 0600, disk.number()));
    ASSERT_EQ(0, rename("/dev/other", "/dev/sda"));
    inject("online", {"DEVNAME=sda"});
    expectCalls({"added sda unknown unknown", "removed sda"});
    ASSERT_TRUE(waitForLine(ANDROID_LOG_INFO, "notify mbr volume attach\n"));
    unplug("sda");
    EXPECT_TRUE(waitForLine(ANDROID_LOG_INFO, "notify mbr volume dettach\n"));
}

TEST_F(VolumeUeventTest, AnOfflineDiskIsUnmountedAndItsPartitionNodeGoes) {
    plugExt4("sda");
    ASSERT_TRUE(mRecorder->waitFor(1));
    plug("sda1", kNoDisk);
    ASSERT_TRUE(mRecorder->waitFor(2));
    inject("offline", {"DEVNAME=sda"});
    ASSERT_TRUE(mRecorder->waitFor(4));
    EXPECT_THAT(mRecorder->calls(), ElementsAre("added sda /mnt/sda /media/sda", "added sda1 unknown unknown",
                                                "removed sda", "removed sda1"));
    EXPECT_TRUE(waitForLine(ANDROID_LOG_INFO,
                            "processUevent: volume device remove "
                            "path[/sys/fs/fuse/connections/host0/target0/block/sda] name[sda]"));
    EXPECT_NE(0, access("/dev/sda1", F_OK));
    EXPECT_EQ("", mountOptions("/mnt/sda"));
    // The node of the disk itself is still there; its going changes nothing more.
    unplug("sda");
}

TEST_F(VolumeUeventTest, HearsUeventsWhileItRests) {
    mManager->shutdown();
    plugExt4("sda");
    setAttribute("/block/sda/removable", "1\n");
    inject("online", {"DEVNAME=sda"});
    inject("offline", {"DEVNAME=sda"});
    inject("change", {"DEVNAME=sda"});
    inject("add", {"DEVNAME=sda"});
    fence();
    EXPECT_EQ("1000\n", contentOf(mFolder / "poll"));
    EXPECT_EQ(0, mManager->getVolumeCount());
    EXPECT_THAT(entriesOf("/mnt"), IsEmpty());
    EXPECT_THAT(mRecorder->calls(), IsEmpty());
    unplug("sda");
    mManager->startup();
}
