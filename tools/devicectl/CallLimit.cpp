// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/CallLimit.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>

#include "tools/devicectl/ExitCode.h"
#include "tools/devicectl/Text.h"

namespace devicectl {

namespace {

/** The line that the handler writes, made while no alarm is set. */
std::array<char, 512> sLine;
size_t sLength = 0;

void endProgram(int /*signal*/) {
    if (write(STDERR_FILENO, sLine.data(), sLength) < 0) {
        // There is nobody left to tell.
    }
    _exit(kFailed);
}

}  // namespace

CallLimit::CallLimit(unsigned seconds, std::string_view who) {
    if (seconds == 0) {
        return;
    }
    const int length =
        std::snprintf(sLine.data(), sLine.size(),
                      "devicectl: no answer from %s within %u s: its process hangs or is stopped\n",
                      escapeLine(who.substr(0, 100)).c_str(), seconds);
    sLength = std::min(static_cast<size_t>(std::max(length, 0)), sLine.size() - 1);

    struct sigaction action = {};
    action.sa_handler = endProgram;
    sigaction(SIGALRM, &action, nullptr);
    // The mask is the parent's, which may have blocked it.
    sigset_t alarms;
    sigemptyset(&alarms);
    sigaddset(&alarms, SIGALRM);
    pthread_sigmask(SIG_UNBLOCK, &alarms, nullptr);
    alarm(seconds);
}

CallLimit::~CallLimit() {
    alarm(0);
}

}  // namespace devicectl
