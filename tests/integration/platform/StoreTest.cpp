// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The bundled store, as those who follow its files see it.
 */
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>
#include <velta_pps/Publisher.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/KilledWriters.h"
#include "tests/support/TestFolder.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using velta_pps::PPSAttribute;
using velta_pps::PPSNotification;
using velta_pps::Publisher;

namespace {

int publish(const std::string& name, const std::vector<PPSAttribute>& attributes) {
    PPSNotification notification;
    notification.operation = 0;
    notification.object.name = name;
    notification.object.attributes = attributes;
    return Publisher::self().publish(notification);
}

int withdraw(const std::string& name) {
    PPSNotification notification;
    notification.operation = 1;
    notification.object.name = name;
    return Publisher::self().publish(notification);
}

/** A record that shows whether it is whole: a number, and as many characters of filling. */
std::vector<PPSAttribute> numbered(unsigned number) {
    return {{"NUMBER", std::to_string(number)}, {"FILLING", std::string(number % 5000, 'f')}, {"END", "."}};
}

bool isWhole(const std::string& content) {
    unsigned number = 0;
    return sscanf(content.c_str(), "NUMBER=%u\n", &number) == 1 &&
           content == "NUMBER=" + std::to_string(number) + "\nFILLING=" + std::string(number % 5000, 'f') +
                          "\nEND=.\n";
}

class StoreTest : public ::testing::Test {
  protected:
    void SetUp() override { use(mFolder.path()); }

    static void use(const std::string& folder) { ASSERT_EQ(0, setenv("VELTA_PPS_DIR", folder.c_str(), 1)); }

    std::string record(const std::string& name) const { return contentOf(mFolder.path(name)); }

    TestFolder mFolder;
};

}  // namespace

TEST_F(StoreTest, PublishesAttributesInTheirOrder) {
    ASSERT_EQ(0, publish("usbdev.bus.1.dev", {{"MANUFACTURER", "Acme"}, {"PRODUCT", "A stick"}, {"A", ""}}));
    EXPECT_EQ("MANUFACTURER=Acme\nPRODUCT=A stick\nA=\n", record("usbdev.bus.1.dev"));
    EXPECT_THAT(mFolder.names(), ElementsAre("usbdev.bus.1.dev"));
}

TEST_F(StoreTest, ThePublisherIsOne) {
    EXPECT_EQ(&Publisher::self(), &Publisher::self());
}

TEST_F(StoreTest, ASecondRecordReplacesTheFirst) {
    ASSERT_EQ(0, publish("a", {{"X", "1"}, {"Y", "2"}}));
    ASSERT_EQ(0, publish("a", {{"X", "3"}}));
    EXPECT_EQ("X=3\n", record("a"));
    ASSERT_EQ(0, publish("a", {}));
    EXPECT_EQ("", record("a"));
}

TEST_F(StoreTest, WithdrawsARecord) {
    ASSERT_EQ(0, publish("a", {{"X", "1"}}));
    ASSERT_EQ(0, publish("b", {{"X", "1"}}));
    EXPECT_EQ(0, withdraw("a"));
    EXPECT_THAT(mFolder.names(), ElementsAre("b"));
}

TEST_F(StoreTest, WithdrawingWhatIsNotThereIsDone) {
    EXPECT_EQ(0, withdraw("a"));
    use(mFolder.path("missing"));
    EXPECT_EQ(0, withdraw("a"));
    EXPECT_THAT(mFolder.names(), IsEmpty());
}

TEST_F(StoreTest, RefusesOperationsThatDoNotExist) {
    PPSNotification notification;
    notification.object.name = "a";
    for (const int32_t operation : {2, -1, std::numeric_limits<int32_t>::max()}) {
        notification.operation = operation;
        EXPECT_EQ(-EINVAL, Publisher::self().publish(notification)) << operation;
    }
    // An operation that was never assigned is none either.
    const PPSNotification unassigned;
    EXPECT_EQ(-EINVAL, Publisher::self().publish(unassigned));
    EXPECT_THAT(mFolder.names(), IsEmpty());
}

