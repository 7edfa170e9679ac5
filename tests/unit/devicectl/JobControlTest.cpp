// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "tests/unit/devicectl/JobTerminal.h"
#include "tools/devicectl/WatchSource.h"
#include "tools/devicectl/Watcher.h"

// The command watch as a shell's job, on a machine where no service is.

namespace devicectl {

using android::sp;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::SizeIs;
using testing::StartsWith;
using Start = JobTerminal::Start;

namespace {

constexpr int kMostStops = 14;
constexpr std::chrono::milliseconds kFirstPause{1};
constexpr size_t kWholePicture = 15;  ///< lines

/** What runWatch() does once it has found a driver. */
int watch() {
    // No other thread is there yet.
    setenv("BINDER_DEVICE", "/nonexistent/binder", 1);  // NOLINT(concurrency-mt-unsafe)
    const sp<WakeUp> news = new WakeUp();
    Watcher watcher(Format::kHuman, news, STDIN_FILENO, STDOUT_FILENO);
    if (!watcher.isComplete()) {
        return 125;
    }
    const sp<WatchSource> source = new WatchSource(news);
    source->start();
    return watcher.run(source);
}

bool areSame(const termios& one, const termios& other) {
    return one.c_iflag == other.c_iflag && one.c_oflag == other.c_oflag && one.c_cflag == other.c_cflag &&
           one.c_lflag == other.c_lflag && std::memcmp(one.c_cc, other.c_cc, sizeof(one.c_cc)) == 0;
}

bool isStopped(int status, int signal) {
    return status != -1 && WIFSTOPPED(status) && WSTOPSIG(status) == signal;
}

bool hasEnded(int status, int code) {
    return status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == code;
}

class JobControl : public testing::Test {
  protected:
    void SetUp() override {
        mTerminal.resize(40, 100);
        mBefore = mTerminal.modes();
        ASSERT_NE(mBefore.c_lflag & static_cast<tcflag_t>(ICANON), 0U);
    }

    /** Waits for a picture of @p lines, all of them drawn since the screen was taken last. */
    void expectPicture(size_t lines = kWholePicture, size_t columns = 100) {
        EXPECT_TRUE(mTerminal.await([&](const Picture& picture) {
            return picture.frames > 0 && picture.lines.size() == lines &&
                   (lines < kWholePicture || picture.lines[2] == "  DeviceManager  missing");
        })) << mTerminal.picture().lines.size()
            << " lines";
        const Picture& picture = mTerminal.picture();
        EXPECT_TRUE(picture.isAlternate && picture.isCursorHidden && picture.isWrapOff);
        EXPECT_THAT(picture.lines, Each(SizeIs(testing::Lt(columns))))
            << "an erased rest takes no character along";
        EXPECT_THAT(picture.lines, Contains(StartsWith("devicectl")));
        EXPECT_EQ(mTerminal.modes().c_lflag & static_cast<tcflag_t>(ICANON | ECHO | ISIG), 0U);
    }

    /** The terminal as it was before the job. */
    void expectGivenBack() {
        const Picture& picture = mTerminal.picture();
        EXPECT_FALSE(picture.isAlternate || picture.isCursorHidden || picture.isWrapOff);
        EXPECT_TRUE(areSame(mTerminal.modes(), mBefore));
    }

    void expectQuits() {
        mTerminal.type("q");
        const int status = mTerminal.awaitStop();
        EXPECT_TRUE(hasEnded(status, kOk)) << status;
        expectGivenBack();
    }

    /** By the signal that no program sees. Half a picture would be finished when it goes on; so again, till
     * it rests. */
    void stopAtRest() {
        for (int i = 0; i < kMostStops; ++i) {
            // Longer each time: a slow machine has more to do behind a picture.
            std::this_thread::sleep_for(kFirstPause * (1 << i));
            ASSERT_EQ(kill(mTerminal.job(), SIGSTOP), 0);
            ASSERT_TRUE(isStopped(mTerminal.awaitStop(), SIGSTOP));
            if (mTerminal.wasAtRest()) {
                return;
            }
            expectTakesTheTerminalAgain();
        }
        FAIL() << "it never rested";
    }

