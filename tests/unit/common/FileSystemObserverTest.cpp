// SPDX-License-Identifier: Apache-2.0
#include "common/FileSystemObserver.h"

#include <android/log.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>

#include "common/ObserverThread.h"
#include "tests/unit/common/ThreadProbe.h"
#include "tests/unit/support/LogCapture.h"

using android::KeyedVector;
using android::sp;
using android::String8;
using android::wp;
using ::testing::ElementsAre;

namespace {

constexpr const char* kTag = "FileSystemObserver";

class Recorder : public FileSystemObserverNotifier {
  public:
    void onAdd(const String8& path) override { note("add " + std::string(path.string())); }
    void onRemove(const String8& path) override { note("remove " + std::string(path.string())); }

    bool waitFor(size_t count) {
        std::unique_lock<std::mutex> hold(mLock);
        return mChanged.wait_for(hold, kTestLimit, [&] { return mCalls.size() >= count; });
    }

    std::vector<std::string> calls() {
        const std::lock_guard<std::mutex> hold(mLock);
        return mCalls;
    }

    /** Runs inside each call. Set before the first call. */
    std::function<void()> mInside;

  private:
    void note(const std::string& call) {
        if (mInside) {
            mInside();
        }
        const std::lock_guard<std::mutex> hold(mLock);
        mCalls.push_back(call);
        mChanged.notify_all();
    }

    std::mutex mLock;  // guards mCalls
    std::condition_variable mChanged;
    std::vector<std::string> mCalls;
};

class FileSystemObserverTest : public ::testing::Test {
  protected:
    FileSystemObserverTest() {
        char path[] = "/tmp/observer-test-XXXXXX";
        EXPECT_NE(nullptr, mkdtemp(path));
        mFolder = path;
    }

    ~FileSystemObserverTest() override {
        mObserver.clear();
        std::filesystem::remove_all(mFolder);
        EXPECT_TRUE(eventually([] { return countThreads("ObserverThread") == 0; }));
    }

    std::string makeFolder(const std::string& name) const {
        const std::string path = mFolder + "/" + name;
        EXPECT_EQ(0, mkdir(path.c_str(), 0700));
        return path;
    }

    static void makeFile(const std::string& path) { std::ofstream(path) << "x"; }

    void watch(const std::string& path, const sp<Recorder>& notifier) {
        mObserver->add(String8(path.c_str()), notifier);
    }

    LogCapture mLog;
    std::string mFolder;
    sp<FileSystemObserver> mObserver = new FileSystemObserver();
    sp<Recorder> mRecorder = new Recorder();
};

int countInotifyDescriptors() {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        count += std::filesystem::read_symlink(entry.path(), gone) == "anon_inode:inotify" ? 1 : 0;
    }
    return count;
}

}  // namespace

TEST_F(FileSystemObserverTest, TellsOfEntriesThatComeAndGo) {
    watch(mFolder, mRecorder);
    mObserver->start();
    const std::string path = mFolder + "/sda";
    makeFile(path);
    ASSERT_TRUE(mRecorder->waitFor(1));
    ASSERT_EQ(0, unlink(path.c_str()));
    ASSERT_TRUE(mRecorder->waitFor(2));
    EXPECT_THAT(mRecorder->calls(), ElementsAre("add " + path, "remove " + path));
    EXPECT_THAT(mLog.take(kTag), ElementsAre(LogLine{ANDROID_LOG_INFO, kTag, "[" + path + "] add"},
                                             LogLine{ANDROID_LOG_INFO, kTag, "[" + path + "] remove"}));
}

