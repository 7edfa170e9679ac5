// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The volume detector's parts that need no disk: patterns, names, probes of images, assertions, the queue.
 */
#include "volume/VolumeDetector.h"

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>

#include "tests/unit/common/ThreadProbe.h"
#include "tests/unit/device/FakeUevents.h"
#include "tests/unit/support/LogCapture.h"
#include "volume/BlockProbe.h"
#include "volume/DevObserverNotifier.h"
#include "volume/DeviceNames.h"
#include "volume/MountTable.h"
#include "volume/PrintableText.h"
#include "volume/VolumeDetectorImpl.h"
#include "volume/VolumeDetectorMessageHandler.h"

using android::Message;
using android::sp;
using android::String8;
using android::wp;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using volume::BlockProbe;
using volume::ProbedValue;
using volume::Regex;
using volume::Volume;
using volume::VolumeDetector;
using volume::VolumeDetectorImpl;

namespace {

constexpr const char* kTag = "VolumeDetector";

/** What the pattern finds in a text; empty for nothing. */
std::string found(const Regex& regex, const std::string& text) {
    size_t start = 0;
    size_t end = 0;
    return regex.match(text.c_str(), &start, &end) ? text.substr(start, end - start) : "";
}

/** A small disk in a file. */
class Image {
  public:
    Image() {
        char path[] = "/tmp/volume-image-XXXXXX";
        const int fd = mkstemp(path);
        EXPECT_GE(fd, 0);
        EXPECT_EQ(0, ftruncate(fd, 4 << 20));
        close(fd);
        mPath = path;
    }
    ~Image() { unlink(mPath.c_str()); }
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;