TEST_F(StoreTest, RefusesNamesThatAreNoPlainFile) {
    for (const std::string& name :
         {std::string(), std::string("."), std::string(".."), std::string("../a"), std::string("/tmp/a"),
          std::string("a/b"), std::string("a/"), std::string(".hidden"), std::string(".new.1.1"),
          std::string("a\nb"), std::string("a\0b", 3), std::string("a\x7f"), std::string(256, 'a')}) {
        EXPECT_EQ(-EINVAL, publish(name, {{"X", "1"}})) << name;
        EXPECT_EQ(-EINVAL, withdraw(name)) << name;
    }
    EXPECT_THAT(mFolder.names(), IsEmpty());
    EXPECT_EQ(0, publish(std::string(255, 'a'), {{"X", "1"}}));
    EXPECT_EQ(0, publish("a b=%.\\\xc3\xa4", {{"X", "1"}}));
    EXPECT_THAT(mFolder.names(), ElementsAre("a b=%.\\\xc3\xa4", std::string(255, 'a')));
}

TEST_F(StoreTest, EveryAttributeStaysOnOneLine) {
    ASSERT_EQ(0, publish("a", {{"A=B\n", "c=d\nE=f\r\t\\n"}, {"N", std::string("a\0b\x7f\x1b[2J", 8)}}));
    EXPECT_EQ("A\\x3dB\\n=c=d\\nE=f\\x0d\\x09\\\\n\nN=a\\x00b\\x7f\\x1b[2J\n", record("a"));
    ASSERT_EQ(0, publish("b", {{"N", "\xc3\xa4\xff"}}));
    EXPECT_EQ("N=\xc3\xa4\xff\n", record("b"));
}

TEST_F(StoreTest, RefusesRecordsThatAreTooLarge) {
    ASSERT_EQ(0, publish("a", {{"X", "1"}}));
    EXPECT_EQ(-E2BIG, publish("a", {{"X", std::string((1U << 20) - 2, 'x')}}));
    EXPECT_EQ("X=1\n", record("a"));
    EXPECT_EQ(0, publish("a", {{"X", std::string((1U << 20) - 3, 'x')}}));
    EXPECT_EQ(1U << 20, record("a").size());
}

TEST_F(StoreTest, MakesAMissingFolder) {
    umask(077);
    use(mFolder.path("run/velta-pps"));
    ASSERT_EQ(0, publish("a", {{"X", "1"}}));
    umask(022);
    EXPECT_EQ("X=1\n", record("run/velta-pps/a"));
    // Readers are other users, whatever this process' umask is.
    const Unprivileged other;
    EXPECT_EQ("X=1\n", record("run/velta-pps/a"));
}

TEST_F(StoreTest, AFolderThatIsRemovedIsMadeAnew) {
    use(mFolder.path("f"));
    ASSERT_EQ(0, publish("a", {{"X", "1"}}));
    ASSERT_EQ(0, unlink(mFolder.path("f/a").c_str()));
    ASSERT_EQ(0, rmdir(mFolder.path("f").c_str()));
    ASSERT_EQ(0, publish("a", {{"X", "2"}}));
    EXPECT_EQ("X=2\n", record("f/a"));
}

TEST_F(StoreTest, RefusesAFolderThatIsNone) {
    writeFile(mFolder.path("file"), "content");
    use(mFolder.path("file"));
    EXPECT_EQ(-ENOTDIR, publish("a", {{"X", "1"}}));
    EXPECT_EQ(-ENOTDIR, withdraw("a"));
    EXPECT_EQ("content", record("file"));
    use("relative");
    EXPECT_EQ(-EINVAL, publish("a", {{"X", "1"}}));
}

