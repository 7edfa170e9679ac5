// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/WakeUp.h"

#include <sys/eventfd.h>
#include <unistd.h>

namespace devicectl {

WakeUp::WakeUp() : mFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

WakeUp::~WakeUp() {
    if (mFd >= 0) {
        close(mFd);
    }
}

void WakeUp::post() {
    // Fails only when the counter is full, and then the descriptor is readable anyway.
    eventfd_write(mFd, 1);
}

void WakeUp::clear() {
    eventfd_t count = 0;
    eventfd_read(mFd, &count);
}

}  // namespace devicectl
