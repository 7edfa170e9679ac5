// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <csignal>

namespace devicectl {

/**
 * SIGINT and SIGTERM as something to poll for. They are blocked from construction to release(), in every
 * thread that starts meanwhile too.
 */
class StopSignals {
  public:
    StopSignals();
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    /** Readable when one has come; -1 if the kernel gave no descriptor. */
    int fd() const { return mFd; }

    /** Takes one. @return whether one had come */
    bool take();

    /** Gives them their former effect on the calling thread back: the next one ends the process at once. */
    void release();

  private:
    sigset_t mSignals;
    sigset_t mFormer;
    int mFd;
};

}  // namespace devicectl
