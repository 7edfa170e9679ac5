// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * Processes that are killed while they write.
 */

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

/**
 * Runs @p write in a process of its own, again and again with 0, 1, 2, ..., until it has written a few times
 * and is then killed wherever it is; @p rounds times. The calling process must have one thread.
 *
 * @param check  called after each kill
 */
template <typename WRITE, typename CHECK>
void killWriters(int rounds, const WRITE& write, const CHECK& check) {
    for (int round = 0; round < rounds; ++round) {
        int ready[2];
        ASSERT_EQ(0, pipe(ready));
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            for (unsigned i = 0;; ++i) {
                if (!write(i)) {
                    _exit(1);
                }
                if (i == 3 && ::write(ready[1], "x", 1) != 1) {
                    _exit(2);
                }
            }
        }
        close(ready[1]);
        char byte = 0;
        EXPECT_EQ(1, read(ready[0], &byte, 1)) << "a write failed";
        close(ready[0]);
        // A different moment of a write in each round.
        usleep(static_cast<useconds_t>(round * 37 % 1000));
        EXPECT_EQ(0, kill(child, SIGKILL));
        int status = 0;
        EXPECT_EQ(child, waitpid(child, &status, 0));
        EXPECT_TRUE(WIFSIGNALED(status)) << "ended by itself with " << WEXITSTATUS(status);
        check();
    }
}
