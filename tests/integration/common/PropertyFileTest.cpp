// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What a save does to files: rights, links, full disks, and a process that is killed meanwhile. As root,
 * which gives its rights away where they would hide something.
 */
#include <android/log.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "common/Property.h"
#include "tests/support/KilledWriters.h"
#include "tests/support/TestFolder.h"
#include "tests/unit/support/LogCapture.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr char kOld[] = "<property><A value='old'/></property>";
constexpr char kNew[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<property>\n  <A value=\"new\"/>\n</property>\n";

LogLine error(const std::string& text) {
    return {ANDROID_LOG_ERROR, "Property", text};
}

struct stat statusOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(0, lstat(path.c_str(), &status)) << path << ": " << strerror(errno);
    return status;
}

/** A file that is kept open, so that no new one gets its number. */
class HeldFile {
  public:
    explicit HeldFile(const std::string& path)
        : mPath(path), mFd(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
        EXPECT_GE(mFd, 0);
    }
    ~HeldFile() { close(mFd); }
    HeldFile(const HeldFile&) = delete;
    HeldFile& operator=(const HeldFile&) = delete;

    /** Whether its path still leads to it. */
    bool isInPlace() const {
        struct stat own = {};
        EXPECT_EQ(0, fstat(mFd, &own));
        return own.st_ino == statusOf(mPath).st_ino;
    }

  private:
    const std::string mPath;
    const int mFd;
};

class PropertyFileTest : public ::testing::Test {
  protected:
    void SetUp() override {
        writeFile(mFile, kOld);
        ASSERT_EQ(0, chmod(mFile.c_str(), 0644));
    }

    /** Opens, sets "A" to "new" and closes. @return what the set returned, or -2 without a handle */
    static int setNew(const std::string& path, int options = 0x11) {
        Property* const property = PropertyOpen(path.c_str(), options);
        if (property == nullptr) {
            return -2;
        }
        const int result = PropertySet(property, "A", "new", 1);
        PropertyClose(property);
        return result;
    }

    static std::string valueIn(const std::string& path) {
        Property* const property = PropertyOpen(path.c_str(), 0x1);
        char value[16] = "(none)";
        if (property != nullptr) {
            PropertyGet(property, "A", value, sizeof(value));
            PropertyClose(property);
        }
        return value;
    }

    LogCapture mLog;
    TestFolder mFolder;
    const std::string mFile = mFolder.path("file.xml");
};

}  // namespace

TEST_F(PropertyFileTest, ASaveReplacesTheFileAndKeepsOwnerAndMode) {
    ASSERT_EQ(0, chown(mFile.c_str(), 1234, 4321));
    ASSERT_EQ(0, chmod(mFile.c_str(), 0640));
    const struct stat before = statusOf(mFile);
    const HeldFile held(mFile);
    EXPECT_EQ(0, setNew(mFile));
    const struct stat after = statusOf(mFile);
    EXPECT_EQ(1234U, after.st_uid);
    EXPECT_EQ(4321U, after.st_gid);
    EXPECT_EQ(before.st_mode, after.st_mode);
    EXPECT_FALSE(held.isInPlace());
    EXPECT_EQ(kNew, contentOf(mFile));
    EXPECT_THAT(mFolder.names(), ElementsAre("file.xml"));
}

TEST_F(PropertyFileTest, ANewFileHasTheModeOfTheUmask) {
    const mode_t before = umask(027);
    EXPECT_EQ(0, setNew(mFolder.path("new.xml"), 0x111));
    umask(before);
    EXPECT_EQ(0640U, statusOf(mFolder.path("new.xml")).st_mode & 07777U);
}

TEST_F(PropertyFileTest, ASymbolicLinkStaysOne) {
    ASSERT_EQ(0, mkdir(mFolder.path("other").c_str(), 0755));
    const std::string target = mFolder.path("other/target.xml");
    ASSERT_EQ(0, rename(mFile.c_str(), target.c_str()));
    ASSERT_EQ(0, chmod(target.c_str(), 0604));
    ASSERT_EQ(0, symlink("other/target.xml", mFile.c_str()));
    EXPECT_EQ(0, setNew(mFile));
    EXPECT_TRUE(S_ISLNK(statusOf(mFile).st_mode));
    EXPECT_EQ(kNew, contentOf(target));
    EXPECT_EQ(0604U, statusOf(target).st_mode & 07777U);
    EXPECT_THAT(mFolder.names(), ElementsAre("file.xml", "other"));
}

TEST_F(PropertyFileTest, ALinkToNothingGetsItsFile) {
    const std::string link = mFolder.path("link.xml");
    ASSERT_EQ(0, symlink("target.xml", link.c_str()));
    EXPECT_EQ(0, setNew(link, 0x111));
    EXPECT_TRUE(S_ISLNK(statusOf(link).st_mode));
    EXPECT_EQ(kNew, contentOf(mFolder.path("target.xml")));
}

