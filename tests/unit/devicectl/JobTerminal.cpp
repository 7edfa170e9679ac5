// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/devicectl/JobTerminal.h"

#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace devicectl {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kLimit{30};
constexpr char kForegroundWord = 'f';
constexpr char kBackgroundWord = 'b';
/** What no terminal knows: the shell's word that all before it has been written. */
constexpr const char* kMark = "\x1b[7711z";

void require(bool isTrue, const char* what) {
    if (!isTrue) {
        std::perror(what);
        std::abort();
    }
}

void send(int fd, int word) {
    require(write(fd, &word, sizeof(word)) == static_cast<ssize_t>(sizeof(word)), "word to the shell");
}

/** The process goes with its parent, whatever it is doing. */
void goWithParent(pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) {
        _exit(127);
    }
}

/** As a shell hands them to a job. */
void resetSignals() {
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGTSTP, SIGTTIN, SIGTTOU, SIGCONT}) {
        std::signal(signal, SIG_DFL);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace

JobTerminal::JobTerminal() {
    require(openpty(&mMaster, &mSlave, nullptr, nullptr, nullptr) == 0, "openpty");
    std::array<int, 2> ends{};
    require(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) == 0, "socketpair");
    mOurEnd = ends[0];
    mShellsEnd = ends[1];
}

JobTerminal::~JobTerminal() {
    if (mShell > 0) {
        kill(mShell, SIGKILL);
        waitpid(mShell, nullptr, 0);
    }
    for (const int fd : {mMaster, mSlave, mOurEnd, mShellsEnd}) {
        close(fd);
    }
}

void JobTerminal::start(const std::function<int()>& program, Start how) {
    const pid_t test = getpid();
    mShell = fork();
    require(mShell >= 0, "fork");
    if (mShell == 0) {
        goWithParent(test);
        close(mMaster);
        close(mOurEnd);
        runShell(program, how);
    }
    readUntil([this] { return mJob > 0; });
}

void JobTerminal::runShell(const std::function<int()>& program, Start how) const {
    require(setsid() > 0, "setsid");
    if (how != Start::kAlone) {
        require(ioctl(mSlave, TIOCSCTTY, 0) == 0, "TIOCSCTTY");
    }
    std::signal(SIGHUP, SIG_IGN);
    std::signal(SIGTTOU, SIG_IGN);
    const pid_t shell = getpid();
    const pid_t job = fork();
    require(job >= 0, "fork");
    if (job == 0) {
        goWithParent(shell);
        runJob(program, how);
    }
    if (how != Start::kAlone) {
        // The job does so too: whoever comes first.
        setpgid(job, job);
    }
    send(mShellsEnd, job);
    for (int status = 0; waitpid(job, &status, WUNTRACED) == job;) {
        tcsetpgrp(mSlave, getpgrp());
        // Fails when the terminal went.
        const std::string mark = kMark;
        const ssize_t written = write(mSlave, mark.data(), mark.size());
        static_cast<void>(written);
        send(mShellsEnd, status);
        int word = 0;
        if (!WIFSTOPPED(status) || read(mShellsEnd, &word, sizeof(word)) <= 0) {
            break;
        }
        if (word == kForegroundWord) {
            tcsetpgrp(mSlave, job);
        }
        kill(-job, SIGCONT);
    }
    // The master's side sees what is written for as long as this process holds the terminal.
    pause();
    _exit(0);
}

void JobTerminal::runJob(const std::function<int()>& program, Start how) const {
    if (how == Start::kAlone) {
        require(setsid() > 0 && ioctl(mSlave, TIOCSCTTY, 0) == 0, "TIOCSCTTY");
    } else {
        require(setpgid(0, 0) == 0, "setpgid");
    }
    if (how != Start::kBackground) {
        require(tcsetpgrp(mSlave, getpgrp()) == 0, "tcsetpgrp");
    }
    resetSignals();
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        require(dup2(mSlave, fd) == fd, "dup2");
    }
    close(mShellsEnd);
    close(mSlave);
    if (how == Start::kInScript) {
        const pid_t script = getpid();
        const pid_t child = fork();
        require(child >= 0, "fork");
        if (child > 0) {
            int status = 0;
            waitpid(child, &status, 0);
            _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 127);
        }
        goWithParent(script);
    }
    _exit(program());
}

void JobTerminal::wakeInForeground() const {
    send(mOurEnd, kForegroundWord);
}