TEST_F(StoreTest, AFolderWithoutRightsFails) {
    use(mFolder.path());
    ASSERT_EQ(0, publish("a", {{"X", "1"}}));
    const Unprivileged user;
    EXPECT_EQ(-EACCES, publish("a", {{"X", "2"}}));
    EXPECT_EQ(-EACCES, publish("b", {{"X", "2"}}));
    EXPECT_EQ(-EACCES, withdraw("a"));
    EXPECT_EQ("X=1\n", record("a"));
}

TEST_F(StoreTest, AReadOnlyDiskFails) {
    const SmallDisk disk(mFolder.path(), "64k");
    ASSERT_EQ(0, publish("a", {{"X", "1"}}));
    disk.makeReadOnly();
    EXPECT_EQ(-EROFS, publish("a", {{"X", "2"}}));
    EXPECT_EQ(-EROFS, withdraw("a"));
    EXPECT_EQ("X=1\n", record("a"));
}

TEST_F(StoreTest, AFullDiskLeavesTheFormerRecord) {
    const SmallDisk disk(mFolder.path(), "64k");
    ASSERT_EQ(0, publish("a", {{"X", "1"}}));
    disk.fill();
    EXPECT_EQ(-ENOSPC, publish("a", {{"X", std::string(6000, 'x')}}));
    EXPECT_EQ(-ENOSPC, publish("b", {{"X", std::string(6000, 'x')}}));
    EXPECT_EQ("X=1\n", record("a"));
    EXPECT_THAT(mFolder.names(), ElementsAre("a", "filler"));
    // What is gone frees room even then.
    EXPECT_EQ(0, withdraw("a"));
    disk.empty();
    EXPECT_EQ(0, publish("a", {{"X", std::string(6000, 'x')}}));
}

TEST_F(StoreTest, ARecordThatIsALinkIsReplacedNotFollowed) {
    writeFile(mFolder.path("elsewhere"), "content");
    ASSERT_EQ(0, symlink(mFolder.path("elsewhere").c_str(), mFolder.path("a").c_str()));
    ASSERT_EQ(0, publish("a", {{"X", "1"}}));
    EXPECT_EQ("X=1\n", record("a"));
    EXPECT_EQ("content", record("elsewhere"));
    ASSERT_EQ(0, mkdir(mFolder.path("b").c_str(), 0755));
    EXPECT_EQ(-EISDIR, publish("b", {{"X", "1"}}));
    EXPECT_THAT(mFolder.names(), ElementsAre("a", "b", "elsewhere"));
}

TEST_F(StoreTest, FollowersHearOfEveryChange) {
    const int watcher = inotify_init1(IN_CLOEXEC);
    ASSERT_GE(watcher, 0);
    ASSERT_GE(inotify_add_watch(watcher, mFolder.path().c_str(), IN_MOVED_TO | IN_DELETE), 0);
    // One event at a time: the kernel makes one of two that are equal and unread.
    const auto next = [watcher]() -> std::string {
        pollfd readable = {watcher, POLLIN, 0};
        if (poll(&readable, 1, 10000) != 1) {
            return "nothing";
        }
        alignas(inotify_event) char buffer[sizeof(inotify_event) + NAME_MAX + 1];
        const auto* const event = reinterpret_cast<const inotify_event*>(buffer);
        if (read(watcher, buffer, sizeof(buffer)) <= 0) {
            return "an error";
        }
        return std::string((event->mask & IN_DELETE) != 0 ? "gone " : "new ") + event->name;
    };
    ASSERT_EQ(0, publish("a", {{"X", "1"}}));
    EXPECT_EQ("new a", next());
    ASSERT_EQ(0, publish("a", {{"X", "2"}}));
    EXPECT_EQ("new a", next());
    ASSERT_EQ(0, withdraw("a"));
    EXPECT_EQ("gone a", next());
    ASSERT_NE(0, publish(".a", {{"X", "2"}}));
    ASSERT_EQ(0, publish("b", {{"X", "1"}}));
    EXPECT_EQ("new b", next());
    close(watcher);
}

