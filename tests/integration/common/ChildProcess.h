// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * A program run by a test.
 */

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

/**
 * Starts a program, sends it signals, and collects what it writes and how it ends. Killed with its object.
 * One thread at a time.
 */
class ChildProcess {
  public:
    /**
     * @param arguments    the program's path first
     * @param environment  "NAME=VALUE", added to or in place of the own environment's
     */
    explicit ChildProcess(const std::vector<std::string>& arguments,
                          const std::vector<std::string>& environment = {});
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /** Whether the program could be started. */
    bool started() const { return mPid > 0; }

    void signal(int number) const;

    /** Waits until @p text stands on its standard output. @return false when @p limit passed or it closed */
    bool waitForOutput(const std::string& text, std::chrono::milliseconds limit);

    /** Waits for its end. @return false when @p limit passed first */
    bool waitForEnd(std::chrono::milliseconds limit);

    /** As waitpid() gives it; valid after waitForEnd(). */
    int status() const { return mStatus; }

    const std::string& output() const { return mOutput; }
    const std::string& error() const { return mError; }

  private:
    bool readSome(std::chrono::steady_clock::time_point deadline);

    pid_t mPid = -1;
    int mStatus = -1;
    int mOutputFd = -1;
    int mErrorFd = -1;
    std::string mOutput;
    std::string mError;
};