    void write(std::streamoff at, const std::string& bytes) const {
        std::fstream file(mPath, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(at);
        file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }

    String8 path() const { return String8(mPath.c_str()); }

    /** An ISO 9660 volume descriptor with a name. */
    void makeIso(const std::string& label) const {
        std::string descriptor(2048, '\0');
        descriptor[0] = 1;
        descriptor.replace(1, 5, "CD001");
        descriptor[6] = 1;
        descriptor.replace(40, 32, std::string(32, ' '));
        descriptor.replace(40, label.size(), label);
        descriptor[128] = 0;
        descriptor[129] = 8;
        write(32768, descriptor);
    }

    /** A btrfs super block, the one with the longest label. */
    void makeBtrfs(const std::string& label) const {
        std::string block(4096, '\0');
        block.replace(0x40, 8, "_BHRfS_M");
        block.replace(0x20, 16, "0123456789abcdef");
        block[0x90] = 0;
        block[0x91] = 0x10;
        block.replace(0x12b, label.size(), label);
        write(0x10000, block);
    }

  private:
    std::string mPath;
};

std::string valueOf(const BlockProbe& probe, const char* name) {
    for (const ProbedValue& value : probe.values()) {
        if (value.name == String8(name)) {
            return value.value.has_value() ? value.value->string() : "NULL";
        }
    }
    return "(none)";
}

class SilentNotifier : public volume::VolumeDetectorNotifierItf {
  public:
    void onVolumeAttached(const sp<Volume>& /*volume*/) override {}
    void onVolumeDetached(const sp<Volume>& /*volume*/) override {}
};

}  // namespace

TEST(VolumeRegexTest, FindsTheFirstOccurrenceAsLongAsItIs) {
    const sp<Regex> scsi = new Regex(volume::sSCSIDeviceRegex);
    EXPECT_EQ("sda", found(*scsi, "/dev/sda1"));
    EXPECT_EQ("sdab", found(*scsi, "/dev/sdab12"));
    EXPECT_EQ("sd", found(*scsi, "/dev/sd"));
    EXPECT_EQ("sdx", found(*scsi, "/dev/xsdx/sda"));
    EXPECT_EQ("", found(*scsi, "/dev/mmcblk0"));
    const sp<Regex> mmc = new Regex(volume::sMMCDeviceRegex);
    EXPECT_EQ("mmcblk10", found(*mmc, "/dev/mmcblk10p2"));
    EXPECT_EQ("mmcblk", found(*mmc, "mmcblkx"));
    EXPECT_EQ("", found(*mmc, ""));
}

TEST(VolumeRegexTest, LeavesTheOffsetsAloneWithoutAMatch) {
    const sp<Regex> regex = new Regex("x");
    size_t start = 7;
    size_t end = 8;
    EXPECT_FALSE(regex->match("abc", &start, &end));
    EXPECT_EQ(7U, start);
    EXPECT_EQ(8U, end);
    EXPECT_TRUE(regex->match("abx", &start, &end));
    EXPECT_EQ(2U, start);
    EXPECT_EQ(3U, end);
}

TEST(VolumeRegexDeathTest, Aborts) {
    const sp<Regex> regex = new Regex("x");
    size_t offset = 0;
    const std::string file = "failed: file \"VolumeDetector\", line ";
    EXPECT_DEATH(sp<Regex>(new Regex(nullptr)), "assertion \"mPatten.string\\(\\)\" " + file + "61");
    EXPECT_DEATH(sp<Regex>(new Regex("\\(")), "assertion \"!ret\" " + file + "63");
    EXPECT_DEATH(regex->match(nullptr, &offset, &offset), "assertion \"string\" " + file + "74");
    EXPECT_DEATH(regex->match("x", nullptr, &offset), "assertion \"s_offset\" " + file + "75");
    EXPECT_DEATH(regex->match("x", &offset, nullptr), "assertion \"e_offset\" " + file + "76");
}

TEST(VolumeNamesTest, PlainNamesAreWordsAndComponents) {
    for (const char* name : {"sda", "sda1", "sdaa15", "mmcblk10p2", "sd.x", "sd-x_y+z:1,2@3=4"}) {
        EXPECT_TRUE(volume::isPlainName(name)) << name;
    }
    for (const char* name :
         {"",    "..",   "sd..", "a/b",  "sd a", "sd\n", "sd;", "sd$x", "sd`", "sd*",    "sd?",
          "sd'", "sd\"", "sd\\", "sd|x", "sd&",  "sd>x", "sd(", "sd~",  "sd#", "sd\xff", "-sd"}) {
        EXPECT_FALSE(volume::isPlainName(name)) << name;
    }
    EXPECT_TRUE(volume::isPlainPath("/sys/devices/pci0000:00/0000:00:14.0/usb1/1-1/1-1:1.0/host6/block/sda"));
    for (const char* path : {"", "sys", "/sys/../x", "/sys x", "/sys/$x"}) {
        EXPECT_FALSE(volume::isPlainPath(path)) << path;
    }
}

TEST(VolumeNamesTest, TextForTheLogHasNoControlCharacters) {
    EXPECT_EQ(String8("a?b?c\xc3\xa4?"), volume::printableText("a\nb\rc\xc3\xa4\x7f"));
    EXPECT_EQ(String8(""), volume::printableText(""));
}

TEST(VolumeMountTableTest, TellsTheMountInAPlace) {
    const auto root = volume::mountAt("/proc");
    ASSERT_TRUE(root.has_value());
    EXPECT_GT(root->id, 0);
    EXPECT_FALSE(root->device.empty());
    EXPECT_FALSE(root->source.empty());
    EXPECT_EQ(root, volume::mountAt("/proc"));
    EXPECT_FALSE(volume::mountAt("/proc/self").has_value());
    EXPECT_FALSE(volume::mountAt("").has_value());
}

TEST(VolumeProbeTest, AnEmptyDiskHasNoValues) {
    const Image image;
    BlockProbe probe;
    EXPECT_EQ(0, probe.read(image.path()));
    EXPECT_THAT(probe.values(), IsEmpty());
    EXPECT_FALSE(probe.isDisk());
}

TEST(VolumeProbeTest, ReadsAVolume) {
    const Image image;
    image.makeIso("SONGS");
    BlockProbe probe;
    EXPECT_EQ(0, probe.read(image.path()));
    EXPECT_FALSE(probe.isDisk());
    EXPECT_EQ("iso9660", valueOf(probe, "TYPE"));
    EXPECT_EQ("SONGS", valueOf(probe, "LABEL"));
    // What an earlier device had is forgotten.
    EXPECT_EQ(0, probe.read(Image().path()));
    EXPECT_EQ("(none)", valueOf(probe, "TYPE"));
}

TEST(VolumeProbeTest, TakesLongAndHostileLabelsAsTheyAre) {
    const std::string longest(255, 'L');
    const std::string hostile = "a\nb\t\x01'\"$(id)`id`../..\xff\xfe";
    for (const std::string& label : {longest, hostile}) {
        const Image image;
        image.makeBtrfs(label);
        BlockProbe probe;
        EXPECT_EQ(0, probe.read(image.path()));
        EXPECT_EQ("btrfs", valueOf(probe, "TYPE"));
        EXPECT_EQ(label, valueOf(probe, "LABEL"));
    }
}

TEST(VolumeProbeTest, LogsWhatCannotBeOpened) {
    LogCapture log;
    BlockProbe probe;
    EXPECT_EQ(-1, probe.read(String8("/no/such/device")));
    EXPECT_EQ(-1, probe.read(String8("/dev/null")));
    EXPECT_EQ(-1, probe.read(String8("/tmp")));
    EXPECT_THAT(
        log.take(kTag),
        ElementsAre(
            LogLine{ANDROID_LOG_ERROR, kTag,
                    "open device path: /no/such/device error[No such file or directory]\n"},
            LogLine{ANDROID_LOG_ERROR, kTag, "open device path: /dev/null error[Block device required]\n"},
            LogLine{ANDROID_LOG_ERROR, kTag, "open device path: /tmp error[Block device required]\n"}));
}

TEST(VolumeProbeTest, TwoFileSystemsAtOnceAreAFailure) {
    const Image image;
    image.makeBtrfs("ONE");
    image.write(0, "-rom1fs-");
    LogCapture log;
    BlockProbe probe;
    EXPECT_EQ(-1, probe.read(image.path()));
    EXPECT_THAT(log.take(kTag), ElementsAre(LogLine{ANDROID_LOG_ERROR, kTag, "blkid do probe fail\n"}));
}

TEST(VolumeHandlerTest, LogsUnknownMessages) {
    LogCapture log;
    const sp<VolumeDetectorImpl> detector = new VolumeDetectorImpl();
    const sp<volume::VolumeDetectorMessageHandler> handler =
        new volume::VolumeDetectorMessageHandler(detector);
    for (const int what : {5, 3, 4, 0}) {
        handler->handleMessage(Message(what));
    }
    // Passes over empty lists have nothing to say.
    EXPECT_THAT(log.take(kTag), ElementsAre(LogLine{ANDROID_LOG_WARN, kTag, "unknown message[5]\n"},
                                            LogLine{ANDROID_LOG_WARN, kTag, "unknown message[0]\n"}));
}

TEST(VolumeDetectorTest, StartsAndStopsItsThreads) {
    FakeUevents uevents;
    const sp<VolumeDetector> detector = new VolumeDetector(uevents.observer());
    detector->stop();
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(detector->start());
        EXPECT_TRUE(detector->start());
        EXPECT_TRUE(eventually([] { return countThreads("VolumeDetectorQ") == 1; }));
        EXPECT_TRUE(eventually([] { return countThreads("ObserverThread") == 1; }));
        detector->stop();
        EXPECT_TRUE(eventually([] { return countThreads("VolumeDetectorQ") == 0; }));
        EXPECT_TRUE(eventually([] { return countThreads("ObserverThread") == 0; }));
    }
    EXPECT_EQ(0U, detector->count());
    EXPECT_EQ(String8("unknown"), detector->query(0)->getName());
    EXPECT_EQ(String8("unknown"), detector->query(static_cast<size_t>(-1))->getName());
}