TEST_F(FileSystemObserverTest, EachFolderHasItsNotifier) {
    const std::string first = makeFolder("first");
    const std::string second = makeFolder("second");
    const sp<Recorder> other = new Recorder();
    watch(first, mRecorder);
    watch(second, other);
    watch(mFolder, nullptr);
    mObserver->start();
    makeFile(second + "/x");
    makeFile(mFolder + "/nobody");
    makeFile(first + "/y");
    ASSERT_TRUE(mRecorder->waitFor(1));
    ASSERT_TRUE(other->waitFor(1));
    EXPECT_THAT(mRecorder->calls(), ElementsAre("add " + first + "/y"));
    EXPECT_THAT(other->calls(), ElementsAre("add " + second + "/x"));
    // Logged also where there is nobody to tell.
    EXPECT_TRUE(mLog.waitFor(LogLine{ANDROID_LOG_INFO, kTag, "[" + mFolder + "/nobody] add"}, kTestLimit));
}

TEST_F(FileSystemObserverTest, TheLastNotifierOfAFolderCounts) {
    const sp<Recorder> other = new Recorder();
    watch(mFolder, other);
    watch(mFolder, mRecorder);
    mObserver->start();
    makeFile(mFolder + "/x");
    ASSERT_TRUE(mRecorder->waitFor(1));
    EXPECT_TRUE(other->calls().empty());
}

TEST_F(FileSystemObserverTest, ChangesOfTheListTakeEffectWithTheNextStart) {
    const std::string early = makeFolder("early");
    const std::string late = makeFolder("late");
    watch(early, mRecorder);
    mObserver->start();
    watch(late, mRecorder);
    mObserver->remove(String8(early.c_str()));
    mObserver->remove(String8("/never/added"));
    makeFile(late + "/unheard");
    makeFile(early + "/heard");
    ASSERT_TRUE(mRecorder->waitFor(1));
    EXPECT_THAT(mRecorder->calls(), ElementsAre("add " + early + "/heard"));
    mObserver->stop();
    mObserver->start();
    makeFile(early + "/unheard");
    makeFile(late + "/heard");
    ASSERT_TRUE(mRecorder->waitFor(2));
    EXPECT_THAT(mRecorder->calls(), ElementsAre("add " + early + "/heard", "add " + late + "/heard"));
}

TEST_F(FileSystemObserverTest, ASecondStartReplacesTheThread) {
    watch(mFolder, mRecorder);
    mObserver->start();
    mObserver->start();
    makeFile(mFolder + "/x");
    makeFile(mFolder + "/y");
    ASSERT_TRUE(mRecorder->waitFor(2));
    EXPECT_THAT(mRecorder->calls(), ElementsAre("add " + mFolder + "/x", "add " + mFolder + "/y"));
    EXPECT_TRUE(eventually([] { return countThreads("ObserverThread") == 1; }));
}

TEST_F(FileSystemObserverTest, StopsAndStartsManyTimesWithoutALeak) {
    mObserver->stop();
    watch(mFolder, mRecorder);
    for (size_t i = 0; i < 10; ++i) {
        mObserver->start();
        makeFile(mFolder + "/" + std::to_string(i));
        ASSERT_TRUE(mRecorder->waitFor(i + 1));
        mObserver->stop();
        EXPECT_TRUE(eventually([] { return countThreads("ObserverThread") == 0; }));
        EXPECT_TRUE(eventually([] { return countInotifyDescriptors() == 0; }));
        mObserver->stop();
    }
    makeFile(mFolder + "/unheard");
    mObserver->start();
    makeFile(mFolder + "/heard");
    ASSERT_TRUE(mRecorder->waitFor(11));
    EXPECT_EQ("add " + mFolder + "/heard", mRecorder->calls().back());
}

TEST_F(FileSystemObserverTest, CutsPathsAt255Bytes) {
    std::string deep = mFolder;
    for (int i = 0; i < 2; ++i) {
        deep += "/" + std::string(80, 'd');
        ASSERT_EQ(0, mkdir(deep.c_str(), 0700));
    }
    watch(deep, mRecorder);
    mObserver->start();
    const std::string path = deep + "/" + std::string(200, 'x');
    makeFile(path);
    ASSERT_TRUE(mRecorder->waitFor(1));
    EXPECT_THAT(mRecorder->calls(), ElementsAre("add " + path.substr(0, 255)));
    EXPECT_EQ(1U, mLog.count(
                      [&](const LogLine& line) { return line.text == "[" + path.substr(0, 255) + "] add"; }));
}

