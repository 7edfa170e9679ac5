// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/StopSignals.h"

#include <sys/signalfd.h>
#include <unistd.h>

namespace devicectl {

StopSignals::StopSignals(std::initializer_list<int> signals) {
    sigemptyset(&mSignals);
    for (const int signal : signals) {
        sigaddset(&mSignals, signal);
    }
    pthread_sigmask(SIG_BLOCK, &mSignals, &mFormer);
    mFd = signalfd(-1, &mSignals, SFD_CLOEXEC | SFD_NONBLOCK);
}

StopSignals::~StopSignals() {
    if (mFd >= 0) {
        close(mFd);
    }
}

int StopSignals::takeNumber() {
    signalfd_siginfo taken{};
    const bool came = read(mFd, &taken, sizeof(taken)) == static_cast<ssize_t>(sizeof(taken));
    return came ? static_cast<int>(taken.ssi_signo) : 0;
}

void StopSignals::release() {
    pthread_sigmask(SIG_SETMASK, &mFormer, nullptr);
}

void StopSignals::hold() {
    pthread_sigmask(SIG_BLOCK, &mSignals, nullptr);
}

StopSignals::WakeByContinue::WakeByContinue() {
    struct sigaction action = {};
    // Without SA_RESTART.
    action.sa_handler = [](int /*signal*/) {};
    sigaction(SIGCONT, &action, &mFormerAction);
    sigset_t wake;
    sigemptyset(&wake);
    sigaddset(&wake, SIGCONT);
    pthread_sigmask(SIG_UNBLOCK, &wake, &mFormer);
}

StopSignals::WakeByContinue::~WakeByContinue() {
    pthread_sigmask(SIG_SETMASK, &mFormer, nullptr);
    sigaction(SIGCONT, &mFormerAction, nullptr);
}

}  // namespace devicectl
