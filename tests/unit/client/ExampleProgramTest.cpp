// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The end of the example programs, and what they let through to a terminal.
 */
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>

#include "examples/Printable.h"
#include "examples/Program.h"

namespace {

/** The whole program: 0 when it ran for its second, and 1 when it ended before. */
[[noreturn]] void runForASecond() {
    char name[] = "program";
    char option[] = "--for";
    char seconds[] = "1";
    char* arguments[] = {name, option, seconds, nullptr};
    const Program program(3, arguments, "");
    const auto begin = std::chrono::steady_clock::now();
    program.runUntilEnd();
    _exit(std::chrono::steady_clock::now() - begin < std::chrono::seconds(1) ? 1 : 0);
}

/** Whether the only thread of @p process sleeps. */
bool sleeps(pid_t process) {
    const std::string path = "/proc/" + std::to_string(process) + "/stat";
    FILE* const file = fopen(path.c_str(), "re");
    char state = '?';
    const bool isRead = file != nullptr && fscanf(file, "%*d (%*[^)]) %c", &state) == 1;
    if (file != nullptr) {
        fclose(file);
    }
    return isRead && state == 'S';
}

}  // namespace

TEST(ExampleProgramTest, RunsItsTimeAlsoWhenItIsStoppedMeanwhile) {
    const pid_t process = fork();
    ASSERT_GE(process, 0);
    if (process == 0) {
        runForASecond();
    }
    int status = 0;
    while (!sleeps(process)) {
        ASSERT_EQ(0, waitpid(process, &status, WNOHANG)) << "ended with " << status;
    }
    ASSERT_EQ(0, kill(process, SIGSTOP));
    ASSERT_EQ(process, waitpid(process, &status, WUNTRACED));
    ASSERT_TRUE(WIFSTOPPED(status));
    ASSERT_EQ(0, kill(process, SIGCONT));
    ASSERT_EQ(process, waitpid(process, &status, 0));
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(0, WEXITSTATUS(status));
}

TEST(ExamplePrintableTest, LetsNoControlCharacterThrough) {
    EXPECT_EQ("M\xc3\xbcSIC \xe2\x82\xac \xc2\xa9", printable("M\xc3\xbcSIC \xe2\x82\xac \xc2\xa9"));
    EXPECT_EQ("?[2J?", printable("\x1b[2J\x7f"));
    EXPECT_EQ("?2J", printable("\xc2\x9b"
                               "2J"))
        << "an escape sequence in one character";
    EXPECT_EQ("?2J", printable("\x9b"
                               "2J"));
    EXPECT_EQ("??", printable("\xc2\x80\xc2\x9f"));
    EXPECT_EQ("\xc2", printable("\xc2"));
}
