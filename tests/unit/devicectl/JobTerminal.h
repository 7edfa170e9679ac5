// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>
#include <termios.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace devicectl {

/** What stands on a terminal, as far as this program's sequences go. */
struct Picture {
    bool isAlternate = false;
    bool isCursorHidden = false;
    bool isWrapOff = false;
    size_t frames = 0;               ///< whole ones since the other screen was taken
    std::vector<std::string> lines;  ///< of the last whole one
};

/**
 * A pseudo terminal with a session of its own: a small shell, which runs one job, and the test as its user.
 *
 * The shell takes the terminal's foreground when the job stops, but leaves its modes alone, so that those the
 * job left are seen. All processes end with this object. Failures of the set-up abort the test program.
 */
class JobTerminal {
  public:
    enum class Start {
        kForeground,  ///< the job is one process
        kBackground,
        kInScript,  ///< a process that waits for the program is in the job, and first in it
        kAlone,     ///< no shell that could wake it: the program leads the session
    };

    JobTerminal();
    ~JobTerminal();
    JobTerminal(const JobTerminal&) = delete;
    JobTerminal& operator=(const JobTerminal&) = delete;

    /** Runs @p program, which returns its exit status, in a process of its own. Once. */
    void start(const std::function<int()>& program, Start how);

    /** Of the job's process group and first process. */
    pid_t job() const { return mJob; }

    /** Wakes the job, with or without the terminal. */
    void wakeInForeground() const;
    void wakeInBackground() const;

    void type(const std::string& keys) const;
    void resize(unsigned short rows, unsigned short columns) const;
    termios modes() const;
    void setModes(const termios& modes) const;

    /** No user, no terminal. */
    void hangUp();

    /**
     * Waits until the job stops or ends.
     * @return what waitpid() says of it; all that it wrote is in picture() then. -1 after the limit
     */
    int awaitStop();

    /** Whether the job, which is stopped now, waited in poll() when it was: what it drew before is whole. */
    bool wasAtRest() const;

    /** Waits until @p isShown. @return whether it came in time */
    bool await(const std::function<bool(const Picture&)>& isShown);

    const Picture& picture() const { return mPicture; }

    /** All that was written since the start or the last time. */
    std::string takeWritten();

  private:
    bool readUntil(const std::function<bool()>& isThere);
    void feed(char byte);
    void takeSequence();
    void takeShellsWord();
    [[noreturn]] void runShell(const std::function<int()>& program, Start how) const;
    void runJob(const std::function<int()>& program, Start how) const;

    int mMaster = -1;
    int mSlave = -1;
    int mShellsEnd = -1;
    int mOurEnd = -1;
    pid_t mShell = -1;
    pid_t mJob = -1;
    size_t mStops = 0;
    size_t mMarks = 0;
    int mStatus = -1;
    Picture mPicture;
    std::vector<std::string> mDrawn;
    std::string mSequence;
    std::string mWritten;
};

}  // namespace devicectl
