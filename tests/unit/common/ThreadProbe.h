// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * Small helpers of tests with threads.
 */

#include <pthread.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>

/** What no test should ever need; a wait this long is a failure. */
constexpr std::chrono::seconds kTestLimit(20);

/** The calling thread's name as the system shows it. */
inline std::string currentThreadName() {
    char name[16] = {};
    pthread_getname_np(pthread_self(), name, sizeof(name));
    return name;
}

/** Counts this process's threads of a name. */
inline int countThreads(const std::string& name) {
    int count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string comm;
        std::getline(std::ifstream(task.path() / "comm"), comm);
        count += comm == name ? 1 : 0;
    }
    return count;
}

/** Opens once; whoever waits goes on from then. */
class Gate {
  public:
    void open() {
        const std::lock_guard<std::mutex> hold(mLock);
        mOpen = true;
        mOpened.notify_all();
    }

    /** Returns false when the gate is still shut after @p limit. */
    bool wait(std::chrono::milliseconds limit = kTestLimit) {
        std::unique_lock<std::mutex> hold(mLock);
        return mOpened.wait_for(hold, limit, [this] { return mOpen; });
    }

  private:
    std::mutex mLock;  // guards mOpen
    std::condition_variable mOpened;
    bool mOpen = false;
};

/** Polls for what cannot be waited for. Returns false when it does not come true in time. */
template <typename CONDITION>
bool eventually(const CONDITION& condition) {
    const auto deadline = std::chrono::steady_clock::now() + kTestLimit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}