TEST_F(StoreTest, ReadersNeverSeeHalfARecord) {
    constexpr unsigned kWrites = 300;
    ASSERT_EQ(0, publish("a", numbered(0)));
    std::atomic<int> writing{3};
    std::atomic<unsigned> failed{0};
    std::vector<std::thread> threads;
    for (unsigned writer = 0; writer < 3; ++writer) {
        threads.emplace_back([&, writer] {
            for (unsigned i = 0; i < kWrites; ++i) {
                failed += publish("a", numbered(i * 3 + writer)) == 0 ? 0U : 1U;
            }
            --writing;
        });
    }
    std::atomic<unsigned> broken{0};
    std::atomic<unsigned> read{0};
    for (int reader = 0; reader < 2; ++reader) {
        threads.emplace_back([&] {
            // At least one look, also where the writers are done before this thread runs.
            do {
                broken += isWhole(record("a")) ? 0U : 1U;
                ++read;
            } while (writing > 0);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0U, failed);
    EXPECT_EQ(0U, broken);
    EXPECT_GE(read, 2U);
    EXPECT_TRUE(isWhole(record("a")));
    EXPECT_THAT(mFolder.names(), ElementsAre("a"));
}

TEST_F(StoreTest, ManyProcessesWriteAtOnce) {
    std::vector<pid_t> children;
    for (unsigned child = 0; child < 4; ++child) {
        const pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            for (unsigned i = 0; i < 300; ++i) {
                const std::string own = "own" + std::to_string(child);
                if (publish("all", numbered(i)) != 0 || publish(own, numbered(i)) != 0 ||
                    (i < 299 && withdraw(own) != 0)) {
                    _exit(1);
                }
            }
            _exit(0);
        }
        children.push_back(pid);
    }
    for (const pid_t pid : children) {
        int status = -1;
        EXPECT_EQ(pid, waitpid(pid, &status, 0));
        EXPECT_EQ(0, status);
    }
    EXPECT_THAT(mFolder.names(), ElementsAre("all", "own0", "own1", "own2", "own3"));
    for (const std::string& name : mFolder.names()) {
        EXPECT_TRUE(isWhole(record(name))) << name;
    }
}

TEST_F(StoreTest, AKilledWriterLosesNothingOld) {
    ASSERT_EQ(0, publish("a", numbered(4999)));
    killWriters(
        60, [](unsigned i) { return publish("a", numbered(i)) == 0; },
        [this] { EXPECT_TRUE(isWhole(record("a"))) << record("a").substr(0, 100); });
}

TEST_F(StoreTest, ClearsAwayWhatKilledWritersLeft) {
    pid_t dead = fork();
    ASSERT_GE(dead, 0);
    if (dead == 0) {
        _exit(0);
    }
    ASSERT_EQ(dead, waitpid(dead, nullptr, 0));
    const std::string left = ".new." + std::to_string(dead) + ".0";
    const std::string running = ".new.1.0";
    writeFile(mFolder.path(left), "half a rec");
    writeFile(mFolder.path(running), "half a rec");
    // Each process cleans once: ask a new one.
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        execl(STORE_PUBLISH, STORE_PUBLISH, "probe", nullptr);
        _exit(127);
    }
    int status = -1;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    ASSERT_EQ(0, status);
    EXPECT_THAT(mFolder.names(), ElementsAre(running, "probe"));
}

TEST_F(StoreTest, LeavesNoDescriptorOpen) {
    const auto count = [] {
        size_t open = 0;
        for (int fd = 0; fd < 256; ++fd) {
            open += fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
        }
        return open;
    };
    ASSERT_EQ(0, publish("a", {{"X", "1"}}));
    const size_t before = count();
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(0, publish("a", {{"X", "1"}}));
        EXPECT_EQ(0, withdraw("a"));
        EXPECT_NE(0, publish("..", {}));
    }
    EXPECT_EQ(before, count());
}
