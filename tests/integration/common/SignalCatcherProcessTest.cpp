// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Real signals to a real process: what it prints and how it ends.
 */

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "tests/integration/common/ChildProcess.h"

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

constexpr seconds kLimit(30);
constexpr char kStartLines[] = "SIGKILL: Invalid argument\nSIGSTOP: Invalid argument\n";
constexpr size_t kMaxFrames = 31;

std::string catchLines(int number) {
    char line[64];
    snprintf(line, sizeof(line), "signalCatcher sig num[0x%08x]\nsignalCatcher CallStack\n", number);
    return line;
}

/** "#NN pc ...", indented or not. */
bool isFrame(const std::string& line) {
    const size_t start = line.find_first_not_of(' ');
    const std::string text = start != std::string::npos ? line.substr(start) : std::string();
    return text.size() > 7 && text[0] == '#' && text.compare(3, 4, " pc ") == 0;
}

/** Counts the frames of each run of them. */
std::vector<size_t> frameRuns(const std::string& text) {
    std::vector<size_t> runs;
    bool inRun = false;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const bool frame = isFrame(line);
        if (frame && !inRun) {
            runs.push_back(0);
        }
        if (frame) {
            ++runs.back();
        }
        inRun = frame;
    }
    return runs;
}

class SignalCatcherProcessTest : public ::testing::Test {
  protected:
    void start(const std::string& mode) {
        // The probe ends wherever the signal meets it, with memory in use.
        mProbe = std::make_unique<ChildProcess>(std::vector<std::string>{SIGNAL_CATCHER_PROBE, mode},
                                                std::vector<std::string>{"ASAN_OPTIONS=detect_leaks=0"});
        ASSERT_TRUE(mProbe->started()) << mProbe->error();
    }

    void expectStatusZero() {
        ASSERT_TRUE(mProbe->waitForEnd(kLimit)) << mProbe->error();
        ASSERT_TRUE(WIFEXITED(mProbe->status())) << "killed by signal " << WTERMSIG(mProbe->status()) << "\n"
                                                 << mProbe->error();
        EXPECT_EQ(0, WEXITSTATUS(mProbe->status())) << mProbe->error();
    }

    std::unique_ptr<ChildProcess> mProbe;
};

TEST_F(SignalCatcherProcessTest, AStartPrintsTwoLinesAndNoMore) {
    start("wait");
    ASSERT_TRUE(mProbe->waitForOutput("ready", kLimit));
    mProbe->signal(SIGKILL);
    ASSERT_TRUE(mProbe->waitForEnd(kLimit));
    EXPECT_TRUE(WIFSIGNALED(mProbe->status()));
    EXPECT_EQ(kStartLines, mProbe->error());
}

class EachSignalTest : public SignalCatcherProcessTest, public ::testing::WithParamInterface<int> {};

TEST_P(EachSignalTest, EndsWithStacksAndStatusZero) {
    start("wait");
    ASSERT_TRUE(mProbe->waitForOutput("ready", kLimit));
    mProbe->signal(GetParam());
    expectStatusZero();
    const std::string& error = mProbe->error();
    EXPECT_THAT(error, StartsWith(kStartLines + catchLines(GetParam()) + "#00 pc "));
    EXPECT_THAT(error, HasSubstr("\nsignalCatcher ProcessCallStack\n\n\n----- pid "));
    // A stack of the thread that was hit, then one of each thread.
    const std::vector<size_t> runs = frameRuns(error);
    ASSERT_GE(runs.size(), 3U) << error;
    for (const size_t frames : runs) {
        EXPECT_LE(frames, kMaxFrames);
    }
    EXPECT_THAT(error, HasSubstr("\n\"probe-worker\" sysTid="));
    // The normal exit handlers ran.
    EXPECT_THAT(mProbe->output(), HasSubstr("exit handler"));
}

INSTANTIATE_TEST_SUITE_P(Caught, EachSignalTest,
                         ::testing::Values(SIGSEGV, SIGTERM, SIGINT, SIGQUIT, SIGABRT, SIGBUS, SIGILL, SIGFPE,
                                           SIGPIPE),
                         [](const auto& info) { return std::string("SIG") + sigabbrev_np(info.param); });

TEST_F(SignalCatcherProcessTest, CatchesACrash) {
    start("crash");
    expectStatusZero();
    EXPECT_THAT(mProbe->error(), HasSubstr(catchLines(SIGSEGV)));
}

TEST_F(SignalCatcherProcessTest, CatchesABrokenPipe) {
    start("pipe");
    expectStatusZero();
    EXPECT_THAT(mProbe->error(), HasSubstr(catchLines(SIGPIPE)));
}

TEST_F(SignalCatcherProcessTest, CatchesAFailedAssertion) {
    start("assertion");
    expectStatusZero();
    EXPECT_THAT(mProbe->error(), HasSubstr("assertion \"client\" failed: file \"Probe\", line 7, "
                                           "function \"void probe()\""));
    EXPECT_THAT(mProbe->error(), HasSubstr(catchLines(SIGABRT)));
}

TEST_F(SignalCatcherProcessTest, PrintsAtMost31FramesOfAThread) {
    start("deep");
    expectStatusZero();
    const std::vector<size_t> runs = frameRuns(mProbe->error());
    ASSERT_GE(runs.size(), 2U) << mProbe->error();
    EXPECT_EQ(kMaxFrames, runs[0]);
    EXPECT_EQ(kMaxFrames, runs[1]);
    EXPECT_THAT(mProbe->error(), HasSubstr("#30 pc "));
    EXPECT_THAT(mProbe->error(), Not(HasSubstr("#31 pc ")));
}

TEST_F(SignalCatcherProcessTest, ASecondSignalEndsAtOnce) {
    for (const int second : {SIGTERM, SIGINT, SIGQUIT}) {
        start("exit-hangs");
        ASSERT_TRUE(mProbe->waitForOutput("ready", kLimit));
        mProbe->signal(SIGTERM);
        ASSERT_TRUE(mProbe->waitForOutput("exit handler", kLimit));
        const Clock::time_point sent = Clock::now();
        mProbe->signal(second);
        expectStatusZero();
        // Long before the limit of a catch.
        EXPECT_LT(Clock::now() - sent, seconds(5));
    }
}

TEST_F(SignalCatcherProcessTest, AnExitHandlerThatHangsMeetsTheLimit) {
    start("short:exit-hangs");
    ASSERT_TRUE(mProbe->waitForOutput("ready", kLimit));
    const Clock::time_point sent = Clock::now();
    mProbe->signal(SIGTERM);
    expectStatusZero();
    EXPECT_THAT(mProbe->output(), HasSubstr("exit handler"));
    EXPECT_GE(Clock::now() - sent, milliseconds(500));
}

TEST_F(SignalCatcherProcessTest, ALockThatIsHeldMeetsTheLimit) {
    start("short:lock-held");
    expectStatusZero();
    // It hung before its first line.
    EXPECT_EQ(kStartLines, mProbe->error());
}

TEST_F(SignalCatcherProcessTest, ACrashDuringTheCatchEndsAtOnce) {
    start("exit-crashes");
    expectStatusZero();
    EXPECT_THAT(mProbe->output(), HasSubstr("exit handler"));
    EXPECT_THAT(mProbe->error(), HasSubstr(catchLines(SIGSEGV)));
}

TEST_F(SignalCatcherProcessTest, AnAbortDuringTheCatchEndsAtOnce) {
    start("exit-aborts");
    expectStatusZero();
    EXPECT_THAT(mProbe->error(), HasSubstr(catchLines(SIGABRT)));
}

}  // namespace
