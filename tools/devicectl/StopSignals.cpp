// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/StopSignals.h"

#include <sys/signalfd.h>
#include <unistd.h>

namespace devicectl {

StopSignals::StopSignals() {
    sigemptyset(&mSignals);
    sigaddset(&mSignals, SIGINT);
    sigaddset(&mSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &mSignals, &mFormer);
    mFd = signalfd(-1, &mSignals, SFD_CLOEXEC | SFD_NONBLOCK);
}

StopSignals::~StopSignals() {
    if (mFd >= 0) {
        close(mFd);
    }
}

bool StopSignals::take() {
    signalfd_siginfo taken{};
    return read(mFd, &taken, sizeof(taken)) == static_cast<ssize_t>(sizeof(taken));
}

void StopSignals::release() {
    pthread_sigmask(SIG_SETMASK, &mFormer, nullptr);
}

}  // namespace devicectl
