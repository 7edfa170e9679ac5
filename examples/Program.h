// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * What the examples share and an application has anyway: options, and an end. Nothing here is about devices.
 */

#include <signal.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

/** A program that runs until SIGINT or SIGTERM, or for the seconds that its command line says. */
class Program {
  public:
    /** Made before any thread starts: threads inherit that the signals wait for runUntilEnd(). */
    Program(int argc, char** argv, const char* purpose) {
        for (int i = 1; i < argc; ++i) {
            char* end = nullptr;
            if (strcmp(argv[i], "--help") == 0) {
                printf("%s\n\nUsage: %s [--for SECONDS]\n\nEnds after SECONDS, or on SIGINT.\n", purpose,
                       argv[0]);
                exit(0);
            }
            if (strcmp(argv[i], "--for") == 0 && i + 1 < argc) {
                mSeconds = strtol(argv[++i], &end, 10);
            }
            if (end == nullptr || end == argv[i] || *end != '\0' || mSeconds < 1) {
                fprintf(stderr, "%s: bad option %s, see --help\n", argv[0], argv[i]);
                exit(2);
            }
        }
        // Each line is seen as it is written, also in a file or a pipe.
        setvbuf(stdout, nullptr, _IOLBF, 0);
        sigemptyset(&mEnding);
        sigaddset(&mEnding, SIGINT);
        sigaddset(&mEnding, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &mEnding, nullptr);
    }

    void runUntilEnd() const {
        if (mSeconds == 0) {
            int signal = 0;
            sigwait(&mEnding, &signal);
        } else {
            timespec end = now();
            end.tv_sec += mSeconds;
            timespec left = {mSeconds, 0};
            // A program that was stopped and goes on (Ctrl-Z, fg) has not come to its end.
            while (sigtimedwait(&mEnding, nullptr, &left) < 0 && errno == EINTR) {
                left = timeUntil(end);
            }
        }
    }

  private:
    static timespec now() {
        timespec time = {};
        clock_gettime(CLOCK_MONOTONIC, &time);
        return time;
    }

    /** Nothing when it has passed. */
    static timespec timeUntil(const timespec& end) {
        constexpr long kSecond = 1000000000;  // in nanoseconds
        const timespec begin = now();
        timespec left = {end.tv_sec - begin.tv_sec, end.tv_nsec - begin.tv_nsec};
        if (left.tv_nsec < 0) {
            --left.tv_sec;
            left.tv_nsec += kSecond;
        }
        return left.tv_sec < 0 ? timespec{} : left;
    }

    long mSeconds = 0;  ///< 0: no limit
    sigset_t mEnding;
};