TEST(VolumeDetectorTest, GoesWithItsThreadsAndNotifiers) {
    FakeUevents uevents;
    sp<VolumeDetector> detector = new VolumeDetector(uevents.observer());
    sp<SilentNotifier> notifier = new SilentNotifier();
    detector->setNotifier(notifier);
    EXPECT_TRUE(detector->start());
    const wp<VolumeDetector> weakDetector = detector;
    const wp<SilentNotifier> weakNotifier = notifier;
    notifier.clear();
    // Still started: its threads must not keep it.
    detector.clear();
    EXPECT_EQ(nullptr, weakDetector.promote());
    EXPECT_EQ(nullptr, weakNotifier.promote());
    EXPECT_TRUE(eventually([] { return countThreads("VolumeDetectorQ") == 0; }));
    EXPECT_TRUE(eventually([] { return countThreads("ObserverThread") == 0; }));
    // Nobody is called any more.
    uevents.send("move", "/devices/x", "block", {"DEVTYPE=disk"});
    LogCapture log;
    uevents.pump();
    EXPECT_THAT(log.take(kTag), IsEmpty());
}

TEST(VolumeDetectorTest, HearsUeventsFromItsConstructionOn) {
    FakeUevents uevents;
    const sp<VolumeDetector> detector = new VolumeDetector(uevents.observer());
    LogCapture log;
    uevents.send("move", "/devices/block/sda", "block", {"DEVTYPE=disk"});
    uevents.pump();
    uevents.send("remove", "/devices/block/sda", "block", {"DEVTYPE=disk"});
    uevents.pump();
    uevents.send("online", "/devices/block/nbd0", "block", {"DEVTYPE=disk", "DEVNAME=nbd0"});
    uevents.pump();
    uevents.send("online", "/devices/block/sda", "block", {"DEVTYPE=disk", "DEVNAME=sda"});
    uevents.pump();
    uevents.send("offline", "/devices/block/sda", "block", {"DEVTYPE=disk", "DEVNAME=sda"});
    uevents.pump();
    uevents.send("move", "/devices/block/sda1", "block", {"DEVTYPE=partition"});
    uevents.pump();
    const LogLine heard{ANDROID_LOG_INFO, kTag, "processUevent: Uevent subsystem=block, DEVTYPE=disk!\n"};
    EXPECT_THAT(
        log.take(kTag),
        ElementsAre(heard, LogLine{ANDROID_LOG_WARN, kTag, "processUevent unhandle action[4]\n"}, heard,
                    heard,
                    LogLine{ANDROID_LOG_WARN, kTag, "invalidate device add path[/sys/devices/block/nbd0] "},
                    heard, heard));
}