void JobTerminal::wakeInBackground() const {
    send(mOurEnd, kBackgroundWord);
}

void JobTerminal::type(const std::string& keys) const {
    require(write(mMaster, keys.data(), keys.size()) == static_cast<ssize_t>(keys.size()), "keys");
}

void JobTerminal::resize(unsigned short rows, unsigned short columns) const {
    const winsize size{rows, columns, 0, 0};
    require(ioctl(mMaster, TIOCSWINSZ, &size) == 0, "TIOCSWINSZ");
}

termios JobTerminal::modes() const {
    termios modes{};
    require(tcgetattr(mSlave, &modes) == 0, "tcgetattr");
    return modes;
}

void JobTerminal::setModes(const termios& modes) const {
    require(tcsetattr(mSlave, TCSANOW, &modes) == 0, "tcsetattr");
}

void JobTerminal::hangUp() {
    close(mMaster);
    mMaster = -1;
}

int JobTerminal::awaitStop() {
    const size_t before = mStops;
    const bool isMarked = mMaster >= 0;
    const bool came = readUntil([&] { return mStops > before && (!isMarked || mMarks == mStops); });
    return came ? mStatus : -1;
}

bool JobTerminal::wasAtRest() const {
    // The number of the system call under way, or a word where there is none.
    std::ifstream file("/proc/" + std::to_string(mJob) + "/syscall");
    std::string number;
    require(static_cast<bool>(file >> number), "the job's system call");
#if defined(SYS_poll)
    if (number == std::to_string(SYS_poll)) {
        return true;
    }
#endif
    return number == std::to_string(SYS_ppoll);
}

bool JobTerminal::await(const std::function<bool(const Picture&)>& isShown) {
    return readUntil([&] { return isShown(mPicture); });
}

std::string JobTerminal::takeWritten() {
    std::string text;
    text.swap(mWritten);
    return text;
}

bool JobTerminal::readUntil(const std::function<bool()>& isThere) {
    const Clock::time_point end = Clock::now() + kLimit;
    while (!isThere()) {
        const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        std::array<pollfd, 2> sources{{{mOurEnd, POLLIN, 0}, {mMaster, POLLIN, 0}}};
        if (rest <= 0 || poll(sources.data(), sources.size(), static_cast<int>(rest)) <= 0) {
            return false;
        }
        if (sources[0].revents != 0) {
            takeShellsWord();
        }
        std::array<char, 4096> block{};
        const ssize_t count = sources[1].revents != 0 ? read(mMaster, block.data(), block.size()) : 0;
        for (ssize_t i = 0; i < count; ++i) {
            feed(block.at(static_cast<size_t>(i)));
        }
    }
    return true;
}

void JobTerminal::takeShellsWord() {
    int word = 0;
    require(read(mOurEnd, &word, sizeof(word)) == static_cast<ssize_t>(sizeof(word)), "word of the shell");
    if (mJob < 0) {
        mJob = word;
    } else {
        mStatus = word;
        ++mStops;
    }
}

void JobTerminal::feed(char byte) {
    mWritten += byte;
    if (byte == '\x1b') {
        mSequence = byte;
    } else if (!mSequence.empty()) {
        mSequence += byte;
        if (mSequence.size() > 2 && byte >= '@' && byte <= '~') {
            takeSequence();
            mSequence.clear();
        }
    } else if (byte == '\n') {
        mDrawn.emplace_back();
    } else if (byte != '\r') {
        if (mDrawn.empty()) {
            mDrawn.emplace_back();
        }
        mDrawn.back() += byte;
    }
}

void JobTerminal::takeSequence() {
    const std::string rest = mSequence.substr(2);
    if (mSequence == kMark) {
        ++mMarks;
        mWritten.erase(mWritten.size() - mSequence.size());
    } else if (rest == "?1049h" || rest == "?1049l") {
        mPicture.isAlternate = rest.back() == 'h';
        mPicture.frames = 0;
        mPicture.lines.clear();
    } else if (rest == "?25h" || rest == "?25l") {
        mPicture.isCursorHidden = rest.back() == 'l';
    } else if (rest == "?7h" || rest == "?7l") {
        mPicture.isWrapOff = rest.back() == 'l';
    } else if (rest == "H") {
        mDrawn = {""};
    } else if (rest == "J") {
        mPicture.lines = mDrawn;
        ++mPicture.frames;
    }
}

}  // namespace devicectl