TEST_F(PropertyFileTest, ASecondNameSeesTheSave) {
    const std::string second = mFolder.path("second.xml");
    ASSERT_EQ(0, link(mFile.c_str(), second.c_str()));
    const HeldFile held(mFile);
    EXPECT_EQ(0, setNew(mFile));
    EXPECT_EQ(kNew, contentOf(second));
    EXPECT_TRUE(held.isInPlace());
    EXPECT_EQ(statusOf(mFile).st_ino, statusOf(second).st_ino);
}

TEST_F(PropertyFileTest, AMountedFileIsWrittenInPlace) {
    const std::string source = mFolder.path("source.xml");
    writeFile(source, kOld);
    ASSERT_EQ(0, mount(source.c_str(), mFile.c_str(), nullptr, MS_BIND, nullptr)) << strerror(errno);
    EXPECT_EQ(0, setNew(mFile));
    EXPECT_EQ(kNew, contentOf(source));
    EXPECT_EQ(0, umount(mFile.c_str()));
    EXPECT_EQ(kOld, contentOf(mFile));
    EXPECT_THAT(mFolder.names(), ElementsAre("file.xml", "source.xml"));
}

TEST_F(PropertyFileTest, InAFolderWithoutRightsItIsWrittenInPlace) {
    writeFile(mFile, std::string(kOld) + std::string(5000, '\n'));
    ASSERT_EQ(0, chmod(mFile.c_str(), 0666));
    const HeldFile held(mFile);
    {
        const Unprivileged user;
        EXPECT_EQ(0, setNew(mFile));
    }
    EXPECT_TRUE(held.isInPlace());
    EXPECT_EQ(kNew, contentOf(mFile));
    EXPECT_THAT(mFolder.names(), ElementsAre("file.xml"));
    EXPECT_THAT(mLog.take("Property"), IsEmpty());
}

TEST_F(PropertyFileTest, AFileThatWouldChangeItsOwnerIsWrittenInPlace) {
    ASSERT_EQ(0, chmod(mFolder.path().c_str(), 0777));
    ASSERT_EQ(0, chmod(mFile.c_str(), 0666));
    const HeldFile held(mFile);
    {
        const Unprivileged user;
        EXPECT_EQ(0, setNew(mFile));
    }
    EXPECT_EQ(0U, statusOf(mFile).st_uid);
    EXPECT_TRUE(held.isInPlace());
    EXPECT_EQ(kNew, contentOf(mFile));
    EXPECT_THAT(mFolder.names(), ElementsAre("file.xml"));
}

TEST_F(PropertyFileTest, RefusesFilesWithoutRights) {
    ASSERT_EQ(0, chmod(mFile.c_str(), 0600));
    const Unprivileged user;
    EXPECT_EQ(nullptr, PropertyOpen(mFile.c_str(), 0x1));
    EXPECT_EQ(nullptr, PropertyOpen(mFile.c_str(), 0x10));
    EXPECT_EQ(nullptr, PropertyOpen(mFile.c_str(), 0x111));
    const LogLine noRead = error("process have no read permission, file path:" + mFolder.path());
    EXPECT_THAT(
        mLog.take("Property"),
        ElementsAre(noRead, error("process have no write permission, file path:" + mFolder.path()), noRead));
}

TEST_F(PropertyFileTest, AFileToReadIsNotToWrite) {
    const Unprivileged user;
    Property* const property = PropertyOpen(mFile.c_str(), 0x1);
    ASSERT_NE(nullptr, property);
    PropertyClose(property);
    EXPECT_EQ(nullptr, PropertyOpen(mFile.c_str(), 0x11));
    EXPECT_THAT(mLog.take("Property"),
                ElementsAre(error("process have no write permission, file path:" + mFolder.path())));
}

TEST_F(PropertyFileTest, RefusesFoldersWithoutRightsForNewFiles) {
    const std::string missing = mFolder.path("missing.xml");
    const Unprivileged user;
    EXPECT_EQ(nullptr, PropertyOpen(missing.c_str(), 0x111));
    EXPECT_THAT(mLog.take("Property"),
                ElementsAre(error("process have no write permission, dir path:" + mFolder.path())));
    // Only what is asked for is looked at.
    Property* const property = PropertyOpen(missing.c_str(), 0x101);
    ASSERT_NE(nullptr, property);
    PropertyClose(property);
}

TEST_F(PropertyFileTest, RefusesFoldersThatCannotBeReadForNewFiles) {
    ASSERT_EQ(0, chmod(mFolder.path().c_str(), 0711));
    const Unprivileged user;
    EXPECT_EQ(nullptr, PropertyOpen(mFolder.path("missing.xml").c_str(), 0x111));
    EXPECT_EQ(nullptr, PropertyOpen("/nowhere/at/all.xml", 0x111));
    EXPECT_EQ(nullptr, PropertyOpen("/nowhere/at/all.xml", 0x110));
    EXPECT_THAT(mLog.take("Property"),
                ElementsAre(error("process have no read permission, dir path:" + mFolder.path()),
                            error("process have no read permission, dir path:/nowhere/at"),
                            error("process have no write permission, dir path:/nowhere/at")));
}

