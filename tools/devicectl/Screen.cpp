// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/Screen.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <string_view>

#include "tools/devicectl/StandardStreams.h"

namespace devicectl {

namespace {

// Another screen, no cursor, no wrapping of long lines; and all of it back, colors included.
constexpr std::string_view kTake = "\x1b[?1049h\x1b[?25l\x1b[?7l\x1b[2J";
constexpr std::string_view kGiveBack = "\x1b[0m\x1b[?7h\x1b[?25h\x1b[?1049l";
constexpr std::array kFaults{SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};

/** What the handler of a fault gives back; changed while no handler is set. */
int sInput = -1;
int sOutput = -1;
termios sFormer = {};

/** Also of a terminal that went, or that is not the job's: whoever touches it is told so. Signal-safe. */
bool isInBackground(int terminal) {
    const pid_t foreground = tcgetpgrp(terminal);
    return foreground >= 0 && foreground != getpgrp();
}

void giveBackAndFail(int signal) {
    // The action is the default again (SA_RESETHAND): the process ends by the signal it was ending by.
    if (!isInBackground(sInput)) {
        tcsetattr(sInput, TCSANOW, &sFormer);
        if (write(sOutput, kGiveBack.data(), kGiveBack.size()) < 0) {
            // There is no terminal left.
        }
    }
    raise(signal);
}

void setFaultHandlers(void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_NODEFER);
    for (const int signal : kFaults) {
        sigaction(signal, &action, nullptr);
    }
}

}  // namespace

Screen::Screen(int inputFd, int outputFd) : mInput(inputFd), mOutput(outputFd) {}

Screen::~Screen() {
    leave();
}

int Screen::awaitForeground() const {
    // Changes nothing, and stops in the background as all does that could.
    return tcdrain(mInput) == 0 ? 0 : errno;
}

int Screen::enter() {
    if (mIsTaken) {
        return enterAgain();
    }
    // In the background the state would be that of the shell's own line editor.
    const int error = awaitForeground();
    if (error != 0) {
        return error;
    }
    if (tcgetattr(mInput, &mFormer) != 0) {
        return errno;
    }
    sInput = mInput;
    sOutput = mOutput;
    sFormer = mFormer;
    setFaultHandlers(giveBackAndFail);
    mIsTaken = true;
    return take();
}

int Screen::enterAgain() {
    // What is set now may be the state of this very screen, kept by the shell and put back.
    const int error = awaitForeground();
    return error != 0 ? error : take();
}

int Screen::take() {
    termios raw = mFormer;
    // Keys come at once, unseen, Ctrl-C, Ctrl-Z and Ctrl-S among them; output stays as it is.
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ISIG | IEXTEN);
    raw.c_iflag &= ~static_cast<tcflag_t>(IXON | ICRNL);
    raw.c_cc[VMIN] = 0;
    raw.c_cc[VTIME] = 0;
    if (tcsetattr(mInput, TCSAFLUSH, &raw) != 0) {
        return errno;
    }
    return writeAll(mOutput, kTake);
}

void Screen::leave() {
    if (!mIsTaken || isInBackground(mInput)) {
        return;
    }
    writeAll(mOutput, kGiveBack);
    tcsetattr(mInput, TCSAFLUSH, &mFormer);
    setFaultHandlers(SIG_DFL);
    mIsTaken = false;
}

Screen::Size Screen::size() const {
    winsize window{};
    if (ioctl(mOutput, TIOCGWINSZ, &window) != 0 || window.ws_row == 0 || window.ws_col == 0) {
        return {24, 80};
    }
    return {window.ws_row, window.ws_col};
}

int Screen::show(const std::vector<std::string>& lines) {
    std::string frame = "\x1b[H";
    for (size_t i = 0; i < lines.size(); ++i) {
        frame += lines[i] + "\x1b[K" + (i + 1 < lines.size() ? "\r\n" : "");
    }
    return writeAll(mOutput, frame + "\x1b[J");
}

}  // namespace devicectl
