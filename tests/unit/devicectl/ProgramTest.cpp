// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "tools/devicectl/ExitCode.h"

// The program itself, on a machine whose driver is missing or no driver at all.

namespace devicectl {

using testing::HasSubstr;
using testing::StartsWith;

namespace {

struct Outcome {
    int status;
    std::string output;
    std::string error;
    std::chrono::steady_clock::duration duration;
};

std::string contents(int fd) {
    std::string text;
    std::array<char, 4096> block{};
    lseek(fd, 0, SEEK_SET);
    for (ssize_t count = 0; (count = read(fd, block.data(), block.size())) > 0;) {
        text.append(block.data(), static_cast<size_t>(count));
    }
    return text;
}

int temporaryFile() {
    return open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
}

/** In the place of a descriptor: none. */
constexpr int kClosed = -2;

/** Runs the program with @p node as its driver. The descriptors replace its standard ones if not negative. */
Outcome run(const std::vector<std::string>& arguments, const std::string& node = "/nonexistent/binder",
            int outputFd = -1, int inputFd = -1) {
    std::vector<std::string> words{DEVICECTL_PROGRAM};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    const std::string driver = "BINDER_DEVICE=" + node;
    std::array<char*, 2> environment{const_cast<char*>(driver.c_str()), nullptr};

    const int output = temporaryFile();
    const int error = temporaryFile();
    const auto begin = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) {
        if (inputFd >= 0) {
            dup2(inputFd, STDIN_FILENO);
        }
        dup2(outputFd >= 0 ? outputFd : output, STDOUT_FILENO);
        dup2(error, STDERR_FILENO);
        if (inputFd == kClosed) {
            close(STDIN_FILENO);
        }
        if (outputFd == kClosed) {
            close(STDOUT_FILENO);
        }
        execve(argv[0], argv.data(), environment.data());
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    Outcome outcome{WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), contents(output),
                    contents(error), std::chrono::steady_clock::now() - begin};
    close(output);
    close(error);
    return outcome;
}

/** Every command, in a form that is right. */
const std::vector<std::vector<std::string>> kCommands{
    {"start"},
    {"stop", "device"},
    {"device", "get", "block", "sda"},
    {"device", "ancestors", "/devices/x"},
    {"device", "controller", "usb", "0"},
    {"volumes"},
    {"volumes", "--json"},
    {"monitor"},
    {"monitor", "--json"},
    {"dump", "DeviceManager"},
    {"services"},
    {"status"},
    {"wait", "service", "all"},
    {"wait", "volume", "MUSIC"},
    {"wait", "usb", "05ac:12a8"},
    {"usb", "list"},
    {"usb", "power", "0", "on"},
    {"usb", "test", "mode"},
};

void expectOneLine(const std::string& error) {
    EXPECT_THAT(error, StartsWith("devicectl: "));
    EXPECT_EQ(std::count(error.begin(), error.end(), '\n'), 1) << error;
    EXPECT_EQ(error.back(), '\n');
}

TEST(Program, WithoutDriverSaysWhatToDoAtOnce) {
    for (const std::vector<std::string>& command : kCommands) {
        const Outcome outcome = run(command);
        EXPECT_EQ(outcome.status, kNoDriver) << command[0];
        EXPECT_EQ(outcome.output, "");
        expectOneLine(outcome.error);
        EXPECT_THAT(outcome.error, HasSubstr("/nonexistent/binder"));
        EXPECT_THAT(outcome.error, HasSubstr("binder_linux")) << "the module to load";
        EXPECT_LT(outcome.duration, std::chrono::seconds(1)) << command[0];
    }
}

TEST(Program, WithANodeThatIsNoDriver) {
    for (const char* const node : {"/dev/null", "/tmp"}) {
        const Outcome outcome = run({"services"}, node);
        EXPECT_EQ(outcome.status, kNoDriver) << node;
        expectOneLine(outcome.error);
        EXPECT_THAT(outcome.error, HasSubstr(node));
    }
}

TEST(Program, UsageErrorsComeBeforeTheDriver) {
    for (const std::vector<std::string>& line : std::vector<std::vector<std::string>>{
             {}, {"frob"}, {"device", "get", "block"}, {"--timeout", "x", "start"}}) {
        const Outcome outcome = run(line);
        EXPECT_EQ(outcome.status, kUsage);
        EXPECT_EQ(outcome.output, "");
        expectOneLine(outcome.error);
    }
}

TEST(Program, WatchNeedsATerminal) {
    const Outcome outcome = run({"watch"});
    EXPECT_EQ(outcome.status, kUsage);
    EXPECT_EQ(outcome.output, "");
    expectOneLine(outcome.error);
    EXPECT_THAT(outcome.error, HasSubstr("watch needs a terminal"));
}

TEST(Program, WatchNeedsATerminalOnBothSides) {
    int master = -1;
    int slave = -1;
    ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
    const int none = open("/dev/null", O_RDWR | O_CLOEXEC);
    const std::string driver = "/nonexistent/binder";
    for (const auto& [input, output] :
         {std::pair(slave, none), std::pair(none, slave), std::pair(none, none)}) {
        const Outcome outcome = run({"watch"}, driver, output, input);
        EXPECT_EQ(outcome.status, kUsage);
        expectOneLine(outcome.error);
        EXPECT_THAT(outcome.error, HasSubstr("watch needs a terminal"));
    }
    const Outcome outcome = run({"watch"}, driver, slave, slave);
    EXPECT_EQ(outcome.status, kNoDriver);
    expectOneLine(outcome.error);
    EXPECT_THAT(outcome.error, HasSubstr(driver));
    // Not a byte was written to the terminal before this one.
    std::array<char, 64> written{};
    EXPECT_EQ(write(slave, "|", 1), 1);
    EXPECT_EQ(read(master, written.data(), written.size()), 1);
    EXPECT_EQ(written[0], '|');
    close(none);
    close(slave);
    close(master);
}

TEST(Program, WatchHasNoJson) {
    const Outcome outcome = run({"--json", "watch"});
    EXPECT_EQ(outcome.status, kUsage);
    expectOneLine(outcome.error);
    EXPECT_THAT(outcome.error, HasSubstr("monitor --json"));
}

TEST(Program, CompletionWithoutDriverKnowsTheCommandsAndSaysNothingElse) {
    for (const std::vector<std::string>& line : std::vector<std::vector<std::string>>{
             {"complete", "words", "wait", ""}, {"complete", "bash", "devicectl wait ", " :="}}) {
        const Outcome outcome = run(line);
        EXPECT_EQ(outcome.status, kOk);
        EXPECT_EQ(outcome.output, "service\nvolume\nusb\n");
        EXPECT_EQ(outcome.error, "");
    }
    const Outcome live = run({"complete", "words", "wait", "volume", ""});
    EXPECT_EQ(live.status, kOk);
    EXPECT_EQ(live.output + live.error, "");
    for (const std::vector<std::string>& wrong : std::vector<std::vector<std::string>>{
             {"complete"}, {"complete", "bash", "x"}, {"complete", "fish", "x"}}) {
        EXPECT_EQ(run(wrong).status, kUsage);
        EXPECT_EQ(run(wrong).output + run(wrong).error, "");
    }
}

TEST(Program, EveryExitStatusIsExplained) {
    const std::string help = run({"--help"}).output;
    for (int status = kOk; status <= kTimedOut; ++status) {
        EXPECT_THAT(help, HasSubstr("\n  " + std::to_string(status) + "  "));
    }
    EXPECT_EQ(help.find("\n  " + std::to_string(kTimedOut + 1) + "  "), std::string::npos);
}

TEST(Program, AnArgumentDoesNotReachTheTerminalRaw) {
    const Outcome outcome = run({"fr\x1b[2J\nob"});
    EXPECT_EQ(outcome.status, kUsage);
    expectOneLine(outcome.error);
    EXPECT_EQ(outcome.error.find('\x1b'), std::string::npos);
}

TEST(Program, HelpAndVersionNeedNoDriver) {
    const Outcome help = run({"monitor", "--help"});
    EXPECT_EQ(help.status, kOk);
    EXPECT_THAT(help.output, HasSubstr("--count"));
    EXPECT_EQ(help.error, "");
    const Outcome version = run({"--version"});
    EXPECT_EQ(version.status, kOk);
    EXPECT_THAT(version.output, StartsWith("devicectl "));
}

TEST(Program, AFullDiskIsAnError) {
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(full, 0);
    const Outcome outcome = run({"--version"}, "/nonexistent", full);
    close(full);
    EXPECT_EQ(outcome.status, kFailed);
    expectOneLine(outcome.error);
    EXPECT_THAT(outcome.error, HasSubstr("No space left"));
}

TEST(Program, AClosedStandardOutputIsAnError) {
    for (const int input : {-1, kClosed}) {
        for (const std::vector<std::string>& line : std::vector<std::vector<std::string>>{
                 {"--version"}, {"--help"}, {"complete", "words", "wait", ""}}) {
            const Outcome outcome = run(line, "/nonexistent", kClosed, input);
            EXPECT_EQ(outcome.status, kFailed) << line[0];
            expectOneLine(outcome.error);
            EXPECT_THAT(outcome.error, HasSubstr("cannot write to standard output: Bad file descriptor"));
        }
    }
    // Nothing is written, and nothing else is the matter: the reason is the driver alone.
    const Outcome outcome = run({"status"}, "/nonexistent", kClosed);
    EXPECT_EQ(outcome.status, kNoDriver);
    expectOneLine(outcome.error);
}

// Another file that is opened first would become standard output, and be written to.
TEST(Program, AClosedStandardOutputIsNobodyElses) {
    for (const int input : {-1, kClosed}) {
        const Outcome outcome = run({"--help"}, "/nonexistent", kClosed, input);
        EXPECT_EQ(outcome.output, "");
        EXPECT_EQ(outcome.status, kFailed);
    }
}

TEST(Program, AReaderThatWentIsNotComplainedAbout) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    close(ends[0]);
    const Outcome outcome = run({"--help"}, "/nonexistent", ends[1]);
    close(ends[1]);
    EXPECT_EQ(outcome.status, kFailed);
    EXPECT_EQ(outcome.error, "");
}

}  // namespace

}  // namespace devicectl