    /** After a stop; what is in the picture may be from before. */
    void expectTakesTheTerminalAgain() {
        mTerminal.takeWritten();
        mTerminal.wakeInForeground();
        std::string written;
        EXPECT_TRUE(mTerminal.await([&](const Picture&) {
            written += mTerminal.takeWritten();
            return written.find("\x1b[?1049h") != std::string::npos;
        }));
        expectPicture();
    }

    JobTerminal mTerminal;
    termios mBefore = {};
};

TEST_F(JobControl, ShowsWhatIsMissingUntilItIsQuit) {
    mTerminal.start(watch, Start::kForeground);
    expectPicture();
    EXPECT_THAT(mTerminal.picture().lines, AllOf(Contains("  VolumeManager  missing"),
                                                 Contains("  UsbManager     missing"), Contains("q quits")));
    expectQuits();
}

TEST_F(JobControl, StopsAndComesBack) {
    mTerminal.start(watch, Start::kForeground);
    // The second time as the first.
    for (int i = 0; i < 3; ++i) {
        expectPicture();
        mTerminal.type("\x1a");
        const int status = mTerminal.awaitStop();
        ASSERT_TRUE(isStopped(status, SIGTSTP)) << status;
        expectGivenBack();
        mTerminal.takeWritten();
        mTerminal.wakeInForeground();
    }
    expectPicture();
    EXPECT_THAT(mTerminal.takeWritten(), StartsWith("\x1b[?1049h")) << "nothing before the other screen";
    expectQuits();
}

TEST_F(JobControl, AStopFromOutsideIsTheSame) {
    mTerminal.start(watch, Start::kForeground);
    expectPicture();
    // One process of the job, and all of them.
    for (const pid_t target : {mTerminal.job(), -mTerminal.job()}) {
        ASSERT_EQ(kill(target, SIGTSTP), 0);
        const int status = mTerminal.awaitStop();
        ASSERT_TRUE(isStopped(status, SIGTSTP)) << status;
        expectGivenBack();
        mTerminal.wakeInForeground();
        expectPicture();
    }
    expectQuits();
}

TEST_F(JobControl, TheWholeJobStops) {
    mTerminal.start(watch, Start::kInScript);
    expectPicture();
    mTerminal.type("\x1a");
    const int status = mTerminal.awaitStop();
    ASSERT_TRUE(isStopped(status, SIGTSTP)) << "the process that waits for the program: " << status;
    expectGivenBack();
    mTerminal.wakeInForeground();
    expectPicture();
    expectQuits();
}

TEST_F(JobControl, DoesNotStopWhereNobodyCouldWakeIt) {
    mTerminal.start(watch, Start::kAlone);
    expectPicture();
    mTerminal.takeWritten();
    mTerminal.type("\x1a");
    std::string written;
    EXPECT_TRUE(mTerminal.await([&](const Picture& picture) {
        written += mTerminal.takeWritten();
        return written.find("\x1b[?1049l") != std::string::npos && picture.frames > 0;
    }));
    expectPicture();
    expectQuits();
}

TEST_F(JobControl, KeysTypedBehindTheStopAreTheShells) {
    mTerminal.start(watch, Start::kForeground);
    expectPicture();
    mTerminal.type("j\x1aqqq");
    ASSERT_TRUE(isStopped(mTerminal.awaitStop(), SIGTSTP));
    expectGivenBack();
    mTerminal.wakeInForeground();
    expectPicture();
    mTerminal.type("\x1a\x1a");
    ASSERT_TRUE(isStopped(mTerminal.awaitStop(), SIGTSTP));
    mTerminal.wakeInForeground();
    expectPicture();
    expectQuits();
}

TEST_F(JobControl, FollowsTheTerminalsSize) {
    mTerminal.start(watch, Start::kForeground);
    expectPicture();
    mTerminal.resize(10, 30);
    expectPicture(10, 30);
    EXPECT_EQ(mTerminal.picture().lines.back(), "q quits  j, k and arrows scro");
    mTerminal.resize(6, 10);
    expectPicture(6, 10);
    mTerminal.resize(40, 100);
    expectPicture();

    mTerminal.type("\x1a");
    ASSERT_TRUE(isStopped(mTerminal.awaitStop(), SIGTSTP));
    mTerminal.resize(9, 20);
    mTerminal.wakeInForeground();
    EXPECT_TRUE(mTerminal.await([](const Picture& picture) { return picture.frames > 0; }));
    EXPECT_THAT(mTerminal.picture().lines, SizeIs(9)) << "the first one already";
    expectPicture(9, 20);
    mTerminal.resize(40, 100);
    expectPicture();
    expectQuits();
}

TEST_F(JobControl, CtrlCQuits) {
    mTerminal.start(watch, Start::kForeground);
    expectPicture();
    mTerminal.type("\x03");
    EXPECT_TRUE(hasEnded(mTerminal.awaitStop(), kOk));
    expectGivenBack();
}

TEST_F(JobControl, WhatIsBehindTheEndDoesNotStopIt) {
    mTerminal.start(watch, Start::kForeground);
    expectPicture();
    mTerminal.type("q\x1a");
    EXPECT_TRUE(hasEnded(mTerminal.awaitStop(), kOk));
    expectGivenBack();
}

class JobControlSignal : public JobControl, public testing::WithParamInterface<int> {};

TEST_P(JobControlSignal, EndsWithTheTerminalGivenBack) {
    mTerminal.start(watch, Start::kForeground);
    expectPicture();
    ASSERT_EQ(kill(mTerminal.job(), GetParam()), 0);
    const int status = mTerminal.awaitStop();
    EXPECT_TRUE(hasEnded(status, kOk)) << status;
    expectGivenBack();
}

TEST_P(JobControlSignal, EndsWhatIsStopped) {
    mTerminal.start(watch, Start::kForeground);
    expectPicture();
    mTerminal.type("\x1a");
    ASSERT_TRUE(isStopped(mTerminal.awaitStop(), SIGTSTP));
    mTerminal.takeWritten();
    ASSERT_EQ(kill(mTerminal.job(), GetParam()), 0);
    mTerminal.wakeInBackground();
    const int status = mTerminal.awaitStop();
    EXPECT_TRUE(status != -1 && WIFSIGNALED(status) && WTERMSIG(status) == GetParam()) << status;
    EXPECT_EQ(mTerminal.takeWritten(), "");
    expectGivenBack();
}

// Woken in the background it stopped again, or wrote over the shell's lines first, and ended when it had the
// terminal.
TEST_P(JobControlSignal, EndsInTheBackgroundAfterAStopItCouldNotSee) {
    mTerminal.start(watch, Start::kForeground);
    expectPicture();
    ASSERT_NO_FATAL_FAILURE(stopAtRest());
    mTerminal.setModes(mBefore);
    mTerminal.takeWritten();
    ASSERT_EQ(kill(mTerminal.job(), GetParam()), 0);
    mTerminal.wakeInBackground();
    const int status = mTerminal.awaitStop();
    EXPECT_TRUE(hasEnded(status, kOk)) << status;
    EXPECT_EQ(mTerminal.takeWritten(), "") << "not over the shell's lines";
    EXPECT_TRUE(areSame(mTerminal.modes(), mBefore));
}

TEST_P(JobControlSignal, EndsInTheBackgroundWhenItWaitsForTheTerminal) {
    mTerminal.start(watch, Start::kForeground);
    expectPicture();
    ASSERT_NO_FATAL_FAILURE(stopAtRest());
    mTerminal.setModes(mBefore);
    mTerminal.takeWritten();
    for (int i = 0; i < 2; ++i) {
        mTerminal.wakeInBackground();
        ASSERT_TRUE(isStopped(mTerminal.awaitStop(), SIGTTOU));
    }
    ASSERT_EQ(kill(mTerminal.job(), GetParam()), 0);
    mTerminal.wakeInBackground();
    const int status = mTerminal.awaitStop();
    EXPECT_TRUE(hasEnded(status, kOk)) << status;
    EXPECT_EQ(mTerminal.takeWritten(), "") << "not over the shell's lines";
    EXPECT_TRUE(areSame(mTerminal.modes(), mBefore));
}

TEST_P(JobControlSignal, EndsWithTheTerminalGivenBackAfterAStopItCouldNotSee) {
    mTerminal.start(watch, Start::kForeground);
    expectPicture();
    ASSERT_NO_FATAL_FAILURE(stopAtRest());
    mTerminal.wakeInBackground();
    ASSERT_TRUE(isStopped(mTerminal.awaitStop(), SIGTTOU));
    ASSERT_EQ(kill(mTerminal.job(), GetParam()), 0);
    mTerminal.wakeInForeground();
    const int status = mTerminal.awaitStop();
    EXPECT_TRUE(hasEnded(status, kOk)) << status;
    expectGivenBack();
}

INSTANTIATE_TEST_SUITE_P(Signals, JobControlSignal, testing::Values(SIGINT, SIGTERM, SIGHUP, SIGQUIT));

TEST_F(JobControl, TouchesNothingInTheBackground) {
    mTerminal.start(watch, Start::kBackground);
    for (int i = 0; i < 3; ++i) {
        const int status = mTerminal.awaitStop();
        ASSERT_TRUE(isStopped(status, SIGTTOU)) << status;
        EXPECT_EQ(mTerminal.takeWritten(), "");
        expectGivenBack();
        if (i < 2) {
            mTerminal.wakeInBackground();
        }
    }
    mTerminal.wakeInForeground();
    expectPicture();
    mTerminal.type("\x1a");
    ASSERT_TRUE(isStopped(mTerminal.awaitStop(), SIGTSTP));
    expectGivenBack();
    mTerminal.takeWritten();
    mTerminal.wakeInBackground();
    ASSERT_TRUE(isStopped(mTerminal.awaitStop(), SIGTTOU));
    EXPECT_EQ(mTerminal.takeWritten(), "");
    expectGivenBack();
    mTerminal.wakeInForeground();
    expectPicture();
    expectQuits();
}

TEST_F(JobControl, EndsInTheBackgroundByASignal) {
    mTerminal.start(watch, Start::kBackground);
    ASSERT_TRUE(isStopped(mTerminal.awaitStop(), SIGTTOU));
    ASSERT_EQ(kill(mTerminal.job(), SIGTERM), 0);
    mTerminal.wakeInBackground();
    const int status = mTerminal.awaitStop();
    EXPECT_TRUE(status != -1 && WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
    EXPECT_EQ(mTerminal.takeWritten(), "");
    expectGivenBack();
}

TEST_F(JobControl, TakesTheTerminalAgainAfterAStopItCouldNotSee) {
    mTerminal.start(watch, Start::kForeground);
    expectPicture();
    const termios raw = mTerminal.modes();
    for (const bool isModeKept : {false, true}) {
        ASSERT_NO_FATAL_FAILURE(stopAtRest());
        // Shells take back their own modes; some hand the job those it was stopped with.
        mTerminal.setModes(mBefore);
        mTerminal.takeWritten();
        mTerminal.wakeInBackground();
        ASSERT_TRUE(isStopped(mTerminal.awaitStop(), SIGTTOU));
        EXPECT_EQ(mTerminal.takeWritten(), "") << "not over the shell's lines";
        EXPECT_TRUE(areSame(mTerminal.modes(), mBefore));
        mTerminal.setModes(isModeKept ? raw : mBefore);
        expectTakesTheTerminalAgain();
    }
    expectQuits();
}

TEST_F(JobControl, EndsWithItsTerminal) {
    mTerminal.start(watch, Start::kForeground);
    expectPicture();
    mTerminal.hangUp();
    const int status = mTerminal.awaitStop();
    EXPECT_TRUE(hasEnded(status, kOk)) << status;
}

TEST_F(JobControl, EndsStoppedWithItsTerminal) {
    mTerminal.start(watch, Start::kForeground);
    expectPicture();
    mTerminal.type("\x1a");
    ASSERT_TRUE(isStopped(mTerminal.awaitStop(), SIGTSTP));
    mTerminal.hangUp();
    mTerminal.wakeInForeground();
    const int status = mTerminal.awaitStop();
    EXPECT_TRUE(hasEnded(status, kOk)) << status;
}

}  // namespace

}  // namespace devicectl
