// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include <cstddef>
#include <string_view>

#include "tools/devicectl/ExitCode.h"
#include "tools/devicectl/Render.h"
#include "tools/devicectl/Screen.h"
#include "tools/devicectl/StopSignals.h"
#include "tools/devicectl/WakeUp.h"
#include "tools/devicectl/WatchSource.h"

namespace devicectl {

/**
 * The command watch on its terminal: draws, takes the keys, and goes along with the shell's job control.
 *
 * SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGCONT and SIGWINCH are blocked from construction on, in every
 * thread that starts later too. One in the process. Main thread.
 */
class Watcher {
  public:
    /**
     * Takes nothing of the terminal yet.
     * @param news posted when there is something new to draw
     * @param inputFd and @param outputFd are those of the controlling terminal
     */
    Watcher(Format format, const android::sp<WakeUp>& news, int inputFd, int outputFd);

    /** Whether the kernel gave all descriptors; run() needs them. */
    bool isComplete() const { return mSignals.fd() >= 0 && mNews->fd() >= 0; }

    /**
     * Shows what @p source saw until the user, a signal or the end of the terminal ends it. Started in the
     * background it stops until it is brought to the foreground, and has touched nothing until then; without
     * the terminal, stopped or not yet begun, signals end the process as any program. In the background it
     * leaves the terminal alone, at its end, too.
     * @return kOk, or kFailed with the reason on standard error when the terminal cannot be taken or written
     */
    ExitCode run(const android::sp<WatchSource>& source);

  private:
    // Each returns 0 or the error's number.
    int draw(const WatchSource& source);
    int await();
    int takeSignal(int signal);
    int takeKeys();
    /** Gives the terminal to the shell until that wakes this program. */
    int pause();
    int enter();
    int enterAgain();

    void takeKey(std::string_view key);

    const Format mFormat;
    const android::sp<WakeUp> mNews;
    const int mInput;
    StopSignals mSignals;
    Screen mScreen;
    size_t mFirst = 0;
    size_t mLast = 0;
    bool mIsEntered = false;  ///< the terminal was taken at least once
    bool mIsOver = false;
};

}  // namespace devicectl