TEST_F(PropertyFileTest, AFullDiskLeavesTheFormerFile) {
    const SmallDisk disk(mFolder.path(), "64k");
    writeFile(mFile, kOld);
    Property* const property = PropertyOpen(mFile.c_str(), 0x11);
    ASSERT_NE(nullptr, property);
    disk.fill();
    EXPECT_EQ(-1, PropertySet(property, "A", "new", 1));
    EXPECT_THAT(mLog.take("Property"), ElementsAre(error("xml save file fail")));
    EXPECT_EQ("old", valueIn(mFile));
    EXPECT_THAT(mFolder.names(), ElementsAre("file.xml", "filler"));
    // The handle has it, and the close saves it when there is room.
    char value[8] = {};
    EXPECT_EQ(0, PropertyGet(property, "A", value, sizeof(value)));
    EXPECT_STREQ("new", value);
    disk.empty();
    PropertyClose(property);
    EXPECT_EQ("new", valueIn(mFile));
}

TEST_F(PropertyFileTest, ACloseOnAFullDiskIsTold) {
    const SmallDisk disk(mFolder.path(), "64k");
    writeFile(mFile, kOld);
    Property* const property = PropertyOpen(mFile.c_str(), 0x11);
    ASSERT_NE(nullptr, property);
    disk.fill();
    PropertyClose(property);
    EXPECT_THAT(mLog.take("Property"), ElementsAre(error("xml save file fail")));
    EXPECT_EQ(kOld, contentOf(mFile));
}

TEST_F(PropertyFileTest, InPlaceOnAFullDiskTheFormerFileStays) {
    const SmallDisk disk(mFolder.path(), "64k");
    ASSERT_EQ(0, chmod(mFolder.path().c_str(), 0755));
    writeFile(mFile, kOld);
    ASSERT_EQ(0, chmod(mFile.c_str(), 0666));
    disk.fill();
    const std::string large(20000, 'x');
    {
        const Unprivileged user;
        Property* const property = PropertyOpen(mFile.c_str(), 0x11);
        ASSERT_NE(nullptr, property);
        EXPECT_EQ(-1, PropertySet(property, "A", large.c_str(), 1));
        EXPECT_EQ(kOld, contentOf(mFile));
        PropertyClose(property);
    }
    EXPECT_EQ(kOld, contentOf(mFile));
    const LogLine failed = error("xml save file fail");
    EXPECT_THAT(mLog.take("Property"), ElementsAre(failed, failed));
}

TEST_F(PropertyFileTest, ADiskThatBecomesReadOnlyIsTold) {
    const SmallDisk disk(mFolder.path(), "64k");
    writeFile(mFile, kOld);
    Property* const property = PropertyOpen(mFile.c_str(), 0x11);
    ASSERT_NE(nullptr, property);
    disk.makeReadOnly();
    EXPECT_EQ(-1, PropertySet(property, "A", "new", 1));
    PropertyClose(property);
    const LogLine failed = error("xml save file fail");
    EXPECT_THAT(mLog.take("Property"), ElementsAre(failed, failed));
    EXPECT_EQ(kOld, contentOf(mFile));
    EXPECT_EQ(nullptr, PropertyOpen(mFile.c_str(), 0x11));
    EXPECT_THAT(mLog.take("Property"),
                ElementsAre(error("process have no write permission, file path:" + mFolder.path())));
}

TEST_F(PropertyFileTest, AFolderThatVanishesIsTold) {
    ASSERT_EQ(0, mkdir(mFolder.path("gone").c_str(), 0755));
    const std::string path = mFolder.path("gone/file.xml");
    Property* const property = PropertyOpen(path.c_str(), 0x111);
    ASSERT_NE(nullptr, property);
    ASSERT_EQ(0, rmdir(mFolder.path("gone").c_str()));
    EXPECT_EQ(-1, PropertySet(property, "A", "new", 1));
    ASSERT_EQ(0, mkdir(mFolder.path("gone").c_str(), 0755));
    EXPECT_EQ(0, PropertySet(property, "A", "new", 1));
    PropertyClose(property);
    EXPECT_EQ(kNew, contentOf(path));
}

TEST_F(PropertyFileTest, WhatTookThePlaceOfTheFileIsNotOverwritten) {
    Property* const property = PropertyOpen(mFile.c_str(), 0x11);
    ASSERT_NE(nullptr, property);
    ASSERT_EQ(0, unlink(mFile.c_str()));
    ASSERT_EQ(0, mkfifo(mFile.c_str(), 0644));
    EXPECT_EQ(-1, PropertySet(property, "A", "new", 1));
    EXPECT_TRUE(S_ISFIFO(statusOf(mFile).st_mode));
    PropertyClose(property);
}

TEST_F(PropertyFileTest, AKilledWriterLosesNothingOld) {
    Property* const property = PropertyOpen(mFile.c_str(), 0x11);
    ASSERT_NE(nullptr, property);
    killWriters(
        40,
        [property](unsigned i) {
            const std::string number = std::to_string(i);
            const std::string filling(i % 7 * 1000, 'f');
            return PropertySet(property, "B", filling.c_str(), 1) == 0 &&
                   PropertySet(property, "A", number.c_str(), 1) == 0;
        },
        [this] { EXPECT_NE("(none)", valueIn(mFile)); });
    PropertyClose(property);
}
