// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * What the driver's tests share: the service in a process of its own, and the driver's view of a process.
 */

#include <binder/IBinder.h>
#include <gtest/gtest.h>
#include <sys/types.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

/** Looks at the condition until it holds. @return false when it did not within 30 s */
bool waitUntil(const std::function<bool()>& condition);

/** This program in another role; gone when the object goes. */
class Process {
  public:
    explicit Process(std::vector<std::string> arguments);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    pid_t pid() const { return mPid; }

    /** Sends the signal and waits for the end. */
    void end(int signal);
    void wait();

  private:
    pid_t mPid = -1;
};

/** Counts what it is told. */
class Obituary : public android::IBinder::DeathRecipient {
  public:
    void binderDied(const android::wp<android::IBinder>& who) override;

    std::atomic<int> mCount{0};
    std::atomic<android::IBinder*> mWho{nullptr};
};

/** What the driver holds for a process. */
struct DriverCounts {
    int references = 0;  ///< handles
    int nodes = 0;       ///< local objects
    int buffers = 0;     ///< received and not given back
    int threads = 0;
};

DriverCounts countsOf(pid_t pid);

/** Open descriptors of a process. */
size_t descriptorsOf(pid_t pid);

/** Each test has a service of its own, looked up through the service manager, which must run. */
class DriverTest : public ::testing::Test {
  protected:
    void SetUp() override;

    /** Starts the service and waits until it answers this process. */
    void start();

    /** This process's pid as the service sees it; -1 when the call fails. */
    int32_t callerPid();
    android::status_t echo(int32_t value, int32_t* back);
    void expectEcho();
    /** A call without arguments that answers an int32. */
    int32_t ask(uint32_t code);

    std::unique_ptr<Process> mServer;
    android::sp<android::IBinder> mEcho;
};
