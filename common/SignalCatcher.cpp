// SPDX-License-Identifier: Apache-2.0
#include "common/SignalCatcher.h"

#include <signal.h>
#include <unistd.h>
#include <utils/CallStack.h>
#include <utils/Printer.h>
#include <utils/ProcessCallStack.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using android::CallStack;
using android::FdPrinter;
using android::Printer;
using android::ProcessCallStack;

namespace {

struct CaughtSignal {
    int number;
    const char* name;
};

constexpr CaughtSignal kRequired[] = {
    {SIGSEGV, "SIGSEGV"}, {SIGTERM, "SIGTERM"}, {SIGINT, "SIGINT"},
    {SIGQUIT, "SIGQUIT"}, {SIGABRT, "SIGABRT"},
};

// SIGKILL and SIGSTOP are refused by the kernel and SIGTERM comes a second time: what a start prints is known
// to those who read its output.
constexpr CaughtSignal kWanted[] = {
    {SIGBUS, "SIGBUS"},   {SIGILL, "SIGILL"},   {SIGKILL, "SIGKILL"}, {SIGFPE, "SIGFPE"},
    {SIGTERM, "SIGTERM"}, {SIGSTOP, "SIGSTOP"}, {SIGPIPE, "SIGPIPE"},
};

constexpr char kCatcherName[] = "signalCatcher";
constexpr int kSkippedFrames = 1;
constexpr int kMaxFrames = 31;

struct sigaction sAction;
unsigned sLimitSeconds;
std::atomic<bool> sCatching;

/** Passes lines on, of each run of stack frames ("#NN ...", indented or not) only the first kMaxFrames. */
class FramePrinter : public Printer {
  public:
    explicit FramePrinter(int fd) : mTarget(fd) {}

    void printLine(const char* line) override {
        const char* const text = line + strspn(line, " ");
        mFrames = *text == '#' ? mFrames + 1 : 0;
        if (mFrames <= kMaxFrames) {
            mTarget.printLine(line);
        }
    }

  private:
    FdPrinter mTarget;
    int mFrames = 0;
};

void endNow(int) {
    _exit(0);
}

/** From here on nothing keeps the process alive for longer than the limit. */
void armLastResort() {
    struct sigaction last = {};
    last.sa_handler = endNow;
    sigemptyset(&last.sa_mask);

    // The signal in progress is blocked on this thread. A crash inside the catcher would be that very signal,
    // and the kernel kills a process that crashes with the signal blocked.
    sigset_t unblocked;
    sigemptyset(&unblocked);
    const auto arm = [&last, &unblocked](int number) {
        sigaction(number, &last, nullptr);
        sigaddset(&unblocked, number);
    };
    arm(SIGALRM);
    for (const CaughtSignal& signal : kRequired) {
        arm(signal.number);
    }
    for (const CaughtSignal& signal : kWanted) {
        arm(signal.number);
    }
    alarm(sLimitSeconds);
    pthread_sigmask(SIG_UNBLOCK, &unblocked, nullptr);
}

void signalCatcher(int number, siginfo_t*, void*) {
    if (sCatching.exchange(true)) {
        _exit(0);
    }
    armLastResort();

    FramePrinter printer(STDERR_FILENO);
    fprintf(stderr, "%s sig num[0x%08x]\n", kCatcherName, number);
    fprintf(stderr, "%s CallStack\n", kCatcherName);
    {
        CallStack stack;
        stack.update(kSkippedFrames);
        stack.print(printer);
    }
    fprintf(stderr, "%s ProcessCallStack\n", kCatcherName);
    {
        ProcessCallStack stacks;
        stacks.update();
        stacks.print(printer);
    }
    exit(0);
}

bool catchSignal(const CaughtSignal& signal) {
    if (sigaction(signal.number, &sAction, nullptr) == 0) {
        return true;
    }
    perror(signal.name);
    return false;
}

}  // namespace

int SignalCatcher::install() {
    return installWithLimit(kLimitSeconds);
}

int SignalCatcher::installWithLimit(unsigned limitSeconds) {
    sLimitSeconds = limitSeconds;
    memset(&sAction, 0, sizeof(sAction));
    sAction.sa_sigaction = signalCatcher;
    sigemptyset(&sAction.sa_mask);
    sAction.sa_flags = SA_SIGINFO;

    for (const CaughtSignal& signal : kRequired) {
        if (!catchSignal(signal)) {
            return 0;
        }
    }
    for (const CaughtSignal& signal : kWanted) {
        catchSignal(signal);
    }
    return 0;
}
