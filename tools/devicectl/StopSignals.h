// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <csignal>
#include <initializer_list>

namespace devicectl {

/**
 * Signals as something to poll for: SIGINT and SIGTERM unless told otherwise. They are blocked from
 * construction on, in every thread that starts later too, but for the time from release() to hold().
 */
class StopSignals {
  public:
    StopSignals() : StopSignals({SIGINT, SIGTERM}) {}
    explicit StopSignals(std::initializer_list<int> signals);
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    /** Readable when one has come; -1 if the kernel gave no descriptor. */
    int fd() const { return mFd; }

    /** Takes one. @return whether one had come */
    bool take() { return takeNumber() != 0; }

    /** Takes one. @return its number; 0 if none had come */
    int takeNumber();

    /** Gives them their former effect on the calling thread back: the next one ends the process at once. */
    void release();

    /** Blocks them on the calling thread again. */
    void hold();

    /**
     * As long as it lives, SIGCONT also ends a system call of this thread, with EINTR; it is not taken then.
     * Nothing that ends the process does.
     */
    class WakeByContinue {
      public:
        WakeByContinue();
        ~WakeByContinue();
        WakeByContinue(const WakeByContinue&) = delete;
        WakeByContinue& operator=(const WakeByContinue&) = delete;

      private:
        sigset_t mFormer;
        struct sigaction mFormerAction = {};
    };

  private:
    sigset_t mSignals;
    sigset_t mFormer;
    int mFd;
};

}  // namespace devicectl