TEST(VolumeDetectorDeathTest, ANullObserverAborts) {
    EXPECT_DEATH(sp<VolumeDetector>(new VolumeDetector(nullptr)),
                 "assertion \"observer.get\\(\\)\" failed: file \"VolumeDetector\", line 819");
}

TEST(VolumeDetectorDeathTest, ANotifierWithoutARecordAborts) {
    EXPECT_DEATH(sp<volume::DevObserverNotifier>(new volume::DevObserverNotifier(nullptr)),
                 "assertion \"mDetector\" failed: file \"VolumeDetector\", line 390");
    EXPECT_DEATH(sp<volume::DevObserverNotifier>(new volume::DevObserverNotifier(new VolumeDetectorImpl())),
                 "assertion \"mSCSIDeviceRegex.get\\(\\)\" failed: file \"VolumeDetector\", line 392");
    const sp<VolumeDetectorImpl> half = new VolumeDetectorImpl();
    half->mSCSIDeviceRegex = new Regex("x");
    EXPECT_DEATH(sp<volume::DevObserverNotifier>(new volume::DevObserverNotifier(half)),
                 "assertion \"mMMCDeviceRegex.get\\(\\)\" failed: file \"VolumeDetector\", line 394");
}

TEST(VolumeDetectorDeathTest, AMissingProbeAborts) {
    const auto addNothing = [](bool disk) NO_THREAD_SAFETY_ANALYSIS {
        const sp<VolumeDetectorImpl> detector = new VolumeDetectorImpl();
        if (disk) {
            detector->addDisk(nullptr, String8("/dev/sda"), String8("sda"));
        } else {
            detector->addVolume(nullptr, String8("/dev/sda"), String8("sda"));
        }
    };
    EXPECT_DEATH(addNothing(false), "assertion \"pr\" failed: file \"VolumeDetector\", line 272");
    EXPECT_DEATH(addNothing(true), "assertion \"pr\" failed: file \"VolumeDetector\", line 343");
}