TEST_F(FileSystemObserverTest, LosesNothingOfABurst) {
    watch(mFolder, mRecorder);
    mObserver->start();
    std::vector<std::string> expected;
    for (int i = 0; i < 500; ++i) {
        const std::string path =
            mFolder + "/" + std::string(static_cast<size_t>(i % 200) + 1, 'n') + std::to_string(i);
        makeFile(path);
        unlink(path.c_str());
        expected.push_back("add " + path.substr(0, 255));
        expected.push_back("remove " + path.substr(0, 255));
    }
    ASSERT_TRUE(mRecorder->waitFor(expected.size()));
    EXPECT_EQ(expected, mRecorder->calls());
}

TEST_F(FileSystemObserverTest, ANotifierMayStopTheObserver) {
    Gate asked;
    mRecorder->mInside = [&] {
        mObserver->stop();
        mObserver->add(String8("/other"), nullptr);
        asked.open();
    };
    watch(mFolder, mRecorder);
    mObserver->start();
    makeFile(mFolder + "/x");
    ASSERT_TRUE(asked.wait());
    EXPECT_TRUE(eventually([] { return countThreads("ObserverThread") == 0; }));
    mRecorder->mInside = nullptr;
}

TEST_F(FileSystemObserverTest, GoesWithItsThreadAndNotifiers) {
    const wp<Recorder> recorder = mRecorder;
    watch(mFolder, mRecorder);
    mObserver->start();
    mRecorder.clear();
    mObserver.clear();
    EXPECT_TRUE(eventually([&] { return recorder.promote() == nullptr; }));
    EXPECT_TRUE(eventually([] { return countInotifyDescriptors() == 0; }));
}

TEST_F(FileSystemObserverTest, IgnoresEventsOfUnknownWatches) {
    KeyedVector<String8, sp<ObserverNode>> nodes;
    const sp<ObserverThread> thread = new ObserverThread(nodes);
    inotify_event event = {};
    event.wd = 7;
    event.mask = IN_CREATE | IN_DELETE;
    thread->handleEvent(&event);
    EXPECT_TRUE(mLog.take(kTag).empty());
}

TEST_F(FileSystemObserverTest, AnEventMayTellOfBoth) {
    KeyedVector<String8, sp<ObserverNode>> nodes;
    nodes.add(String8(mFolder.c_str()), new ObserverNode(String8("/watched"), mRecorder));
    const sp<ObserverThread> thread = new ObserverThread(nodes);
    alignas(inotify_event) char buffer[sizeof(inotify_event) + 16] = {};
    auto* const event = reinterpret_cast<inotify_event*>(buffer);
    event->wd = 1;
    event->mask = IN_CREATE | IN_DELETE;
    event->len = 16;
    buffer[sizeof(inotify_event)] = 'x';
    thread->handleEvent(event);
    EXPECT_THAT(mRecorder->calls(), ElementsAre("add /watched/x", "remove /watched/x"));
}

TEST(FileSystemObserverDeathTest, AFolderThatDoesNotExistAborts) {
    EXPECT_DEATH(
        {
            const sp<FileSystemObserver> observer = new FileSystemObserver();
            observer->add(String8("/no/such/folder"), nullptr);
            observer->start();
        },
        "assertion \"wfd > 0\" failed: file \"FileSystemObserver\", line 56, function "
        "\"ObserverThread::ObserverThread\\(android::KeyedVector<android::String8, "
        "android::sp<ObserverNode> >&\\)\"");
}

TEST(FileSystemObserverDeathTest, ANullEventAborts) {
    const auto handleNothing = [] {
        KeyedVector<String8, sp<ObserverNode>> nodes;
        const sp<ObserverThread> thread = new ObserverThread(nodes);
        thread->handleEvent(nullptr);
    };
    EXPECT_DEATH(handleNothing(),
                 "assertion \"event\" failed: file \"FileSystemObserver\", line 153, function "
                 "\"void ObserverThread::handleEvent\\(inotify_event\\*\\)\"");
}
