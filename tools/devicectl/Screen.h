// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <termios.h>

#include <cstddef>
#include <string>
#include <vector>

namespace devicectl {

/**
 * A terminal as a whole: another screen than the one with the shell's lines, keys one by one, no cursor.
 *
 * The terminal gets its former state back at leave(), at destruction, and when the process ends by a fault or
 * an abort. One at a time in the process; one thread.
 */
class Screen {
  public:
    struct Size {
        size_t rows;
        size_t columns;
    };

    /** Takes nothing yet. @param inputFd and @param outputFd are those of one terminal. */
    Screen(int inputFd, int outputFd);
    ~Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    /**
     * Waits, stopped, until this process's job is in the foreground; returns at once where there are no jobs.
     * @return 0 or the error's number: EIO in the background where nobody could wake the process, EINTR when
     * a signal was handled
     */
    int awaitForeground() const;

    /** Takes the terminal, in the foreground. @return 0 or the error's number */
    int enter();

    /**
     * Takes it once more after somebody else had it, between enter() and leave(). Its former state stays what
     * enter() found. @return 0 or the error's number
     */
    int enterAgain();

    /**
     * Gives it back. Harmless if it was not taken. In the background it is the shell's, and not touched: it
     * stays taken.
     */
    void leave();

    /** As it is now; 24 by 80 if the terminal does not know. */
    Size size() const;

    /** Shows @p lines from the top and nothing below. @return 0 or the error's number */
    int show(const std::vector<std::string>& lines);

  private:
    int take();

    const int mInput;
    const int mOutput;
    termios mFormer = {};
    bool mIsTaken = false;
};

}  // namespace devicectl
